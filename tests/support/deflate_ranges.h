// The ranges of lengths and distances that deflate's codes cover (RFC 1951, 3.2.5), by counting
// them up.
#pragma once

namespace vektest {

/// The code of a value, the first value of that code, and the code's extra bits.
struct Range {
    unsigned code;
    unsigned base;
    unsigned extra;
};

/// `plain` codes of one value each from `first` on, then `group` at a time of 2, 4, 8 ... values.
inline Range rangeOf(unsigned value, unsigned first, unsigned plain, unsigned group) {
    for (Range range{0, first, 0};; range.base += 1U << range.extra, ++range.code) {
        range.extra = range.code < plain ? 0 : (range.code - plain) / group + 1;
        if (value < range.base + (1U << range.extra)) return range;
    }
}

inline Range lengthRange(unsigned length) {
    return length == 258 ? Range{28, 258, 0} : rangeOf(length, 3, 8, 4);
}

inline Range distanceRange(unsigned distance) {
    return rangeOf(distance, 1, 4, 2);
}

}  // namespace vektest
