// The tool's zfp fields: exchanged with the method's own tool in every mode, and what is wrong with
// broken files and options.

#include "support/tool.h"

namespace {

using namespace vektest;

const vekdc::Format& zfp() {
    return format("zfp");
}

Bytes compress(const Bytes& plain, const Options& own, unsigned jobs = 1) {
    return vektest::compress(zfp(), plain, settingsOf(6, jobs, own));
}

Bytes decompress(const Bytes& packed, unsigned jobs = 1) {
    return vektest::decompress(zfp(), packed, settingsOf(6, jobs));
}

/// The message of the Failure that `call` ends in, or of the FormatError behind its offset.
template <class Call>
std::string refusal(Call&& call) {
    try {
        call();
    } catch (const vekdc::FormatError& error) {
        return std::to_string(error.offset) + ": " + error.what();
    } catch (const vekdc::Failure& error) {
        return error.what();
    }
    return "";
}

template <class To, class From>
std::vector<To> asArrayOf(const std::vector<From>& from) {
    std::vector<To> to(from.size() * sizeof(From) / sizeof(To));
    std::memcpy(to.data(), from.data(), to.size() * sizeof(To));
    return to;
}

struct Mode {
    const char* theirs;
    Options ours;
    double tolerance;  ///< 0: none is promised.
};

const std::vector<Mode> modes = {{"-r 8", {{"rate", "8"}}, 0},
                                 {"-r 7.3", {{"rate", "7.3"}}, 0},
                                 {"-r 0.15", {{"rate", "0.15"}}, 0},
                                 {"-r 40", {{"rate", "40"}}, 1e-5},
                                 {"-p 13", {{"precision", "13"}}, 0},
                                 {"-p 32", {}, 1e-5},
                                 {"-a 1e-3", {{"accuracy", "1e-3"}}, 1e-3},
                                 {"-p 32", {{"accuracy", "0"}}, 1e-5},
                                 {"-a 3", {{"accuracy", "3"}}, 3},
                                 {"-c 0 200 20 -10", {{"expert", "0,200,20,-10"}}, 0},
                                 {"-c 70 900 64 -8", {{"expert", "70,900,64,-8"}}, 0},
                                 {"-c 333 333 12 -10", {{"expert", "333,333,12,-10"}}, 0}};

class ZfpFormat : public Program {
 protected:
    void exchange(const Mode& mode, const char* dims) {
        SCOPED_TRACE(std::string(mode.theirs) + " " + dims);
        Options own = mode.ours;
        own["dims"] = dims;
        std::array<unsigned, 3> sides = {1, 1, 1};
        std::sscanf(dims, "%ux%ux%u", &sides[0], &sides[1], &sides[2]);
        const Bytes plain = field(size_t{sides[0]} * sides[1] * sides[2]);
        const Bytes packed = compress(plain, own);
        ASSERT_EQ(packed.size() % 8, 0U);
        EXPECT_TRUE(compress(plain, own, 3) == packed);
        const Bytes decoded = decompress(packed);
        ASSERT_EQ(decoded.size(), plain.size());
        EXPECT_TRUE(decompress(packed, 3) == decoded);
        const auto before = asArrayOf<float>(plain), after = asArrayOf<float>(decoded);
        for (size_t i = 0; i < before.size() && mode.tolerance != 0; ++i)
            ASSERT_NEAR(before[i], after[i], mode.tolerance) << i;
        if (static const bool have = haveTool("zfp"); !have) return;
        write("raw", plain);
        write("ours", packed);
        std::string command = "zfp -q -h -f -3";
        for (const unsigned side : sides) command += " " + std::to_string(side);
        good(command + " " + mode.theirs + " -i raw -z theirs && zfp -q -h -z ours -o back");
        EXPECT_TRUE(read("back") == decoded);
        // Its stream may end sooner, where it is built for shorter words.
        const Bytes theirs = read("theirs");
        ASSERT_LE(theirs.size(), packed.size());
        EXPECT_TRUE(std::equal(theirs.begin(), theirs.end(), packed.begin()));
        EXPECT_TRUE(decompress(theirs) == decoded);
    }
};

TEST_F(ZfpFormat, ExchangesFieldsOfAnySidesWithTheZfpTool) {
    for (const Mode& mode : modes)
        for (const char* dims : {"9x6x5", "8x4x4", "1x2x3", "7x21", "50", "1x1x1"})
            exchange(mode, dims);
}

TEST_F(ZfpFormat, LargeFieldsGoInChunksOfPlanesOrRows) {
    for (const size_t mode : {1, 5, 6, 9})
        for (const char* dims : {"101x90x50", "1022x601"}) exchange(modes[mode], dims);
}

TEST_F(ZfpFormat, SaysWhatIsWrongWithAFile) {
    const Bytes plain = field(270);
    const Bytes rate = compress(plain, {{"dims", "9x6x5"}, {"rate", "8"}});
    const Bytes expert = compress(plain, {{"dims", "9x6x5"}, {"expert", "0,200,20,-10"}});
    EXPECT_EQ(compress(Bytes(4096), {{"dims", "1kx1"}}), compress(Bytes(4096), {{"dims", "1024"}}));
    const auto with = [](Bytes file, const std::map<size_t, uint8_t>& changes) {
        for (const auto& [at, value] : changes) file[at] = value;
        return file;
    };
    expectComplaints(
        zfp(), {{with(rate, {{0, 'Z'}}), "0: not a zfp file with a header"},
                {with(rate, {{3, 4}}), "3: version 4 of the zfp codec, not 5"},
                {with(rate, {{4, 0x88}}), "4: a field of 32-bit integers; only"},
                {with(rate, {{4, 0x8B}}), "4: a field of doubles; only"},
                {with(rate, {{4, 0x86}}), "4: a field of 2 dimensions, coded"},
                {with(rate, {{10, 0}, {11, 0x88}}), "10: coded without loss"},
                {with(expert, {{18, 0}}), "10: coded without loss"},
                {with(rate, {{10, 0}, {11, 0}}), "10: blocks of 1 bits, which have no room"},
                {with(expert, {{13, 0xFF}}), "10: .* of at least 32513 and at most 200 bits"}});
    for (const Bytes& file : {rate, expert}) {
        for (size_t size = 0; size < file.size() - 7; ++size)
            EXPECT_EQ(complaint(zfp(), {file.begin(), file.begin() + size}),
                      std::to_string(size < 4 ? 0 : size) + ": the file ends too early");
        const Decoded longer = decode(zfp(), file + Bytes{0});
        EXPECT_TRUE(longer.plain == decompress(file));
        EXPECT_EQ(longer.warning,
                  "byte " + std::to_string(file.size()) + ": ignored what follows the zfp data");
    }
    write("cut.zfp", {rate.begin(), rate.end() - 99});
    bad("vekdc decompress cut.zfp", "cut.zfp: byte 685: the file ends too early");
    write("field", plain);
    bad("vekdc compress --format zfp --dims 9x6x6 field", "field: byte 1080: the field ends .*");
    // A small file that promises a large field takes no memory for it.
    Bytes vast = expert;
    std::fill(vast.begin() + 5, vast.begin() + 10, uint8_t{0x7F});
    const std::string text = refusal([&] { decompress(vast); });
    EXPECT_TRUE(text.ends_with("too early") || text.ends_with("than fits in memory")) << text;
}

TEST_F(ZfpFormat, RefusesFieldsAndOptionsThatDoNotFit) {
    const Options dims = {{"dims", "9x6x5"}};
    const struct {
        size_t size;
        Options own;
        const char* message;
    } cases[] = {
        {1080, {}, "the field's sides are missing: --dims NXxNYxNZ"},
        {1076, dims, "1076: the field ends too early; 9 x 6 x 5 floats are 1080 bytes"},
        {1078, dims, "1078: the length is not a multiple of 4 bytes, .* are 1080 bytes"},
        {1084, dims, "1080: the file goes on behind the field; .* are 1080 bytes"},
        {0, {{"dims", "1"}}, "0: the field ends too early; 1 x 1 x 1 floats are 4 bytes"},
        {1080,
         {{"dims", "270"}, {"rate", "8"}, {"accuracy", "1"}},
         "--rate, .* exclude each other"},
    };
    for (const auto& c : cases) {
        const std::string text = refusal([&] { compress(Bytes(c.size), c.own); });
        EXPECT_TRUE(contains(text, std::string("^") + c.message)) << text;
    }
    const std::pair<const char*, std::vector<const char*>> wrong[] = {
        {"dims", {"", "x", "0", "9x", "9x6x5x1", "65537", "2Mx1", "9,6,5", "-1x3", "99999999999"}},
        {"rate", {"", "0.1", "65", "nan", "8x"}},
        {"precision", {"0", "33", "x"}},
        {"accuracy", {"-1", "inf", "x"}},
        {"expert",
         {"1,2,3", "0,8,64,0", "100,50,64,0", "0,100,65,0", "0,100,0,0", "0,100,64,-1075",
          "0,40000,64,0"}}};
    for (const auto& [name, values] : wrong)
        for (const char* value : values) {
            Options own = dims;
            own[name] = value;
            EXPECT_EQ(refusal([&] { compress(Bytes(1080), own); }).find("--"), 0U)
                << name << " " << value;
        }
}

TEST_F(ZfpFormat, InfoTellsParametersAndErrors) {
    const Bytes plain = field(270);
    const Bytes packed = compress(plain, {{"dims", "9x6x5"}, {"rate", "8"}});
    const auto against = [&](const std::vector<float>& original) {
        write("original", asArrayOf<uint8_t>(original));
        return info(zfp(), packed, settingsOf(6, 1, {{"original", path("original")}}));
    };
    std::vector<float> decoded = asArrayOf<float>(decompress(packed));
    EXPECT_NE(
        against(decoded).find("9 x 6 x 5 floats, 12 blocks\n  fixed rate, 8 bits a value "
                              "(minbits 512, maxbits 512, maxprec 64, minexp -1074)\n  784 -> "
                              "1080 bytes, ratio 1.378, 23.230 bits a value\n"),
        std::string::npos)
        << against(decoded);
    EXPECT_NE(against(decoded).find("maximum error 0, RMSE 0, PSNR infinite"), std::string::npos);
    // Half of the range is added to one value in the middle of it.
    const auto [low, high] = std::minmax_element(decoded.begin(), decoded.end());
    const float range = *high - *low;
    *std::find_if(decoded.begin(), decoded.end(), [&, least = *low](float v) {
        return v > least && v < least + range / 4;
    }) += range / 2;
    std::array<char, 100> text{};
    std::snprintf(text.data(), text.size(), "RMSE %.4g, PSNR %.2f dB", range / 2 / std::sqrt(270),
                  20 * std::log10(std::sqrt(270)));
    EXPECT_NE(against(decoded).find(text.data()), std::string::npos)
        << against(decoded) << text.data();
    decoded[3] = std::nanf("");
    EXPECT_NE(against(decoded).find("left out: 1 value"), std::string::npos);
    for (const size_t size : {269, 271}) {
        decoded.resize(size);
        EXPECT_NE(refusal([&] { against(decoded); }).find("not as long"), std::string::npos);
    }
}

}  // namespace
