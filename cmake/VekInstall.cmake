# Installation: both libraries, the header, the tool, what tells of them, a pkg-config file and a CMake
# package. Each thing is of a component, runtime, development, tool or dropin, which the packages are
# cut by (scripts/make-packages).
#
# The two variants install side by side: each has its own library folder (the distribution's
# multiarch folder where there is one, else lib32 and lib64), and in it vekdc/ with the drop-in
# libraries, where no program finds them unless told to. The tool goes to the one bin folder, so
# the variant installed last is the one that `vekdc` runs.

if(VEK_SANITIZE OR VEK_FUZZ)
  return()
endif()

include(CMakePackageConfigHelpers)

install(TARGETS vekdc vekcore EXPORT vekdcTargets LIBRARY DESTINATION ${VEK_INSTALL_LIBDIR}
        COMPONENT runtime NAMELINK_COMPONENT development)
install(FILES include/vekdc.h core/vekcore.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
        COMPONENT development)
install(FILES LICENSE DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT licence)
install(FILES NEWS README.md DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT tool)
install(DIRECTORY docs DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT tool
        FILES_MATCHING PATTERN *.md PATTERN *.svg PATTERN *.png)
install(DIRECTORY examples DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT development
        FILES_MATCHING PATTERN *.c)
if(TARGET vekdc_tool)
  file(RELATIVE_PATH _from_bin /prefix/${CMAKE_INSTALL_BINDIR} /prefix/${VEK_INSTALL_LIBDIR})
  set_target_properties(vekdc_tool PROPERTIES INSTALL_RPATH "$ORIGIN/${_from_bin}")
  install(TARGETS vekdc_tool RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tool)
  get_target_property(_links vekdc_tool VEK_LINKS)
  install(FILES ${_links} DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tool)
  install(DIRECTORY ${CMAKE_BINARY_DIR}/tools/vekdc/completions/ DESTINATION ${CMAKE_INSTALL_DATADIR}
          COMPONENT tool)
endif()

get_property(dropins GLOBAL PROPERTY VEK_DROPINS)
if(dropins)
  install(TARGETS ${dropins} LIBRARY DESTINATION ${VEK_INSTALL_LIBDIR}/vekdc COMPONENT dropin)
endif()

install(EXPORT vekdcTargets NAMESPACE vekdc:: DESTINATION ${VEK_INSTALL_LIBDIR}/cmake/vekdc
        COMPONENT development)
configure_package_config_file(cmake/vekdcConfig.cmake.in vekdcConfig.cmake
  INSTALL_DESTINATION ${VEK_INSTALL_LIBDIR}/cmake/vekdc)
write_basic_package_version_file(vekdcConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_BINARY_DIR}/vekdcConfig.cmake ${CMAKE_BINARY_DIR}/vekdcConfigVersion.cmake
        DESTINATION ${VEK_INSTALL_LIBDIR}/cmake/vekdc COMPONENT development)

configure_file(cmake/vekdc.pc.in vekdc.pc @ONLY)
install(FILES ${CMAKE_BINARY_DIR}/vekdc.pc DESTINATION ${VEK_INSTALL_LIBDIR}/pkgconfig
        COMPONENT development)

add_subdirectory(man)
