# What `cmake --install` puts where, and how other projects find it.

include(CMakePackageConfigHelpers)

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/tarvio)

install(
  TARGETS tarvio
  EXPORT tarvioTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(
  DIRECTORY include/tarvio
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
  FILES_MATCHING
  PATTERN "*.h")

install(
  EXPORT tarvioTargets
  NAMESPACE tarvio::
  DESTINATION ${package_dir})
configure_package_config_file(cmake/tarvioConfig.cmake.in tarvioConfig.cmake
                              INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file(tarvioConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/tarvioConfig.cmake
              ${PROJECT_BINARY_DIR}/tarvioConfigVersion.cmake DESTINATION ${package_dir})

# Relative to where the file lies, so that `cmake --install --prefix` and a moved tree stay right.
file(RELATIVE_PATH PREFIX_FROM_PKGCONFIG_DIR "${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig"
     "${CMAKE_INSTALL_PREFIX}")
string(REGEX REPLACE "/$" "" PREFIX_FROM_PKGCONFIG_DIR "${PREFIX_FROM_PKGCONFIG_DIR}")
configure_file(cmake/tarvio.pc.in tarvio.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/tarvio.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

if(TARGET tarvio-client AND EXISTS ${PROJECT_SOURCE_DIR}/packaging/bash-completion/tarvio)
  install(FILES packaging/bash-completion/tarvio
          DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
endif()
