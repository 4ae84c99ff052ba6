# The variant that this tree builds, and the flags that every target shares.
#
# VEK_VARIANT is the variant code, a part of the library's file name and of every internal symbol.

if(CMAKE_SIZEOF_VOID_P EQUAL 4)
  set(VEK_VARIANT g9)
  set(_libdirs lib/i386-linux-gnu lib32)
else()
  set(VEK_VARIANT x9)
  set(_libdirs lib/x86_64-linux-gnu lib64)
endif()

# Where libraries of this width belong, below the prefix: Debian and its kin have a folder for each
# architecture.
if(EXISTS /etc/debian_version)
  list(GET _libdirs 0 _libdir)
else()
  list(GET _libdirs 1 _libdir)
endif()
set(VEK_INSTALL_LIBDIR ${_libdir} CACHE STRING "Library folder below the prefix")

set(CMAKE_C_STANDARD 11)
set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/lib)
set(CMAKE_ARCHIVE_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/lib)
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bin)
set(CMAKE_CXX_FLAGS_RELEASE "-O2 -DNDEBUG")
set(CMAKE_C_FLAGS_RELEASE "-O2 -DNDEBUG")

# Warnings are errors, everywhere.
add_library(vek_warnings INTERFACE)
target_compile_options(vek_warnings INTERFACE -Wall -Wextra -Wshadow -Werror)

if(VEK_SANITIZE)
  # Line numbers are all that a report needs of -g.
  add_compile_options(-fsanitize=${VEK_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer -g1)
  add_link_options(-fsanitize=${VEK_SANITIZE})
  if(VEK_FUZZ)
    add_compile_options(-fsanitize=fuzzer-no-link)
  else()
    # Checked code takes twice as long to compile as it takes to run: -O1 halves the former.
    add_compile_options(-O1)
  endif()
endif()

# What the library itself is compiled with. No C++ runtime, so no exceptions, type information or
# guarded statics; callers may arrive with a 4-byte aligned stack on 32-bit x86; floats never go
# through the x87 stack.
add_library(vek_library_flags INTERFACE)
target_compile_options(vek_library_flags INTERFACE
  -Wconversion -fPIC -fvisibility=hidden -fstack-protector-strong -fno-plt
  -mavx -msse4.2 -mpopcnt
  $<$<COMPILE_LANGUAGE:CXX>:-fno-exceptions -fno-rtti -fno-threadsafe-statics>)
if(VEK_VARIANT STREQUAL "g9")
  target_compile_options(vek_library_flags INTERFACE -mstackrealign -mfpmath=sse)
endif()
# Inline functions live in a namespace named for the instruction set that their unit is compiled for,
# so that the linker can never hand a copy built for a wider set to a caller of the plain one.
target_compile_definitions(vek_library_flags INTERFACE VEK_LEVEL=${VEK_VARIANT})
target_link_libraries(vek_library_flags INTERFACE vek_warnings)
