// The installed headers of liblz4, with what its shared library exports beside what they promise.
#pragma once

#define LZ4_DISABLE_DEPRECATE_WARNINGS
#define LZ4F_STATIC_LINKING_ONLY
#define LZ4F_PUBLISH_STATIC_FUNCTIONS
#include <lz4.h>
#include <lz4frame.h>
#include <lz4hc.h>
