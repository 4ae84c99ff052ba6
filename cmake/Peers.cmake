# The formats' own libraries, called as black boxes by tests, fuzz targets and benchmarks, never by
# the library.
#
# x86-64 finds them in the system. 32-bit x86 finds them where `./vek setup` unpacked the
# distribution's i386 packages (VEK_PEERS_DIR). Each one found becomes the target peer::<name>; one
# that cannot be had leaves no target, and what needs it is not built. VEK_WITHOUT_PEERS names peers
# to do without although they are there, or ALL, so that one machine can build every combination.
set(VEK_WITHOUT_PEERS "" CACHE STRING "Peers to leave out, as a list, or ALL")

if(VEK_VARIANT STREQUAL "g9")
  set(VEK_PEERS_DIR ${CMAKE_SOURCE_DIR}/build/peers-i386/root CACHE PATH
      "Where the i386 packages of the peers are unpacked")
  set(_peer_includes ${VEK_PEERS_DIR}/usr/include ${VEK_PEERS_DIR}/usr/include/i386-linux-gnu)
  set(_peer_libs ${VEK_PEERS_DIR}/usr/lib/i386-linux-gnu)
else()
  set(_peer_includes /usr/include /usr/include/x86_64-linux-gnu)
  set(_peer_libs /usr/lib/x86_64-linux-gnu)
endif()

function(vek_peer name header library)
  if("${VEK_WITHOUT_PEERS}" STREQUAL "ALL" OR name IN_LIST VEK_WITHOUT_PEERS)
    return()
  endif()
  find_path(PEER_${name}_INCLUDE ${header} PATHS ${_peer_includes} NO_DEFAULT_PATH NO_CMAKE_FIND_ROOT_PATH)
  find_library(PEER_${name}_LIBRARY NAMES lib${library}.a lib${library}.so PATHS ${_peer_libs}
               NO_DEFAULT_PATH NO_CMAKE_FIND_ROOT_PATH)
  if(NOT PEER_${name}_INCLUDE OR NOT PEER_${name}_LIBRARY)
    message(STATUS "Peer ${name}: not found, left out")
    return()
  endif()
  add_library(peer_${name} INTERFACE)
  add_library(peer::${name} ALIAS peer_${name})
  if(VEK_VARIANT STREQUAL "g9")
    target_include_directories(peer_${name} SYSTEM INTERFACE ${PEER_${name}_INCLUDE} ${_peer_includes})
  endif()
  target_link_libraries(peer_${name} INTERFACE ${PEER_${name}_LIBRARY})
endfunction()

vek_peer(zlib zlib.h z)
vek_peer(libdeflate libdeflate.h deflate)
vek_peer(bzip2 bzlib.h bz2)
vek_peer(divsufsort divsufsort.h divsufsort)
vek_peer(lz4 lz4.h lz4)
vek_peer(lzo2 lzo/lzo1x.h lzo2)
vek_peer(zfp zfp.h zfp)
vek_peer(benchmark benchmark/benchmark.h benchmark)

# The distribution's libraries that the drop-in ones stand in for: VEK_STOCK_<name>, the path of the
# one of that soname.
function(vek_stock_library name soname)
  find_file(VEK_STOCK_${name} ${soname} PATHS ${_peer_libs} ${VEK_PEERS_DIR}/lib/i386-linux-gnu NO_DEFAULT_PATH)
endfunction()

vek_stock_library(bzip2 libbz2.so.1.0)
vek_stock_library(lz4 liblz4.so.1)
vek_stock_library(zlib libz.so.1)

# vek_peer_program(<name>): PEER_<name>, the path of a program to compare with, where there is one.
function(vek_peer_program name)
  if("${VEK_WITHOUT_PEERS}" STREQUAL "ALL" OR name IN_LIST VEK_WITHOUT_PEERS)
    set(PEER_${name} "" PARENT_SCOPE)
    return()
  endif()
  if(VEK_VARIANT STREQUAL "g9")
    set(paths ${VEK_PEERS_DIR}/usr/bin)
  else()
    set(paths /usr/bin)
  endif()
  find_program(PEER_${name}_PROGRAM ${name} PATHS ${paths} NO_DEFAULT_PATH NO_CMAKE_FIND_ROOT_PATH)
  if(PEER_${name}_PROGRAM)
    set(PEER_${name} ${PEER_${name}_PROGRAM} PARENT_SCOPE)
  else()
    message(STATUS "Peer ${name}: not found, left out")
  endif()
endfunction()

# What only a comparison with a missing peer uses is unused then, and that is no fault.
add_library(vek_peer_missing INTERFACE)
target_compile_options(vek_peer_missing INTERFACE -Wno-unused)

# vek_link_peers(<target> [peer]...): links those of the peers that this machine has; for each one
# VEK_HAS_<peer> is defined.
function(vek_link_peers target)
  foreach(peer IN LISTS ARGN)
    if(TARGET peer::${peer})
      target_link_libraries(${target} PRIVATE peer::${peer})
      target_compile_definitions(${target} PRIVATE VEK_HAS_${peer})
    else()
      target_link_libraries(${target} PRIVATE vek_peer_missing)
      message(STATUS "Without ${peer}: ${target} compares less")
    endif()
  endforeach()
endfunction()
