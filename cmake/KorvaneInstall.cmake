# What `cmake --install` installs. All paths are relative, so that the prefix can be chosen at
# install time and the tree can be moved afterwards.
include(CMakePackageConfigHelpers)
set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/korvane-svcmgr)

# The relative path from a pkg-config file to the prefix.
cmake_path(RELATIVE_PATH CMAKE_INSTALL_PREFIX
  BASE_DIRECTORY ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig OUTPUT_VARIABLE pkgconfig_to_prefix)
function(korvane_install_pkgconfig name)
  configure_file(cmake/${name}.pc.in ${name}.pc @ONLY)
  install(FILES ${CMAKE_CURRENT_BINARY_DIR}/${name}.pc
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endfunction()

install(TARGETS korvane_svcmgr EXPORT korvane-svcmgr-targets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(DIRECTORY include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
  FILES_MATCHING PATTERN *.h PATTERN *.hpp)
korvane_install_pkgconfig(korvane-svcmgr)

if(KORVANE_PLATFORM STREQUAL "host")
  install(TARGETS korvane_host EXPORT korvane-svcmgr-targets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
  install(FILES host/korvane_host.h host/korvane_host.hpp
    DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
  korvane_install_pkgconfig(korvane-host)
  set_target_properties(korvane_svcmgr PROPERTIES INSTALL_RPATH $ORIGIN)
endif()
if(TARGET svcmgrctl)
  install(TARGETS svcmgr-emulator svcmgrctl RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
  cmake_path(RELATIVE_PATH CMAKE_INSTALL_FULL_LIBDIR
    BASE_DIRECTORY ${CMAKE_INSTALL_FULL_BINDIR} OUTPUT_VARIABLE programs_to_libraries)
  set_target_properties(svcmgr-emulator svcmgrctl PROPERTIES
    INSTALL_RPATH $ORIGIN/${programs_to_libraries})
endif()

install(EXPORT korvane-svcmgr-targets NAMESPACE korvane:: DESTINATION ${package_dir})
configure_package_config_file(cmake/korvane-svcmgr-config.cmake.in korvane-svcmgr-config.cmake
  INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file(korvane-svcmgr-config-version.cmake COMPATIBILITY SameMajorVersion)
install(FILES
  ${CMAKE_CURRENT_BINARY_DIR}/korvane-svcmgr-config.cmake
  ${CMAKE_CURRENT_BINARY_DIR}/korvane-svcmgr-config-version.cmake
  DESTINATION ${package_dir})
