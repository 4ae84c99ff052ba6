// The decoder's steps, for either layout of the tables: the careful loop, which may stop and go on
// at any bit of the input and any byte of the output.
//
// A step is taken only as a whole: bits are consumed when all that the step needs are there. A
// lookup may run on bits that are not there yet, as 0; the entry it finds counts if its code is no
// longer than the bits held. An entry that no code reaches is found only by bits that no further
// bits make valid.
//
// `Tables` gives
//   Entry lit(uint32_t bits), dist(uint32_t bits)   lookups, through sub-tables if there are any
//   static bool isEnd(uint32_t kind)                the end of block's kind
#pragma once

#include <cstdint>

#include "inflate/fast_loop.h"
#include "inflate/match.h"
#include "inflate/table_layout.h"

namespace vek::inline VEK_LEVEL::inflate {

static_assert(maxCodeLength <= mostFilled && maxExtraBits <= mostFilled);

/// Decodes until the call must end; `kernel` runs the fast kernel over `run`.
template <class Tables, class Kernel>
Stop runSteps(Run& run, const Tables& tables, Kernel kernel) {
    // With an incomplete literal/length code the kernel would take what is no code for a literal.
    const bool fast = tables.lit(1).codeLen() != 0;
    for (;;) {
        switch (run.step) {
            case stepSymbol: {
                if (fast && fastPossible(run)) {
                    kernel();
                    if (run.step != stepSymbol) break;
                }
                fill(run, maxCodeLength);
                const Entry entry = tables.lit(run.bits);
                if (entry.codeLen() == 0) return Stop::corrupt;
                if (entry.codeLen() > run.nBits) return Stop::needInput;
                take(run, entry.codeLen());
                run.value = entry.value;
                if (entry.isLiteral()) {
                    run.step = stepLiteral;
                } else if (Tables::isEnd(entry.kind)) {
                    return Stop::endOfBlock;
                } else if (entry.isLength()) {
                    run.value += minMatch;
                    run.extraBits = entry.lengthExtra();
                    run.step = stepLengthExtra;
                } else {
                    return Stop::corrupt;
                }
                break;
            }
            case stepLengthExtra:
                fill(run, run.extraBits);
                if (run.extraBits > run.nBits) return Stop::inside;
                run.value += take(run, run.extraBits);
                run.step = stepDistance;
                break;
            case stepDistance: {
                fill(run, maxCodeLength);
                const Entry entry = tables.dist(run.bits);
                if (entry.codeLen() == 0) return Stop::corrupt;
                if (entry.codeLen() > run.nBits) return Stop::inside;
                take(run, entry.codeLen());
                if (!entry.isDistance()) return Stop::corrupt;
                run.distance = entry.value;
                run.extraBits = entry.distanceExtra();
                run.step = stepDistanceExtra;
                break;
            }
            case stepDistanceExtra:
                fill(run, run.extraBits);
                if (run.extraBits > run.nBits) return Stop::inside;
                run.distance += take(run, run.extraBits);
                run.step = stepCopy;
                break;
            case stepCopy: {
                if (!reachable(run, run.dst, run.distance)) return Stop::corrupt;
                const uint32_t copied = copyMatch(run, run.dst, run.distance, run.value);
                run.dst += copied;
                run.value -= copied;
                if (run.value != 0) return Stop::inside;
                run.step = stepSymbol;
                break;
            }
            case stepLiteral:
                if (run.dst == run.dstEnd) return Stop::inside;
                *run.dst++ = static_cast<uint8_t>(run.value);
                run.step = stepSymbol;
                break;
            default:
                return Stop::corrupt;
        }
    }
}

}  // namespace vek::inline VEK_LEVEL::inflate
