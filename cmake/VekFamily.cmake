# vek_family(<name> <sources>...): adds a family's units to the library.
#
# Each family is an object library. Its objects go into the shared library and, for the tests that
# hold a kernel against its portable twin, into the archive vekdc_internal.
#
# vek_level(<level> <source> [flag]...): compiles a unit for a wider instruction set, avx2 or avx512,
# which its file name ends in. What it includes inline lives in a namespace of that level's, so that
# the plain units never come by a wide copy. Callers ask frame/features.h first.

set_property(GLOBAL PROPERTY VEK_FAMILIES "")

function(vek_family name)
  add_library(vek_${name} OBJECT ${ARGN})
  target_include_directories(vek_${name} PRIVATE ${CMAKE_SOURCE_DIR} ${CMAKE_SOURCE_DIR}/include
                             ${CMAKE_SOURCE_DIR}/core)
  target_compile_options(vek_${name} PRIVATE
    $<$<COMPILE_LANGUAGE:CXX>:SHELL:-include ${CMAKE_BINARY_DIR}/frame/variant_names.h>)
  target_link_libraries(vek_${name} PRIVATE vek_library_flags)
  set_property(GLOBAL APPEND PROPERTY VEK_FAMILIES vek_${name})
endfunction()

set(VEK_FLAGS_avx2 -mavx2 -mbmi -mbmi2 -mlzcnt)
# GCC 12's own headers make undefined vectors from variables that they leave uninitialized; clang has
# no such warning to be switched off.
set(VEK_FLAGS_avx512 ${VEK_FLAGS_avx2} -mavx512f -mavx512bw -mavx512dq -mavx512vl
    -Wno-unknown-warning-option -Wno-uninitialized -Wno-maybe-uninitialized)

function(vek_level level source)
  set(options ${VEK_FLAGS_${level}} ${ARGN} -UVEK_LEVEL -DVEK_LEVEL=${VEK_VARIANT}_${level})
  set_source_files_properties(${source} PROPERTIES COMPILE_OPTIONS "${options}")
endfunction()
