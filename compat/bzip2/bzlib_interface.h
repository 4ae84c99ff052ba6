// The installed bzlib.h, with all that it declares visible outside this library.
#pragma once

#pragma GCC visibility push(default)
#include <bzlib.h>
#pragma GCC visibility pop
