// What the tests of the drop-in libraries share: the library and the distribution's side by side,
// and data for both.
#pragma once

#include "support/library.h"
#include "support/supply.h"
#include "support/test.h"

namespace vektest {

inline char* chars(Bytes& bytes) {
    return reinterpret_cast<char*>(bytes.data());
}

}  // namespace vektest
