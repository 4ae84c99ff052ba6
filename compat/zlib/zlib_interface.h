// The installed zlib.h, with all that it declares visible outside this library, both widths of file
// offsets included.
#pragma once

#include <features.h>

#pragma GCC visibility push(default)
#include <zlib.h>
#pragma GCC visibility pop

// Macros that stand for functions, which are defined here.
#undef gzgetc
#undef deflateInit
#undef deflateInit2
#undef inflateInit
#undef inflateInit2
#undef inflateBackInit
