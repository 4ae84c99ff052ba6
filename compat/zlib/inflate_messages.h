// What is said of broken raw streams.
#pragma once

#include "codec/inflate_decoder.h"

namespace vekdc::compat {

inline const char* inflateMessage(codec::InflateFault fault) {
    using codec::InflateFault;
    switch (fault) {
        case InflateFault::BlockType:
            return "invalid block type";
        case InflateFault::StoredLength:
            return "invalid stored block lengths";
        case InflateFault::SymbolCounts:
            return "too many length or distance symbols";
        case InflateFault::LengthCode:
            return "invalid code lengths set";
        case InflateFault::LengthRepeat:
            return "invalid bit length repeat";
        case InflateFault::NoEndOfBlock:
            return "invalid code -- missing end-of-block";
        case InflateFault::LiteralCode:
            return "invalid literal/lengths set";
        case InflateFault::DistanceCode:
            return "invalid distances set";
        case InflateFault::LiteralSymbol:
            return "invalid literal/length code";
        case InflateFault::DistanceSymbol:
            return "invalid distance code";
        default:
            return "invalid distance too far back";
    }
}

}  // namespace vekdc::compat
