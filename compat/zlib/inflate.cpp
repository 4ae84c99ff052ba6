// Inflating streams: headers and trailers of both formats, and the interface's return values,
// around the decoder of raw streams.
//
// Programs see how much input each call took and at which byte a stream is found to be broken, so
// headers are read bit by bit as far as each field needs, and the decoder is told never to take
// input ahead of the output. Bits may be put in front of the input at any time (inflatePrime());
// they wander with those that are held, from the header to the decoder and from there to the
// trailer.
#include <algorithm>
#include <climits>

#include "codec/checksums.h"
#include "codec/inflate_decoder.h"
#include "compat/zlib/inflate_messages.h"
#include "compat/zlib/streams.h"

using namespace vekdc;
using namespace vekdc::codec;

namespace {

/// What formats are read, and whether their checks are.
constexpr unsigned kZlib = 1;
constexpr unsigned kGzip = 2;
constexpr unsigned kChecked = 4;

/// gzip's flags with the method below them, as they stand in the stream.
constexpr unsigned kTextFlag = 0x0100;
constexpr unsigned kHeaderCrcFlag = 0x0200;
constexpr unsigned kExtraFlag = 0x0400;
constexpr unsigned kNameFlag = 0x0800;
constexpr unsigned kCommentFlag = 0x1000;
constexpr unsigned kUnknownFlags = 0xE000;
constexpr int kNoHeaderYet = -1;
constexpr unsigned kGzipMagic = 0x8B1F;

constexpr uint8_t kSyncMarker[] = {0, 0, 0xFF, 0xFF};

enum class Mode : uint8_t {
    Head,
    Flags,
    Time,
    System,
    ExtraSize,
    Extra,
    Name,
    Comment,
    HeaderCrc,
    DictionaryId,
    Dictionary,
    Body,
    Check,
    Length,
    Done,
    Bad,
    NoMemory,
    Sync,
};

struct Inflater : compat::StreamState {
    static constexpr Kind kKind = Kind::Inflate;

    explicit Inflater(z_streamp stream) : StreamState(stream, kKind), decoder(allocator()) {}
    Inflater(z_streamp stream, const Inflater& other)
        : StreamState(stream, kKind),
          mode(other.mode),
          wrap(other.wrap),
          windowBits(other.windowBits),
          flags(other.flags),
          haveDictionary(other.haveDictionary),
          hold(other.hold),
          bits(other.bits),
          check(other.check),
          total(other.total),
          left(other.left),
          matched(other.matched),
          header(other.header),
          decoder(allocator()) {}

    Mode mode = Mode::Head;
    unsigned wrap = 0;
    unsigned windowBits = 0;
    int flags = kNoHeaderYet;  ///< Of gzip's header; 0 in a zlib stream.
    bool haveDictionary = false;
    uint32_t hold = 0;  ///< Bits of fields outside of the body, the next one lowest.
    uint32_t bits = 0;
    uint32_t check = 0;
    uint64_t total = 0;    ///< Output of this stream.
    uint32_t left = 0;     ///< Of the extra field; or what is read of a text.
    uint32_t matched = 0;  ///< Of the marker that inflateSync() looks for.
    gz_headerp header = nullptr;
    InflateDecoder decoder;
};

Inflater* stateOf(z_streamp stream) {
    return compat::stateOf<Inflater>(stream);
}

/// One call's view of the stream.
class Call {
 public:
    Call(Inflater& state, z_stream& stream, int flush)
        : s(state),
          stream_(stream),
          flush_(flush),
          in_{stream.next_in, stream.avail_in},
          out_{stream.next_out, stream.avail_out} {}

    int run() {
        bool more = true;
        while (more) more = step();
        giveBack();
        // A stream that waits for its dictionary has counted nothing of this call.
        if (status_ == Z_NEED_DICT || s.mode == Mode::NoMemory) return status_;
        const uInt taken = inBefore_ - stream_.avail_in;
        const uInt given = outBefore_ - stream_.avail_out;
        stream_.total_in += taken;
        stream_.total_out += given;
        stream_.data_type = dataType();
        const bool nothing = taken == 0 && given == 0;
        if (status_ == Z_OK && (nothing || flush_ == Z_FINISH)) return Z_BUF_ERROR;
        return status_;
    }

 private:
    /// Does what the mode says; false where the call ends.
    bool step() {
        switch (s.mode) {
            case Mode::Head:
                return head();
            case Mode::Flags:
                return gzipFlags();
            case Mode::Time:
                return time();
            case Mode::System:
                return system();
            case Mode::ExtraSize:
                return extraSize();
            case Mode::Extra:
                return extra();
            case Mode::Name:
                return text(kNameFlag, &gz_header::name, &gz_header::name_max);
            case Mode::Comment:
                return text(kCommentFlag, &gz_header::comment, &gz_header::comm_max);
            case Mode::HeaderCrc:
                return headerCrc();
            case Mode::DictionaryId:
                return dictionaryId();
            case Mode::Dictionary:
                return dictionary();
            case Mode::Body:
                return body();
            case Mode::Check:
                return trailingCheck();
            case Mode::Length:
                return trailingLength();
            case Mode::Done:
                return ends(Z_STREAM_END);
            case Mode::Bad:
                return ends(Z_DATA_ERROR);
            case Mode::NoMemory:
                return ends(Z_MEM_ERROR);
            default:
                return ends(Z_STREAM_ERROR);
        }
    }

    bool ends(int status) {
        status_ = status;
        return false;
    }
    bool go(Mode mode) {
        s.mode = mode;
        return true;
    }
    bool bad(const char* message) {
        stream_.msg = const_cast<char*>(message);
        return go(Mode::Bad);
    }

    void giveBack() {
        stream_.next_in = const_cast<Bytef*>(in_.next);
        stream_.avail_in = static_cast<uInt>(in_.left);
        stream_.next_out = out_.next;
        stream_.avail_out = static_cast<uInt>(out_.left);
    }

    int dataType() const {
        const InflateDecoder& decoder = s.decoder;
        const bool inBody = s.mode == Mode::Body;
        int type = static_cast<int>(inBody ? decoder.unusedBits() : s.bits);
        if (decoder.inLastBlock()) type += 64;
        if (!inBody) return type;
        if (decoder.justEndedBlock() || (beganBody_ && decoder.betweenBlocks())) return type + 128;
        return decoder.paused() ? type + 256 : type;
    }

    bool need(uint32_t count) {
        for (; s.bits < count; s.bits += 8, ++in_.next, --in_.left) {
            if (in_.left == 0) return false;
            s.hold += static_cast<uint32_t>(*in_.next) << s.bits;
        }
        return true;
    }
    void clearBits() { s.hold = s.bits = 0; }

    /// Adds to the header's own checksum, if it has one that counts.
    void sumHeader(Bytes bytes) {
        if ((static_cast<unsigned>(s.flags) & kHeaderCrcFlag) != 0 && (s.wrap & kChecked) != 0)
            s.check = kCrc32.update(s.check, bytes);
    }
    void sumField(uint32_t count) {
        uint8_t bytes[4];
        for (uint32_t i = 0; i < count; ++i) bytes[i] = static_cast<uint8_t>(s.hold >> (8 * i));
        sumHeader({bytes, count});
        clearBits();
    }
    bool has(unsigned flag) const { return (static_cast<unsigned>(s.flags) & flag) != 0; }

    bool head() {
        if (s.wrap == 0) return beginBody(false);
        if (!need(16)) return false;
        if ((s.wrap & kGzip) != 0 && s.hold == kGzipMagic) {
            if (s.windowBits == 0) s.windowBits = MAX_WBITS;
            const uint8_t magic[] = {kGzipMagic & 0xFF, kGzipMagic >> 8};
            s.check = kCrc32.update(kCrc32.initial, {magic, sizeof(magic)});
            clearBits();
            return go(Mode::Flags);
        }
        if (s.header != nullptr) s.header->done = -1;
        if ((s.wrap & kZlib) == 0 || (((s.hold & 0xFF) << 8) + (s.hold >> 8)) % 31 != 0)
            return bad("incorrect header check");
        if ((s.hold & 15) != Z_DEFLATED) return bad("unknown compression method");
        s.hold >>= 4;
        s.bits -= 4;
        const unsigned length = (s.hold & 15) + 8;
        if (s.windowBits == 0) s.windowBits = length;
        if (length > MAX_WBITS || length > s.windowBits) return bad("invalid window size");
        s.flags = 0;
        stream_.adler = s.check = kAdler32.initial;
        const bool named = (s.hold & 0x200) != 0;
        clearBits();
        return named ? go(Mode::DictionaryId) : beginBody(true);
    }

    bool gzipFlags() {
        if (!need(16)) return false;
        s.flags = static_cast<int>(s.hold);
        if ((s.hold & 0xFF) != Z_DEFLATED) return bad("unknown compression method");
        if (has(kUnknownFlags)) return bad("unknown header flags set");
        if (s.header != nullptr) s.header->text = has(kTextFlag) ? 1 : 0;
        sumField(2);
        return go(Mode::Time);
    }
    bool time() {
        if (!need(32)) return false;
        if (s.header != nullptr) s.header->time = s.hold;
        sumField(4);
        return go(Mode::System);
    }
    bool system() {
        if (!need(16)) return false;
        if (s.header != nullptr) {
            s.header->xflags = static_cast<int>(s.hold & 0xFF);
            s.header->os = static_cast<int>(s.hold >> 8);
        }
        sumField(2);
        return go(Mode::ExtraSize);
    }
    bool extraSize() {
        s.left = 0;
        if (has(kExtraFlag)) {
            if (!need(16)) return false;
            s.left = s.hold;
            if (s.header != nullptr) s.header->extra_len = s.hold;
            sumField(2);
        } else if (s.header != nullptr) {
            s.header->extra = nullptr;
        }
        return go(Mode::Extra);
    }
    bool extra() {
        const auto count = static_cast<uInt>(std::min<size_t>(s.left, in_.left));
        if (count != 0) {
            gz_header* const to = s.header;
            if (to != nullptr && to->extra != nullptr) {
                const uInt at = to->extra_len - s.left;
                if (at < to->extra_max)
                    std::memcpy(to->extra + at, in_.next, std::min(count, to->extra_max - at));
            }
            sumHeader({in_.next, count});
            skip(count);
            s.left -= count;
        }
        if (s.left != 0) return false;
        return go(Mode::Name);
    }
    void skip(size_t count) {
        in_.next += count;
        in_.left -= count;
    }

    /// A text and the zero behind it; then comes the next mode.
    bool text(unsigned flag, Bytef* gz_header::*place, uInt gz_header::*most) {
        gz_header* const to = s.header;
        if (has(flag)) {
            if (in_.left == 0) return false;
            const void* const zero = std::memchr(in_.next, 0, in_.left);
            const size_t count =
                zero == nullptr
                    ? in_.left
                    : static_cast<size_t>(static_cast<const Bytef*>(zero) - in_.next) + 1;
            if (to != nullptr && to->*place != nullptr && s.left < to->*most) {
                const size_t kept = std::min<size_t>(count, to->*most - s.left);
                std::memcpy(to->*place + s.left, in_.next, kept);
                s.left += static_cast<uint32_t>(kept);
            }
            sumHeader({in_.next, count});
            skip(count);
            if (zero == nullptr) return false;
        } else if (to != nullptr) {
            to->*place = nullptr;
        }
        s.left = 0;
        return go(static_cast<Mode>(static_cast<int>(s.mode) + 1));
    }

    bool headerCrc() {
        if (has(kHeaderCrcFlag)) {
            if (!need(16)) return false;
            if ((s.wrap & kChecked) != 0 && s.hold != (s.check & 0xFFFF))
                return bad("header crc mismatch");
            clearBits();
        }
        if (s.header != nullptr) {
            s.header->hcrc = has(kHeaderCrcFlag) ? 1 : 0;
            s.header->done = 1;
        }
        stream_.adler = s.check = kCrc32.initial;
        return beginBody(true);
    }

    bool dictionaryId() {
        if (!need(32)) return false;
        stream_.adler = s.check = __builtin_bswap32(s.hold);
        clearBits();
        return go(Mode::Dictionary);
    }
    bool dictionary() {
        if (!s.haveDictionary) return ends(Z_NEED_DICT);
        stream_.adler = s.check = kAdler32.initial;
        return beginBody(true);
    }

    /// Behind a header there is a place to stop.
    bool beginBody(bool stops) {
        s.mode = Mode::Body;
        s.decoder.neverAhead(size_t{1} << s.windowBits);
        for (; s.bits != 0; s.bits -= std::min(s.bits, 16U), s.hold >>= 16)
            s.decoder.prime(s.hold & 0xFFFF, std::min(s.bits, 16U));
        clearBits();
        beganBody_ = stops;
        return !stops || (flush_ != Z_BLOCK && flush_ != Z_TREES);
    }

    bool body() {
        InflateDecoder& decoder = s.decoder;
        decoder.pauseAt(flush_ == Z_BLOCK   ? InflatePause::Blocks
                        : flush_ == Z_TREES ? InflatePause::Codes
                                            : InflatePause::Never);
        const Output before = out_;
        const Status status = decoder.run(in_, out_);
        const Bytes fresh(before.next, before.left - out_.left);
        s.total += fresh.size();
        if ((s.wrap & kChecked) != 0 && !fresh.empty())
            stream_.adler = s.check = (s.flags != 0 ? kCrc32 : kAdler32).update(s.check, fresh);
        switch (status) {
            case Status::Ended: {
                s.bits = decoder.unusedBits();
                s.hold = decoder.takeUnused();
                s.hold >>= s.bits % 8;
                s.bits -= s.bits % 8;
                return go(Mode::Check);
            }
            case Status::Broken:
                s.bits = decoder.unusedBits();
                s.hold = decoder.takeUnused();
                return bad(compat::inflateMessage(decoder.faultKind()));
            case Status::NoMemory:
                return go(Mode::NoMemory);
            default:
                return false;
        }
    }

    bool trailingCheck() {
        if (s.wrap != 0) {
            if (!need(32)) return false;
            const uint32_t said = s.flags != 0 ? s.hold : __builtin_bswap32(s.hold);
            if ((s.wrap & kChecked) != 0 && said != s.check) return bad("incorrect data check");
            clearBits();
        }
        return go(Mode::Length);
    }
    bool trailingLength() {
        if (s.wrap != 0 && s.flags != 0) {
            if (!need(32)) return false;
            if ((s.wrap & kChecked) != 0 && s.hold != static_cast<uint32_t>(s.total))
                return bad("incorrect length check");
            clearBits();
        }
        return go(Mode::Done);
    }

    Inflater& s;
    z_stream& stream_;
    int flush_;
    Input in_;
    Output out_;
    uInt inBefore_ = stream_.avail_in;
    uInt outBefore_ = stream_.avail_out;
    int status_ = Z_OK;
    bool beganBody_ = false;
};

/// Forgets a header and what was held; the decoder's history may stay.
void restart(Inflater& state, z_stream& stream) {
    stream.total_in = stream.total_out = 0;
    stream.msg = nullptr;
    if (state.wrap != 0) stream.adler = state.wrap & 1;
    state.mode = Mode::Head;
    state.flags = kNoHeaderYet;
    state.haveDictionary = false;
    state.hold = state.bits = 0;
    state.total = 0;
    state.left = 0;
    state.header = nullptr;
}

/// Moves on behind the marker, or to the end; how much of it was found is kept.
size_t findMarker(uint32_t& matched, Bytes bytes) {
    size_t at = 0;
    for (; at < bytes.size() && matched < sizeof(kSyncMarker); ++at) {
        if (bytes[at] == kSyncMarker[matched]) {
            ++matched;
        } else {
            // Of zeros, the latest two may begin the marker.
            matched = bytes[at] != 0 ? 0 : 4 - matched;
        }
    }
    return at;
}

}  // namespace

extern "C" {

int inflateResetKeep(z_streamp strm) {
    Inflater* const state = stateOf(strm);
    if (state == nullptr) return Z_STREAM_ERROR;
    restart(*state, *strm);
    state->decoder.restart();
    return Z_OK;
}

int inflateReset(z_streamp strm) {
    Inflater* const state = stateOf(strm);
    if (state == nullptr) return Z_STREAM_ERROR;
    restart(*state, *strm);
    state->decoder.reset();
    return Z_OK;
}

int inflateReset2(z_streamp strm, int windowBits) {
    Inflater* const state = stateOf(strm);
    if (state == nullptr) return Z_STREAM_ERROR;
    unsigned wrap = 0;
    if (windowBits < 0) {
        if (windowBits < -MAX_WBITS) return Z_STREAM_ERROR;
        windowBits = -windowBits;
    } else {
        wrap = static_cast<unsigned>(windowBits >> 4) + 1 + kChecked;
        if (windowBits < 48) windowBits &= 15;
    }
    if (windowBits != 0 && (windowBits < 8 || windowBits > MAX_WBITS)) return Z_STREAM_ERROR;
    state->wrap = wrap;
    state->windowBits = static_cast<unsigned>(windowBits);
    return inflateReset(strm);
}

int inflateInit2_(z_streamp strm, int windowBits, const char* version, int stream_size) {
    if (compat::wrongVersion(version, stream_size)) return Z_VERSION_ERROR;
    if (strm == nullptr) return Z_STREAM_ERROR;
    strm->msg = nullptr;
    compat::defaultMemory(strm);
    auto* const state = compat::newState<Inflater>(strm);
    if (state == nullptr) return Z_MEM_ERROR;
    const int status = inflateReset2(strm, windowBits);
    if (status != Z_OK) compat::deleteState(strm, state);
    return status;
}

int inflateInit_(z_streamp strm, const char* version, int stream_size) {
    return inflateInit2_(strm, MAX_WBITS, version, stream_size);
}

int inflateEnd(z_streamp strm) {
    Inflater* const state = stateOf(strm);
    if (state == nullptr) return Z_STREAM_ERROR;
    compat::deleteState(strm, state);
    return Z_OK;
}

int inflateCopy(z_streamp dest, z_streamp source) {
    const Inflater* const from = stateOf(source);
    if (from == nullptr || dest == nullptr) return Z_STREAM_ERROR;
    z_stream copy = *source;
    auto* const memory = compat::allocate(copy, sizeof(Inflater));
    if (memory == nullptr) return Z_MEM_ERROR;
    *dest = copy;
    auto* const state = new (memory) Inflater(dest, *from);
    dest->state = reinterpret_cast<internal_state*>(state);
    if (state->decoder.copyFrom(from->decoder) == Status::Going) return Z_OK;
    compat::deleteState(dest, state);
    return Z_MEM_ERROR;
}

int inflate(z_streamp strm, int flush) {
    Inflater* const state = stateOf(strm);
    if (state == nullptr || compat::badBuffers(*strm)) return Z_STREAM_ERROR;
    if (state->mode == Mode::Sync) return Z_STREAM_ERROR;
    return Call(*state, *strm, flush).run();
}

int inflateSetDictionary(z_streamp strm, const Bytef* dictionary, uInt dictLength) {
    Inflater* const state = stateOf(strm);
    if (state == nullptr) return Z_STREAM_ERROR;
    if (state->wrap != 0 && state->mode != Mode::Dictionary) return Z_STREAM_ERROR;
    const Bytes bytes(dictionary, dictLength);
    if (state->mode == Mode::Dictionary && kAdler32.update(kAdler32.initial, bytes) != state->check)
        return Z_DATA_ERROR;
    state->decoder.neverAhead(size_t{1} << state->windowBits);
    if (state->decoder.setHistory(bytes) != Status::Going) {
        state->mode = Mode::NoMemory;
        return Z_MEM_ERROR;
    }
    state->haveDictionary = true;
    return Z_OK;
}

int inflateGetDictionary(z_streamp strm, Bytef* dictionary, uInt* dictLength) {
    const Inflater* const state = stateOf(strm);
    if (state == nullptr) return Z_STREAM_ERROR;
    const Bytes history = state->decoder.history();
    if (dictionary != nullptr && !history.empty())
        std::memcpy(dictionary, history.data(), history.size());
    if (dictLength != nullptr) *dictLength = static_cast<uInt>(history.size());
    return Z_OK;
}

int inflateGetHeader(z_streamp strm, gz_headerp head) {
    Inflater* const state = stateOf(strm);
    if (state == nullptr || (state->wrap & kGzip) == 0) return Z_STREAM_ERROR;
    state->header = head;
    head->done = 0;
    return Z_OK;
}

int inflatePrime(z_streamp strm, int bits, int value) {
    Inflater* const state = stateOf(strm);
    if (state == nullptr) return Z_STREAM_ERROR;
    const bool inBody = state->mode == Mode::Body;
    if (bits < 0) {
        state->hold = state->bits = 0;
        if (inBody) state->decoder.takeUnused();
        return Z_OK;
    }
    const auto count = static_cast<uint32_t>(bits);
    const auto number = static_cast<uint32_t>(value);
    if (inBody) return state->decoder.prime(number, count) ? Z_OK : Z_STREAM_ERROR;
    if (count > 16 || state->bits + count > 32) return Z_STREAM_ERROR;
    if (count != 0) state->hold += (number & ((1U << count) - 1)) << state->bits;
    state->bits += count;
    return Z_OK;
}

int inflateSync(z_streamp strm) {
    Inflater* const state = stateOf(strm);
    if (state == nullptr) return Z_STREAM_ERROR;
    InflateDecoder& decoder = state->decoder;
    const bool inBody = state->mode == Mode::Body;
    if (strm->avail_in == 0 && (inBody ? decoder.unusedBits() : state->bits) < 8)
        return Z_BUF_ERROR;
    if (inBody) {
        state->bits = decoder.unusedBits();
        state->hold = decoder.takeUnused();
    }
    if (state->mode != Mode::Sync) {
        state->mode = Mode::Sync;
        state->matched = 0;
        state->hold >>= state->bits % 8;
        uint8_t held[4];
        const uint32_t count = state->bits / 8;
        for (uint32_t i = 0; i < count; ++i) held[i] = static_cast<uint8_t>(state->hold >> (8 * i));
        findMarker(state->matched, {held, count});
        state->hold = state->bits = 0;
    }
    const size_t passed = findMarker(state->matched, {strm->next_in, strm->avail_in});
    strm->next_in += passed;
    strm->avail_in -= static_cast<uInt>(passed);
    strm->total_in += static_cast<uLong>(passed);
    if (state->matched != sizeof(kSyncMarker)) return Z_DATA_ERROR;

    // What was left out is missing in the checks.
    if (state->flags == kNoHeaderYet) {
        state->wrap = 0;
    } else {
        state->wrap &= ~kChecked;
    }
    const int flags = state->flags;
    const uLong totalIn = strm->total_in;
    const uLong totalOut = strm->total_out;
    inflateReset(strm);
    strm->total_in = totalIn;
    strm->total_out = totalOut;
    state->flags = flags;
    state->mode = Mode::Body;
    decoder.neverAhead(size_t{1} << state->windowBits);
    return Z_OK;
}

int inflateSyncPoint(z_streamp strm) {
    const Inflater* const state = stateOf(strm);
    if (state == nullptr) return Z_STREAM_ERROR;
    return state->mode == Mode::Body && state->decoder.beforeStoredLength() &&
                   state->decoder.unusedBits() == 0
               ? 1
               : 0;
}

/// Distances beyond the history are always refused.
int inflateUndermine(z_streamp strm, int) {
    return stateOf(strm) == nullptr ? Z_STREAM_ERROR : Z_DATA_ERROR;
}

int inflateValidate(z_streamp strm, int check) {
    Inflater* const state = stateOf(strm);
    if (state == nullptr) return Z_STREAM_ERROR;
    if (check != 0 && state->wrap != 0) {
        state->wrap |= kChecked;
    } else {
        state->wrap &= ~kChecked;
    }
    return Z_OK;
}

/// Of a code or a match under way, only that there is one is told.
long inflateMark(z_streamp strm) {
    constexpr long outside = -(1L << 16);
    const Inflater* const state = stateOf(strm);
    if (state == nullptr) return outside;
    if (state->mode != Mode::Body) return outside;
    if (state->decoder.inCodedData()) return 0;
    return outside + static_cast<long>(state->decoder.storedLeft());
}

/// The size of the block's codes in the decoder's tables.
unsigned long inflateCodesUsed(z_streamp strm) {
    const Inflater* const state = stateOf(strm);
    return state == nullptr ? ULONG_MAX : state->decoder.codesUsed();
}
}
