// The batch coder of pairs; see its unit.
#pragma once

#include "bits/lsb_writer.h"
#include "frame/variant.h"
#include "include/vekdc.h"

#define ownsDeflateHuff_8u VEK_INTERNAL(ownsDeflateHuff_8u)

/// Codes `count` pairs into `sink` and returns how many of them: all but the last few. Every
/// literal/length symbol must have a code.
uint32_t ownsDeflateHuff_8u(const uint8_t* lit, const uint16_t* dist, uint32_t count,
                            const VekHuffEntry* litTable, const VekHuffEntry* distTable,
                            vek::LsbWriter& sink);
