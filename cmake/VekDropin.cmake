# vek_dropin(<name> <soname> <header> <sources>...): a library that programs load in place of the
# distribution's of that soname, built against that one's header; left out where there is none.
#
# It carries the codecs and stages that it needs inside and needs nothing but the C library: one file
# to map, and no look-up of a symbol in a second one, so that it starts faster than beside
# libvekdc would. Codecs and families are taken from archives, so the linker brings in only what is
# called. Nothing is exported but what the sources mark as visible, and calls within are bound at once.

# The codecs, with calls of a stage bound to the variant's own function in place of its export.
get_target_property(codec_sources vek_codec SOURCES)
list(TRANSFORM codec_sources PREPEND ${CMAKE_SOURCE_DIR}/codec/)
add_library(vek_dropin_inside STATIC EXCLUDE_FROM_ALL ${codec_sources})
set_target_properties(vek_dropin_inside PROPERTIES LINKER_LANGUAGE CXX)
target_include_directories(vek_dropin_inside PUBLIC ${CMAKE_SOURCE_DIR} ${CMAKE_SOURCE_DIR}/include
                           ${CMAKE_SOURCE_DIR}/core)
target_compile_options(vek_dropin_inside PUBLIC
  $<$<COMPILE_LANGUAGE:CXX>:SHELL:-include ${CMAKE_BINARY_DIR}/frame/variant_names.h>)
target_link_libraries(vek_dropin_inside PUBLIC vek_library_flags)
get_property(families GLOBAL PROPERTY VEK_FAMILIES)
foreach(family IN LISTS families)
  list(APPEND family_objects $<TARGET_OBJECTS:${family}>)
endforeach()
add_library(vek_dropin_families STATIC EXCLUDE_FROM_ALL ${family_objects} ${CMAKE_SOURCE_DIR}/core/vekcore.cpp)
target_include_directories(vek_dropin_families PRIVATE ${CMAKE_SOURCE_DIR}/include)
target_link_libraries(vek_dropin_families PRIVATE vek_library_flags)

function(vek_dropin name soname header)
  string(TOUPPER VEK_${name}_HEADERS headers)
  find_path(${headers} ${header} PATHS /usr/include)
  if(NOT ${headers})
    message(STATUS "Without ${header}: no drop-in library for ${name}")
    return()
  endif()
  add_library(dropin_${name} SHARED ${ARGN})
  set_target_properties(dropin_${name} PROPERTIES
    PREFIX "" OUTPUT_NAME ${soname} SUFFIX "" NO_SONAME ON LINKER_LANGUAGE C
    LIBRARY_OUTPUT_DIRECTORY ${CMAKE_LIBRARY_OUTPUT_DIRECTORY}/dropin)
  target_link_libraries(dropin_${name} PRIVATE vek_dropin_inside vek_dropin_families)
  target_link_options(dropin_${name} PRIVATE -Wl,-soname,${soname} -Wl,-Bsymbolic
    -Wl,--exclude-libs,ALL -Wl,--as-needed -Wl,-z,relro -Wl,-z,now -Wl,-z,noexecstack -Wl,-z,text)
  if(NOT VEK_SANITIZE)
    target_link_options(dropin_${name} PRIVATE -Wl,-z,defs)
  endif()
  set_property(GLOBAL APPEND PROPERTY VEK_DROPINS dropin_${name})
endfunction()
