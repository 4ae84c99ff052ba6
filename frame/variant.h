// Names of internal functions.
//
// Several variants of the library may be loaded into one process, and each may be linked statically
// into a test beside another's exports. Every function with external linkage therefore carries the
// variant's code: a family's private header lists its internal functions as
//
//     #define ownsCRC32C_8u VEK_INTERNAL(ownsCRC32C_8u)
//
// Exports need no such line: the build forces a generated header with all of them into the
// library's own units.
#pragma once

#if defined(__x86_64__)
#define VEK_VARIANT x9
#define VEK_VARIANT_CODE "x9"
#else
#define VEK_VARIANT g9
#define VEK_VARIANT_CODE "g9"
#endif

#define VEK_JOIN_EXPANDED(variant, name) variant##_##name
#define VEK_JOIN(variant, name) VEK_JOIN_EXPANDED(variant, name)
#define VEK_INTERNAL(name) VEK_JOIN(VEK_VARIANT, name)
