# Installation: both libraries, the header, the tool, a pkg-config file and a CMake package.
#
# The two variants install side by side: each has its own library folder (the distribution's
# multiarch folder where there is one, else lib32 and lib64), and in it vekdc/ with the drop-in
# libraries, where no program finds them unless told to. The tool goes to the one bin folder, so
# the variant installed last is the one that `vekdc` runs.

if(VEK_SANITIZE OR VEK_FUZZ)
  return()
endif()

include(CMakePackageConfigHelpers)

if(VEK_VARIANT STREQUAL "g9")
  set(_triplet i386-linux-gnu)
  set(_width 32)
else()
  set(_triplet x86_64-linux-gnu)
  set(_width 64)
endif()
if(EXISTS /etc/debian_version)
  set(_libdir lib/${_triplet})
else()
  set(_libdir lib${_width})
endif()
set(VEK_INSTALL_LIBDIR ${_libdir} CACHE STRING "Library folder below the prefix")

install(TARGETS vekdc vekcore EXPORT vekdcTargets LIBRARY DESTINATION ${VEK_INSTALL_LIBDIR})
install(FILES include/vekdc.h core/vekcore.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(FILES LICENSE NEWS README.md DESTINATION ${CMAKE_INSTALL_DOCDIR})
if(TARGET vekdc_tool)
  file(RELATIVE_PATH _from_bin /prefix/${CMAKE_INSTALL_BINDIR} /prefix/${VEK_INSTALL_LIBDIR})
  set_target_properties(vekdc_tool PROPERTIES INSTALL_RPATH "$ORIGIN/${_from_bin}")
  install(TARGETS vekdc_tool RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
  get_target_property(_links vekdc_tool VEK_LINKS)
  install(FILES ${_links} DESTINATION ${CMAKE_INSTALL_BINDIR})
endif()

get_property(dropins GLOBAL PROPERTY VEK_DROPINS)
if(dropins)
  install(TARGETS ${dropins} LIBRARY DESTINATION ${VEK_INSTALL_LIBDIR}/vekdc)
endif()

get_property(dropins GLOBAL PROPERTY VEK_DROPINS)
if(dropins)
  install(TARGETS ${dropins} LIBRARY DESTINATION ${VEK_INSTALL_LIBDIR}/vekdc)
endif()

install(EXPORT vekdcTargets NAMESPACE vekdc:: DESTINATION ${VEK_INSTALL_LIBDIR}/cmake/vekdc)
configure_package_config_file(cmake/vekdcConfig.cmake.in vekdcConfig.cmake
  INSTALL_DESTINATION ${VEK_INSTALL_LIBDIR}/cmake/vekdc)
write_basic_package_version_file(vekdcConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_BINARY_DIR}/vekdcConfig.cmake ${CMAKE_BINARY_DIR}/vekdcConfigVersion.cmake
        DESTINATION ${VEK_INSTALL_LIBDIR}/cmake/vekdc)

configure_file(cmake/vekdc.pc.in vekdc.pc @ONLY)
install(FILES ${CMAKE_BINARY_DIR}/vekdc.pc DESTINATION ${VEK_INSTALL_LIBDIR}/pkgconfig)
