// An encoder of raw deflate streams, composed of the library's stages.
//
// Input is gathered in one piece of text, behind the part of it that matches may refer to, and
// matched when that is full or must be coded now. As much as gives 28 Ki pairs, or as the text
// holds, becomes one block or several, where its statistics change (deflate_blocks.h). A block's
// size is known exactly for each of the format's three ways (dynamic code, fixed code, stored) from
// the frequencies and the code lengths alone, without coding it; the cheapest is written. So data
// that does not compress grows by a few bytes a block. A block's bytes stay in the text as long as
// they may be stored or looked at; where it is full of what makes few pairs, they are let go so
// that the block may go on. Little is kept of what is coded but the pairs: they are coded when
// there is room, as many as fit, or as many at once as repay the coder's tables.
//
// Text, pairs, their code and the matcher's tables (deflate_matcher.h) are as large as 400,000
// bytes allow: larger blocks are smaller by half a thousandth only. The text is moved down only
// when all of it is matched, and pairs are counted once, where blocks are split, so that neither
// costs much beside matching, which takes two thirds of the time at level 1 and nearly all of it
// from level 5 on.
//
// A short stream that comes whole gets tables of its own size, so that it costs no more to begin
// than to code; a very short one a search of its own (deflate_short.h). History (of the stream's
// part before this one, or of another thread's block) is put in front of the text without being
// coded. Where it pays, the matcher's pairs are refined once a block's statistics are known
// (deflate_refine.h); that and the parameters make each level smaller than the one before, and than
// the usual encoders' same level.
//
// The best level finds the cheapest of all parses instead (deflate_parser.h).
//
// The fastest level takes a single pass with a code made beforehand, in pieces that know nothing of
// each other.
#include "codec/deflate_encoder.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <memory>
#include <utility>

#include "codec/deflate_refine.h"
#include "codec/deflate_short.h"

namespace vekdc::codec {
namespace {

constexpr size_t kSmall = 4 << 10;

/// Which blocks' pairs are refined. The greedy matcher knows no matches of three bytes, so behind
/// it that saves up to a twentieth, of small blocks of anything. Behind the lazy one it saves a
/// hundredth of images and databases, but nothing of text, and takes a quarter of the time.
enum class Refined : uint8_t {
    Small,   ///< Small ones, and in short streams those of more than ASCII text.
    Binary,  ///< Those of more than ASCII text.
    All,
};

/// What the levels 1 to 9 do.
struct Level {
    DeflateSearch search;
    /// Up to which size a whole stream takes the search for short ones, and how many places that
    /// looks at: as long as its pairs are as small as the level's own.
    size_t longestShort;
    uint32_t shortDepth;
    DeflateMatcher::Way way;
    Refined refined;
};
using Way = DeflateMatcher::Way;
constexpr int kMaxLevel = 9;
constexpr Level kLevels[kMaxLevel] = {
    {{1, 8, 8, 8}, kMostShort, 4, Way::Quick, Refined::Small},
    {{4, 16, 16, 16}, kMostShort, 8, Way::Greedy, Refined::Small},
    {{16, 32, 32, 258}, kMostShort, 12, Way::Greedy, Refined::Small},
    {{20, 32, 64, 258}, kMostShort, 16, Way::Greedy, Refined::All},
    {{32, 12, 64, 16}, 1024, 16, Way::Lazy, Refined::Binary},
    {{64, 8, 128, 16}, 1024, 24, Way::Lazy, Refined::Binary},
    {{128, 32, 258, 64}, 1024, 32, Way::Lazy, Refined::Binary},
    {{512, 64, 258, 128}, 1024, 64, Way::Lazy, Refined::Binary},
    {{1024, 128, 258, 258}, 1024, 128, Way::Lazy, Refined::Binary}};
constexpr DeflateEffort kBestEffort = {150, 258, 4, 256 << 10};

/// Up to this size a stream takes hardly longer at the second level than at the first, and few
/// bytes more or less are a large part of it.
constexpr size_t kShortStream = 16 << 10;

// Together with the tables they make what a stream takes.
constexpr size_t kTextBytes = 93 << 10;
constexpr uint32_t kBlockPairs = 28 << 10;
/// The text is moved down for no less room than this.
constexpr size_t kLeastGain = 8 << 10;
constexpr size_t kLeastText = 4 << 10;
/// A text of no more than this may stand beside the larger one that it is copied to.
constexpr size_t kGrowing = 16 << 10;

constexpr uint32_t kParsePairs = 256 << 10;
/// With less room for pairs than this no parse is begun.
constexpr uint32_t kLeastParse = 4096;
constexpr size_t kBlockBytes = 256 << 10;
constexpr size_t kMaxStored = 65535;
/// Input of at least this size is taken where it stands.
constexpr size_t kDirect = 64 << 10;

constexpr uint32_t kLeastTable = 256;
constexpr uint32_t kFastestHashSize = 32768;  // smaller: it is cleared for each piece

/// Pairs that are coded at once where there is room for fewer: so many that the coder makes tables
/// for them, which is twice as fast. A block of few, such as a short stream's, takes no memory for
/// that. The room is what vekDeflateHuffBound() says, and a little.
constexpr size_t kCodedPairs = 2048;
constexpr size_t kFewPairs = 256;
constexpr size_t kPairBytes = 6;

/// Room for so many pairs' code, and how many surely fit into some.
constexpr size_t pairRoom(size_t pairs) {
    return (pairs + 1) * kPairBytes;
}
constexpr size_t pairsIn(size_t room) {
    return std::max(room / kPairBytes, size_t{1}) - 1;
}

/// Whether nearly all literals are ASCII.
bool isAscii(const DeflateTables& counts) {
    uint32_t ascii = 0;
    uint32_t other = 0;
    for (uint32_t byte = 0; byte < 128; ++byte) {
        ascii += frequency(counts.lit[byte]);
        other += frequency(counts.lit[128 + byte]);
    }
    return other < ascii / 16;
}

}  // namespace

DeflateEncoder::DeflateEncoder(const DeflateOptions& options, const Allocator& allocator)
    : text_(allocator),
      matcher_(allocator),
      lits_(allocator),
      dists_(allocator),
      parser_(allocator),
      heads_(allocator),
      coded_(allocator) {
    state_.options = options;
}

Status DeflateEncoder::reset() {
    return reset(state_.options);
}

Status DeflateEncoder::reset(DeflateOptions options) {
    std::construct_at(&state_);
    state_.options = options;
    return Status::Going;
}

void DeflateEncoder::tune(int level, DeflateStrategy strategy) {
    state_.options.level = level;
    state_.options.strategy = strategy;
}

Status DeflateEncoder::setHistory(Bytes history) {
    state_.matching = false;
    state_.method = method();
    if (state_.method == Method::Parse) {
        if (!prepareParser(0) || !parser_.prepareParse(kBestEffort, 0)) return Status::NoMemory;
        parser_.setHistory(history);
    }
    return !keepsText(state_.method) || placeHistory(history) ? Status::Going : Status::NoMemory;
}

/// Puts what matches may refer to in front of what is to be matched.
bool DeflateEncoder::placeHistory(Bytes history) {
    State& s = state_;
    history = history.last(std::min(history.size(), window()));
    const size_t ahead = s.end - s.begin;
    if (!reserveText(history.size() + ahead)) return false;
    uint8_t* const text = text_.data();
    if (ahead != 0) std::memmove(text + history.size(), text + s.begin, ahead);
    if (!history.empty()) std::memcpy(text, history.data(), history.size());
    s.oldest = 0;
    s.begin = s.matched = history.size();
    s.end = s.begin + ahead;
    return true;
}

/// Goes on by another method; what one that seeks matches has seen, another one may refer to.
bool DeflateEncoder::changeMethod(Method to) {
    State& s = state_;
    const Method from = std::exchange(s.method, to);
    const bool matching = std::exchange(s.matching, false);
    if (from == Method::Parse && matching && keepsText(to)) return placeHistory(parser_.history());
    if (to != Method::Parse) return true;
    if (!prepareParser(0) || !parser_.prepareParse(kBestEffort, 0)) return false;
    parser_.setHistory({text_.data() + s.oldest, s.begin - s.oldest});
    return true;
}

size_t DeflateEncoder::copyHistory(uint8_t* to) const {
    const State& s = state_;
    const bool parsed = s.method == Method::Parse && s.matching;
    const size_t held = std::min(s.end - (parsed ? s.matched : s.oldest), window());
    const Bytes before =
        parsed ? parser_.history().last(std::min(parser_.history().size(), window() - held))
               : Bytes();
    if (to == nullptr) return before.size() + held;
    if (!before.empty()) std::memcpy(to, before.data(), before.size());
    if (held != 0) std::memcpy(to + before.size(), text_.data() + s.end - held, held);
    return before.size() + held;
}

bool DeflateEncoder::prime(uint32_t value, uint32_t count) {
    if (state_.rest != Rest::Nothing || state_.staged.size() + 3 > kStagedBytes) return false;
    putBits(value & ((1U << count) - 1), count);
    state_.done = Directive::Go;
    return true;
}

Status DeflateEncoder::copyFrom(const DeflateEncoder& other) {
    const State& from = other.state_;
    const bool parsed = from.matching && from.method == Method::Parse;
    const bool matched = from.matching && usesMatcher(from.method);
    const size_t pairs = from.pairs == 0 ? 0 : kSpare + from.pairs;
    if (!text_.reserve(other.text_.room()) || !text_.copyFrom(other.text_, from.end) ||
        (matched && !matcher_.copyFrom(other.matcher_)) ||
        (pairs != 0 &&
         (!lits_.reserve(other.lits_.room()) || !dists_.reserve(other.dists_.room()))) ||
        !lits_.copyFrom(other.lits_, pairs) || !dists_.copyFrom(other.dists_, pairs) ||
        (parsed && !parser_.copyFrom(other.parser_)) || !coded_.reserve(other.coded_.room()) ||
        !coded_.copyFrom(other.coded_, from.codedEnd)) {
        reset();
        return Status::NoMemory;
    }
    state_ = from;
    return Status::Going;
}

Status DeflateEncoder::run(Input& in, Output& out, Directive directive) {
    const size_t inBefore = in.left;
    const size_t outBefore = out.left;
    const Status status = work(in, out, directive);
    state_.totalIn += inBefore - in.left;
    state_.totalOut += outBefore - out.left;
    return status;
}

Status DeflateEncoder::work(Input& in, Output& out, Directive directive) {
    State& s = state_;
    for (;;) {
        if (!drain(out)) return Status::Going;
        if (s.ended) return Status::Ended;
        if (in.left != 0) s.done = Directive::Go;
        const bool direct = !keepsText(method()) && s.matched == s.end &&
                            (directive != Directive::Go ? in.left != 0 : in.left >= kDirect);
        if (!direct) {
            if (!gather(in)) return Status::NoMemory;
            if (directive == Directive::Go && s.end < mostText()) return Status::Going;
        }
        // To be coded now, as opposed to what more input may make a part of longer matches.
        const bool all = directive != Directive::Go && (direct || in.left == 0);
        const Bytes ahead =
            direct ? Bytes(in.next, in.left) : Bytes(text_.data() + s.matched, matchable(all));
        if (!ahead.empty()) {
            const Status status = codeStretch(ahead, direct, all, in, out, directive);
            if (status != Status::Going) return status;
        } else if (!all && in.left != 0 && s.pairs < kBlockPairs / 2 && usesMatcher(s.method)) {
            dropBytes();
        } else if (underWay() != 0 && (all || in.left != 0)) {
            s.last = directive == Directive::Finish && all;
            beginBlocks(underWay());
        } else if (all && directive > s.done) {
            endFlush(directive);
        } else {
            return Status::Going;
        }
    }
}

DeflateEncoder::Method DeflateEncoder::method() const {
    const DeflateOptions& options = state_.options;
    if (options.level == kDeflateStored) return Method::Stored;
    if (options.strategy == DeflateStrategy::RunLength) return Method::RunLength;
    if (options.level == kDeflateFastest && options.strategy == DeflateStrategy::Usual)
        return Method::Fastest;
    if (options.strategy == DeflateStrategy::HuffmanOnly) return Method::Literals;
    static_assert(static_cast<int>(Method::Quick) == static_cast<int>(Way::Quick) &&
                  static_cast<int>(Method::Lazy) == static_cast<int>(Way::Lazy));
    return options.level == kDeflateBest ? Method::Parse
                                         : static_cast<Method>(kLevels[usualLevel() - 1].way);
}

// --- input --------------------------------------------------------------------------------------

/// How much text there is to be before it is looked at.
size_t DeflateEncoder::mostText() const {
    return keepsText(method()) ? kTextBytes : kBlockBytes;
}

/// How much of the text is to be matched now.
size_t DeflateEncoder::matchable(bool all) const {
    const State& s = state_;
    const size_t ahead = s.end - s.matched;
    if (all || !keepsText(method())) return ahead;
    return ahead - std::min<size_t>(ahead, DeflateMatcher::kLookahead);
}

/// Lets go of the bytes of the block under way, once their pairs are refined. So a block of few
/// pairs may go on where the text is full: it is too small to be stored.
void DeflateEncoder::dropBytes() {
    State& s = state_;
    const size_t size = s.matched - s.begin;
    const uint32_t from = s.refined;
    DeflateTables counts{};
    countPairs(pairs(), from, s.pairs, counts);
    if (refines(counts, size, size)) {
        // What comes of them begins before them, behind those that went before; and may be more.
        const size_t room = std::min(lits_.room(), dists_.room()) - kSpare - s.pairs;
        const size_t spare = std::min<size_t>(kSpare, room);
        uint8_t* const lits = lits_.data() + kSpare;
        uint16_t* const dists = dists_.data() + kSpare;
        std::copy_n(lits, from, lits - spare);
        std::copy_n(dists, from, dists - spare);
        s.pairs = from + refinePairs(pairs(), from, s.pairs, {text_.data() + s.begin, size}, 0,
                                     1U << s.options.windowBits, counts, lits - spare + from,
                                     dists - spare + from);
        std::copy_backward(lits - spare, lits - spare + s.pairs, lits + s.pairs);
        std::copy_backward(dists - spare, dists - spare + s.pairs, dists + s.pairs);
    }
    s.refined = s.pairs;
    s.dropped += size;
    s.begin = s.matched;
}

/// Drops what is not needed any more from the front of the text.
void DeflateEncoder::compact() {
    State& s = state_;
    const size_t reach = keepsText(method())
                             ? std::max(s.oldest, s.matched - std::min(s.matched, window()))
                             : s.begin;
    const size_t gain = std::min(s.begin, reach);
    if (gain == 0 || gain < std::min(kLeastGain, s.end)) return;
    std::memmove(text_.data(), text_.data() + gain, s.end - gain);
    s.oldest -= std::min(s.oldest, gain);
    s.begin -= gain;
    s.matched -= gain;
    s.end -= gain;
    matcher_.slide(static_cast<uint32_t>(gain));
}

/// Takes as much of the input as the text has room for.
bool DeflateEncoder::gather(Input& in) {
    State& s = state_;
    const size_t most = mostText();
    if (s.end + in.left > most && matchable(false) == 0) compact();
    const size_t count = std::min(in.left, most - std::min(most, s.end));
    if (count == 0) return true;
    if (!append({in.next, count})) return false;
    in.next += count;
    in.left -= count;
    return true;
}

bool DeflateEncoder::append(Bytes bytes) {
    State& s = state_;
    if (!reserveText(s.end + bytes.size())) return false;
    std::memcpy(text_.data() + s.end, bytes.data(), bytes.size());
    s.end += bytes.size();
    std::memset(text_.data() + s.end, 0, DeflateMatcher::kBehind);
    return true;
}

/// Beside tables, the text does not grow in steps of which the last two are there at once.
bool DeflateEncoder::reserveText(size_t count) {
    constexpr size_t behind = DeflateMatcher::kBehind;
    if (count + behind <= text_.room()) return true;
    const size_t most = std::max(mostText(), count);
    const size_t wanted = state_.matching && count > kGrowing ? most : std::bit_ceil(count);
    return text_.reserve(std::clamp(wanted, kLeastText, most) + behind, state_.end);
}

/// Codes what lies ahead, or the first part of it, and begins to write the block if it is full or
/// to end here.
Status DeflateEncoder::codeStretch(Bytes ahead, bool direct, bool all, Input& in, Output& out,
                                   Directive directive) {
    State& s = state_;
    const size_t held = underWay();
    const size_t most =
        keepsText(method()) ? ahead.size() : kBlockBytes - std::min(held, kBlockBytes);
    const Bytes piece = ahead.first(std::min(ahead.size(), most));
    const bool allThere = all && directive == Directive::Finish && piece.size() == ahead.size();
    const size_t known = allThere ? piece.size() : 0;
    const Method now = methodFor(known);
    if (now != s.method) {
        // What is matched belongs to a block of its own.
        if (held != 0) {
            s.last = false;
            beginBlocks(held);
            return Status::Going;
        }
        if (!changeMethod(now)) return Status::NoMemory;
        // The text may stand elsewhere.
        return Status::Going;
    }

    // A block that begins and ends in the caller's memory needs no copy, unless it may have to be
    // stored and there is no room for it. This comes first: behind it nothing fails.
    const bool inPlace =
        direct && held == 0 && directive != Directive::Go && out.left >= bound(piece.size());
    if (direct && !inPlace) {
        compact();
        if (!reserveText(s.end + piece.size())) return Status::NoMemory;
    }
    if (usesMatcher(now) && !prepareMatcher(known)) return Status::NoMemory;
    if (now == Method::Parse &&
        (!prepareParser(known) || !parser_.prepareParse(kBestEffort, piece.size())))
        return Status::NoMemory;
    const bool paired = now != Method::Fastest && now != Method::Stored;
    if (paired && !reservePairs(all ? s.pairs + piece.size() : mostPairs()))
        return Status::NoMemory;
    if (now == Method::Fastest && !reserveFastest(piece.size(), out)) return Status::NoMemory;

    const size_t consumed = usesMatcher(now)           ? match(piece.size())
                            : now == Method::Short     ? matchShort(piece)
                            : now == Method::Parse     ? parse(piece)
                            : now == Method::RunLength ? matchRuns(piece)
                            : now == Method::Literals  ? matchLiterals(piece)
                                                       : piece.size();
    const size_t size = held + consumed;
    const bool atEnd = all && consumed == ahead.size();
    const bool full = !paired || consumed < piece.size() || s.pairs == mostPairs() ||
                      (!keepsText(now) && size == kBlockBytes);
    if (direct) {
        if (inPlace) {
            s.oldest = s.begin = s.matched = s.end = 0;
        } else {
            append(piece.first(consumed));
        }
        in.next += consumed;
        in.left -= consumed;
    }
    if (!inPlace) s.matched += consumed;
    if (!full && !atEnd) return Status::Going;
    s.last = atEnd && directive == Directive::Finish;
    s.inPlace = inPlace ? piece.data() : nullptr;
    const uint8_t* const bytes = inPlace ? piece.data() : text_.data() + s.begin;
    if (now == Method::Fastest && codeFastest(Bytes(bytes, size), out)) return Status::Going;
    beginBlocks(size);
    return Status::Going;
}

// --- pairs --------------------------------------------------------------------------------------

/// Tables that know the text so far. `whole` is the size of a stream that is all there, 0 of any
/// other.
bool DeflateEncoder::prepareMatcher(size_t whole) {
    State& s = state_;
    if (s.matching) return true;
    const size_t history = std::min(s.matched - s.oldest, window());
    const size_t from = s.matched - history;
    const auto way = static_cast<DeflateMatcher::Way>(s.method);
    if (!matcher_.prepare(way, s.options.windowBits,
                          static_cast<uint32_t>(whole == 0 ? 0 : history + whole),
                          static_cast<uint32_t>(from)))
        return false;
    matcher_.enterHistory(text_.data(), static_cast<uint32_t>(from),
                          static_cast<uint32_t>(s.matched));
    s.matching = true;
    return true;
}

/// The nearest of the levels that have parameters.
int DeflateEncoder::usualLevel() const {
    return std::clamp(state_.options.level, 1, kMaxLevel);
}

bool DeflateEncoder::prepareParser(size_t whole) {
    State& s = state_;
    s.matching = s.matching || parser_.prepare(s.options.windowBits, whole);
    return s.matching;
}

/// That of a stream of `whole` bytes that are all there, or of any other where that is 0.
DeflateEncoder::Method DeflateEncoder::methodFor(size_t whole) const {
    const State& s = state_;
    const Method usual = method();
    if (whole == 0 || s.matched != s.oldest || !usesMatcher(usual)) return usual;
    const size_t longest = kLevels[usualLevel() - 1].longestShort;
    if (whole <= std::min(longest, window()) && s.options.strategy == DeflateStrategy::Usual)
        return Method::Short;
    return usual == Method::Quick && whole <= kShortStream ? Method::Greedy : usual;
}

/// Whether the pairs of so many bytes may be made cheaper before they are coded.
bool DeflateEncoder::mayRefine(size_t size) const {
    return usesMatcher(state_.method) && state_.options.strategy == DeflateStrategy::Usual &&
           (size <= kShortStream || kLevels[usualLevel() - 1].refined != Refined::Small);
}

/// Whether those of a block of such counts are, of blocks of `whole` bytes.
bool DeflateEncoder::refines(const DeflateTables& counts, size_t size, size_t whole) const {
    if (!mayRefine(whole)) return false;
    const Refined refined = kLevels[usualLevel() - 1].refined;
    const bool evenText = refined == Refined::All || (refined == Refined::Small && whole <= kSmall);
    if (!evenText && isAscii(counts)) return false;
    // Much that hardly compresses has no near matches that pay.
    return size <= kSmall || estimatedBits(BlockSymbols(counts), static_cast<uint32_t>(size)) <
                                 storedBits(size) / 16 * 15;
}

uint32_t DeflateEncoder::mostPairs() const {
    return method() == Method::Parse ? kParsePairs : kBlockPairs;
}

/// Room for `count` pairs in all, as many as a block takes, and for the code of many of them.
bool DeflateEncoder::reservePairs(size_t count) {
    const size_t wanted = std::min<size_t>(mostPairs(), count);
    const size_t held = state_.pairs == 0 ? 0 : kSpare + state_.pairs;
    if (held == 0 && kSpare + wanted > lits_.room()) {
        lits_.release();
        dists_.release();
    }
    return lits_.reserve(kSpare + wanted, held) && dists_.reserve(kSpare + wanted, held) &&
           (wanted <= kFewPairs || coded_.reserve(pairRoom(std::min(wanted, kCodedPairs))));
}

/// Finds pairs of the next `size` bytes, until these or the room are used up; returns how far.
size_t DeflateEncoder::match(size_t size) {
    State& s = state_;
    const int level = s.method == Method::Greedy ? std::max(usualLevel(), 2) : usualLevel();
    DeflatePairRoom room{lits_.data() + kSpare + s.pairs, dists_.data() + kSpare + s.pairs,
                         std::min<uint32_t>(kBlockPairs - s.pairs, static_cast<uint32_t>(size))};
    const uint32_t behind = matcher_.match(
        text_.data(), static_cast<uint32_t>(s.matched), static_cast<uint32_t>(s.matched + size),
        static_cast<uint32_t>(s.end), kLevels[level - 1].search, room);
    s.pairs = static_cast<uint32_t>(room.lits - (lits_.data() + kSpare));
    return behind - s.matched;
}

/// Likewise, with those of a short stream.
size_t DeflateEncoder::matchShort(Bytes piece) {
    State& s = state_;
    s.pairs = parseShort(piece, kLevels[usualLevel() - 1].shortDepth, lits_.data() + kSpare,
                         dists_.data() + kSpare, s.counts);
    return piece.size();
}

/// Likewise, with none but literals.
size_t DeflateEncoder::matchLiterals(Bytes piece) {
    State& s = state_;
    const size_t count = std::min<size_t>(piece.size(), kBlockPairs - s.pairs);
    std::memcpy(lits_.data() + kSpare + s.pairs, piece.data(), count);
    std::fill_n(dists_.data() + kSpare + s.pairs, count, uint16_t{0});
    s.pairs += static_cast<uint32_t>(count);
    return count;
}

/// Likewise, with the best pairs.
size_t DeflateEncoder::parse(Bytes piece) {
    State& s = state_;
    size_t at = 0;
    while (at != piece.size()) {
        const uint32_t room = mostPairs() - std::min(mostPairs(), s.pairs);
        if (room < std::min<size_t>(kLeastParse, piece.size() - at)) break;
        at += parser_.parse(piece.subspan(at), room, lits_.data() + kSpare, dists_.data() + kSpare,
                            s.pairs);
    }
    return at;
}

/// Likewise, with no pairs but literals and repetitions of the byte before.
size_t DeflateEncoder::matchRuns(Bytes piece) {
    State& s = state_;
    size_t at = 0;
    for (; at < piece.size() && s.pairs < kBlockPairs; ++s.pairs) {
        size_t run = 0;
        if (at != 0) {
            const size_t most = std::min<size_t>(piece.size() - at, maxMatch);
            while (run < most && piece[at + run] == piece[at - 1]) ++run;
        }
        if (run >= minMatch) {
            lits_[kSpare + s.pairs] = static_cast<uint8_t>(run - minMatch);
            dists_[kSpare + s.pairs] = 1;
            at += run;
        } else {
            lits_[kSpare + s.pairs] = piece[at];
            dists_[kSpare + s.pairs] = 0;
            ++at;
        }
    }
    return at;
}

/// What the code of `size` bytes may take at the fastest level, and the table that finds it.
uint32_t DeflateEncoder::fastestRoom(size_t size) {
    return vekDeflateFastestBound(static_cast<int32_t>(size)) + VEK_DEFLATE_HEADER_BOUND + 8;
}
uint32_t DeflateEncoder::fastestHashSize(size_t size) {
    return std::clamp(std::bit_ceil(static_cast<uint32_t>(size)), kLeastTable, kFastestHashSize);
}
bool DeflateEncoder::reserveFastest(size_t size, const Output& out) {
    return heads_.reserve(fastestHashSize(size)) &&
           (out.left >= fastestRoom(size) || coded_.reserve(fastestRoom(size)));
}

/// Codes a block in one pass; false when that does not make it smaller.
bool DeflateEncoder::codeFastest(Bytes piece, Output& out) {
    State& s = state_;
    DeflateTables& codes = s.codes;
    uint8_t header[VEK_DEFLATE_HEADER_BOUND];
    uint32_t headerBytes = 0;
    uint32_t headerBits = 0;
    veksDeflateLZ77FastestPrecompHeader_8u(codes.lit, codes.dist, header, &headerBytes,
                                           &headerBits);
    if (!s.last) header[0] &= 0xFE;
    const auto length = static_cast<int32_t>(piece.size());
    uint32_t room = vekDeflateFastestBound(length);
    const bool straight = out.left >= fastestRoom(piece.size());
    uint8_t* const to = straight ? out.next : coded_.data();

    uint32_t index = 0;
    uint32_t bits = s.bits;
    uint32_t bitCount = s.bitCount;
    const auto put = [&](uint32_t value, uint32_t count) {
        bits |= value << bitCount;
        bitCount += count;
        for (; bitCount >= 8; bitCount -= 8, bits >>= 8) to[index++] = static_cast<uint8_t>(bits);
    };
    for (uint32_t at = 0; at < headerBits; at += 8)
        put(header[at / 8], std::min<uint32_t>(8, headerBits - at));
    veksDeflateLZ77Fastest_8u(piece.data(), length, heads_.data(), fastestHashSize(piece.size()),
                              &bits, &bitCount, codes.lit, codes.dist, to, &room, &index);
    put(codes.lit[endOfBlock].code, codes.lit[endOfBlock].length);
    if (8 * uint64_t{index} + bitCount - s.bitCount > storedBits(piece.size())) return false;
    s.bits = bits;
    s.bitCount = bitCount;
    if (straight) {
        out.next += index;
        out.left -= index;
        endBlock();
    } else {
        s.rest = Rest::Coded;
        s.codedAt = 0;
        s.codedEnd = index;
    }
    return true;
}

// --- blocks -------------------------------------------------------------------------------------

/// Begins to write the blocks under way, of `size` bytes.
void DeflateEncoder::beginBlocks(size_t size) {
    State& s = state_;
    if (s.dropped != 0) dropBytes();
    s.block = 0;
    s.coded = 0;
    s.wholeSize = size;
    if (s.pairs == 0) {
        s.blocks.join(0);
        return beginStored(size);
    }
    if (s.method == Method::Short) {
        s.blocks.join(s.pairs);
    } else {
        s.blocks.split(pairs(), s.pairs, s.counts,
                       s.method == Method::Parse ? DeflateBlocks::kFineUnit : DeflateBlocks::kUnit);
        if (s.blocks.count() != 1 && !splitPays(size)) s.blocks.join(s.pairs);
    }
    if (!s.kindKnown) {
        s.kindKnown = true;
        s.text = literalsAreText(s.counts);
    }
    beginBlock();
}

namespace {

/// Bits of a block in the fixed code. The counts must hold its end.
uint64_t fixedBits(const BlockSymbols& symbols) {
    return 3 + codedBits(symbols, kFixedCodes);
}

}  // namespace

/// Whether the blocks are no larger than one would be, with the worst of padding, so that a
/// stream's bound holds. Where much is saved anyway that does not matter.
bool DeflateEncoder::splitPays(size_t size) const {
    const State& s = state_;
    if (s.blocks.bits() < storedBits(size) / 16 * 15) return true;
    constexpr uint32_t padding = 7;
    uint64_t bits = 0;
    uint32_t begin = 0;
    const auto leastBits = [&](DeflateTables counts, uint64_t stored) {
        countSymbol(counts.lit[endOfBlock]);
        const BlockSymbols symbols(counts);
        return std::min({stored, fixedBits(symbols), DynamicCode(symbols).bits()});
    };
    for (uint32_t block = 0; block < s.blocks.count(); begin = s.blocks.end(block++)) {
        DeflateTables counts{};
        const uint32_t bytes = countPairs(pairs(), begin, s.blocks.end(block), counts);
        bits += leastBits(counts, storedBits(bytes) + padding);
    }
    return bits <= leastBits(s.counts, storedBits(size));
}

/// Begins to write the next block in the cheapest of the three ways.
void DeflateEncoder::beginBlock() {
    State& s = state_;
    const uint32_t begin = s.block == 0 ? 0 : s.blocks.end(s.block - 1);
    const uint32_t end = s.blocks.end(s.block);
    DeflateTables counts{};
    size_t size = s.wholeSize;
    if (s.blocks.count() == 1) {
        counts = s.counts;
    } else {
        size = countPairs(pairs(), begin, end, counts);
    }
    s.at = kSpare + begin;
    s.stop = kSpare + end;
    const bool there = s.dropped == 0;
    if (there && refines(counts, size, s.wholeSize)) {
        const Bytes bytes(blockBytes(), s.coded + size);
        s.stop = refinePairs(pairs(), begin, end, bytes, static_cast<uint32_t>(s.coded),
                             1U << s.options.windowBits, counts, lits_.data(), dists_.data());
        s.at = 0;
    }
    countSymbol(counts.lit[endOfBlock]);
    const uint64_t stored = storedBits(size);
    const BlockSymbols symbols(counts);
    const uint64_t fixed = fixedBits(symbols);
    const DynamicCode own(symbols);
    const uint64_t dynamic =
        s.options.strategy == DeflateStrategy::FixedCodes ? UINT64_MAX : own.bits();
    if (there && stored < dynamic && stored < fixed) return beginStored(size);
    s.coded += size;
    if (fixed <= dynamic) {
        putBits((inLastBlock() ? 1U : 0U) | 1U << 1, 3);
        s.codes = kFixedCodes;
    } else {
        own.putHeader(inLastBlock(), [&](uint32_t bits, uint32_t count) { putBits(bits, count); });
        s.codes = own.codes(symbols);
    }
    s.rest = Rest::Pairs;
}

/// From the caller's memory blocks are written only where there is room for all of them.
void DeflateEncoder::beginStored(size_t size) {
    State& s = state_;
    s.rest = Rest::Stored;
    s.storedLeft = 0;
    s.at = s.coded;
    s.coded += size;
    s.stop = s.coded;
}

/// Bits that storing the block under way takes, padding included.
uint64_t DeflateEncoder::storedBits(size_t size) const {
    const size_t blocks = std::max<size_t>(1, (size + kMaxStored - 1) / kMaxStored);
    const uint32_t padding = (8 - (state_.bitCount + 3) % 8) % 8;
    return 8 * uint64_t{size} + blocks * 40 - 5 + padding;
}

/// The block is written. Behind the last one their bytes are not needed any more.
void DeflateEncoder::endBlock() {
    State& s = state_;
    if (s.block + 1 < s.blocks.count()) {
        ++s.block;
        s.rest = Rest::Block;
        return;
    }
    s.rest = Rest::Nothing;
    s.inPlace = nullptr;
    s.pairs = s.refined = 0;
    s.dropped = 0;
    s.counts = DeflateTables{};
    s.begin = s.matched;
}

/// All input is coded in blocks that are written; what the directive wants behind them.
void DeflateEncoder::endFlush(Directive directive) {
    State& s = state_;
    s.done = directive;
    switch (directive) {
        case Directive::Go:
        case Directive::Block:
            return;
        case Directive::PartialFlush:
            putEmptyBlock(false);
            return;
        case Directive::FullFlush:
            s.matching = false;
            s.oldest = s.begin;
            [[fallthrough]];
        case Directive::SyncFlush:
            putBits(0, 3);
            alignToByte();
            putLittleEndian(s.staged.add(4), 0xFFFF0000U, 4);
            return;
        case Directive::Finish:
            if (!s.last) putEmptyBlock(true);
            alignToByte();
            s.ended = true;
            return;
    }
}

/// One of the fixed code.
void DeflateEncoder::putEmptyBlock(bool last) {
    putBits((last ? 1U : 0U) | 1U << 1, 3);
    putBits(kFixedCodes.lit[endOfBlock].code, kFixedCodes.lit[endOfBlock].length);
}

// --- output -------------------------------------------------------------------------------------

/// Writes what is coded; true when nothing is left.
bool DeflateEncoder::drain(Output& out) {
    State& s = state_;
    while (s.staged.drain(out) && drainCoded(out)) {
        switch (s.rest) {
            case Rest::Nothing:
                return true;
            case Rest::Block:
                beginBlock();
                break;
            case Rest::Pairs:
                writePairs(out);
                break;
            case Rest::Stored:
                writeStored(out);
                break;
            case Rest::Coded:
                endBlock();
                break;
        }
        if (out.left == 0 && s.rest == Rest::Stored && s.storedLeft != 0) return false;
    }
    return false;
}

/// Likewise, of what stands in coded_.
bool DeflateEncoder::drainCoded(Output& out) {
    State& s = state_;
    Input coded{coded_.data() + s.codedAt, s.codedEnd - s.codedAt};
    s.codedAt += copyAcross(coded, out);
    return s.codedAt == s.codedEnd;
}

/// Codes as many pairs as surely fit, or many at once to be given out in pieces. Behind the last
/// ones the block ends.
void DeflateEncoder::writePairs(Output& out) {
    State& s = state_;
    const size_t left = s.stop - s.at;
    if (left == 0) {
        putBits(s.codes.lit[endOfBlock].code, s.codes.lit[endOfBlock].length);
        return endBlock();
    }
    const size_t fitting = pairsIn(out.left);
    const size_t most = std::max(kFewPairs, pairsIn(coded_.room()));
    const bool straight = fitting >= std::min(left, most);
    const size_t count = std::min(left, straight ? fitting : most);
    static_assert(pairRoom(kFewPairs) <= kStagedBytes);
    uint8_t few[pairRoom(kFewPairs)];
    uint8_t* const to = straight ? out.next : count <= kFewPairs ? few : coded_.data();
    uint32_t index = 0;
    veksDeflateHuff_8u(lits_.data() + s.at, dists_.data() + s.at, static_cast<uint32_t>(count),
                       &s.bits, &s.bitCount, s.codes.lit, s.codes.dist, to, &index);
    s.at += count;
    if (straight) {
        out.next += index;
        out.left -= index;
    } else if (to == few) {
        s.staged.add(few, index);
    } else {
        s.codedAt = 0;
        s.codedEnd = index;
    }
}

/// Copies stored bytes, or makes the next block's header of them.
void DeflateEncoder::writeStored(Output& out) {
    State& s = state_;
    if (s.storedLeft != 0) {
        Input stored{blockBytes() + s.at, s.storedLeft};
        const size_t count = copyAcross(stored, out);
        s.at += count;
        s.storedLeft -= count;
        if (s.at == s.stop) endBlock();
        return;
    }
    s.storedLeft = std::min(s.stop - s.at, kMaxStored);
    putBits(inLastBlock() && s.storedLeft == s.stop - s.at ? 1 : 0, 3);
    alignToByte();
    const auto size = static_cast<uint32_t>(s.storedLeft);
    putLittleEndian(s.staged.add(4), size | (size ^ 0xFFFF) << 16, 4);
}

/// Puts `count` bits, at most 24, first bit lowest.
void DeflateEncoder::putBits(uint32_t bits, uint32_t count) {
    State& s = state_;
    s.bits |= bits << s.bitCount;
    s.bitCount += count;
    for (; s.bitCount >= 8; s.bitCount -= 8, s.bits >>= 8)
        *s.staged.add(1) = static_cast<uint8_t>(s.bits);
}

void DeflateEncoder::alignToByte() {
    if (state_.bitCount != 0) putBits(0, 8 - state_.bitCount);
}

}  // namespace vekdc::codec
