// The ranges of lengths and distances that deflate's codes cover (RFC 1951, 3.2.5), by counting
// them up.
#pragma once

namespace vektest {

/// The code of a value, the first value of that code, and the code's extra bits.
struct Range {
    unsigned code, base, extra;
};

/// The first range that `found` accepts: `plain` codes of one value each from `first` on, then
/// `group` at a time of 2, 4, 8 ... values.
template <class Found>
Range findRange(unsigned first, unsigned plain, unsigned group, Found found) {
    for (Range range{0, first, 0};; range.base += 1U << range.extra, ++range.code) {
        range.extra = range.code < plain ? 0 : (range.code - plain) / group + 1;
        if (found(range)) return range;
    }
}

template <class Found>
Range findLength(Found found) {
    constexpr Range longest{28, 258, 0};
    return found(longest) ? longest : findRange(3, 8, 4, found);
}

template <class Found>
Range findDistance(Found found) {
    return findRange(1, 4, 2, found);
}

/// Finds the range that holds a value, and the range of a code.
inline auto holding(unsigned value) {
    return [=](Range range) { return value - range.base < 1U << range.extra; };
}
inline auto ofCode(unsigned code) {
    return [=](Range range) { return range.code == code; };
}

}  // namespace vektest
