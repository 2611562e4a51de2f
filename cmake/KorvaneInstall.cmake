include(CMakePackageConfigHelpers)

install(TARGETS korvane_svcmgr EXPORT korvane-svcmgr-targets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(FILES include/korvane_svcmgr.h include/korvane_svcmgr.hpp
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(EXPORT korvane-svcmgr-targets NAMESPACE korvane::
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/korvane-svcmgr)
configure_package_config_file(cmake/korvane-svcmgr-config.cmake.in korvane-svcmgr-config.cmake
  INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/korvane-svcmgr)
write_basic_package_version_file(korvane-svcmgr-config-version.cmake COMPATIBILITY SameMajorVersion)
configure_file(cmake/korvane-svcmgr.pc.in korvane-svcmgr.pc @ONLY)
install(FILES
  ${CMAKE_CURRENT_BINARY_DIR}/korvane-svcmgr-config.cmake
  ${CMAKE_CURRENT_BINARY_DIR}/korvane-svcmgr-config-version.cmake
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/korvane-svcmgr)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/korvane-svcmgr.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

if(KORVANE_PLATFORM STREQUAL "host")
  install(TARGETS korvane_host EXPORT korvane-svcmgr-targets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
  install(FILES host/korvane_host.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
  install(TARGETS svcmgr-emulator svcmgrctl RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
endif()
