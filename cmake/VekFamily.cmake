# vek_family(<name> <sources>...): adds a family's units to the library.
#
# Each family is an object library. Its objects go into the shared library and, for the tests that
# hold a kernel against its portable twin, into the archive vekdc_internal.
#
# A unit for one processor feature beyond the variant's own (named for it, as in *clmul*) sets its
# extra flag with set_source_files_properties in its family's CMakeLists.txt.

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
