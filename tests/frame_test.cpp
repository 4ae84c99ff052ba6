// The frame and the core library: version record, dispatch, processor features.

#include <dlfcn.h>

#include <fstream>
#include <iterator>
#include <set>

#include "core/vekcore.h"
#include "frame/variant.h"
#include "support/test.h"

TEST(Frame, VersionRecordIsTheSameConstantOnEveryCall) {
    const VekLibraryVersion* version = vekdcGetLibVersion();
    ASSERT_EQ(version, vekdcGetLibVersion());
    EXPECT_EQ(version->major, 2021);
    EXPECT_EQ(version->minor, 12);
    EXPECT_EQ(version->majorBuild, 0);
    EXPECT_EQ(version->build, -1692980203);
    EXPECT_EQ(std::string(version->targetCpu, 4), std::string(VEK_VARIANT_CODE "\0\0", 4));
    EXPECT_STREQ(version->name, "vekDC AVX (" VEK_VARIANT_CODE ")");
    EXPECT_STREQ(version->version, "2021.12.0 (r0x9b172c15)");
    EXPECT_STREQ(version->buildDate, "Apr 25 2024");
}

TEST(Frame, VersionMacrosAreThoseOfTheProject) {
    const auto text = [](int number) { return std::to_string(number); };
    EXPECT_EQ(VEK_PROJECT_VERSION, text(VEKDC_VERSION_MAJOR) + "." + text(VEKDC_VERSION_MINOR) +
                                       "." + text(VEKDC_VERSION_PATCH));
    static_assert(VEKDC_VERSION >= 100000);
}

TEST(Frame, EveryStatusHasATextOfItsOwn) {
    std::set<std::string> texts;
    for (VekStatus status = -300; status <= 300; ++status) texts.insert(vekStatusText(status));
    EXPECT_EQ(texts.size(), 15U + 1U);
    EXPECT_TRUE(texts.contains("unknown status"));
    EXPECT_STREQ(vekStatusText(INT32_MIN), "unknown status");
    EXPECT_STREQ(vekStatusText(vekStatusOk), "success");
}

TEST(Frame, EveryListedExportIsDocumentedAndResolvesByNameAndNothingElseDoes) {
    void* library = dlopen("libvekdc" VEK_VARIANT_CODE ".so.10", RTLD_NOW);
    ASSERT_NE(library, nullptr) << dlerror();
    std::ifstream headerFile(VEK_SOURCE_DIR "/include/vekdc.h");
    const std::string header(std::istreambuf_iterator<char>(headerFile), {});
    std::ifstream list(VEK_SOURCE_DIR "/frame/exports.txt");
    int count = 0;
    for (std::string name; std::getline(list, name);) {
        if (name.empty() || name[0] == '#') continue;
        EXPECT_NE(dlsym(library, name.c_str()), nullptr) << name;
        EXPECT_EQ(dlsym(library, (VEK_VARIANT_CODE "_" + name).c_str()), nullptr) << name;
        const char* const type = name[3] == 's' ? "VekStatus " : "const VekLibraryVersion* ";
        EXPECT_NE(header.find(" */\n" + (type + name) + "("), std::string::npos) << name;
        ++count;
    }
    EXPECT_EQ(count, 94);
    dlclose(library);
}

TEST(Core, FeatureMaskNeedsEveryBit) {
    void* core = dlopen("libvekcore.so.10", RTLD_NOW);
    ASSERT_NE(core, nullptr) << dlerror();
    const auto feature = reinterpret_cast<int32_t (*)(uint64_t)>(dlsym(core, "ownGetFeature"));
    ASSERT_NE(feature, nullptr);
    __builtin_cpu_init();
    EXPECT_EQ(feature(0), 1);
    EXPECT_EQ(feature(VEK_FEATURE_SSE42) != 0, __builtin_cpu_supports("sse4.2") != 0);
    EXPECT_EQ(feature(VEK_FEATURE_CLMUL) != 0, __builtin_cpu_supports("pclmul") != 0);
    EXPECT_EQ(feature(VEK_FEATURE_AVX) != 0, __builtin_cpu_supports("avx") != 0);
    EXPECT_EQ(feature(VEK_FEATURE_AVX2) != 0, __builtin_cpu_supports("avx2") != 0);
    EXPECT_EQ(feature(UINT64_C(1) << 63), 0);
    EXPECT_EQ(feature((UINT64_C(1) << 63) | VEK_FEATURE_SSE2), 0);
    EXPECT_EQ(feature(UINT64_C(1) << 31), 0);
    dlclose(core);
}

TEST(Core, CacheSizeIsPlausible) {
    int32_t size = -1;
    EXPECT_EQ(vekGetMaxCacheSizeB(nullptr), vekStatusNullPointer);
    ASSERT_EQ(vekGetMaxCacheSizeB(&size), vekStatusOk);
    EXPECT_GE(size, 16 << 10);
}
