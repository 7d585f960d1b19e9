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
  PATTERN "*.h"
  PATTERN "*.hpp")

install(
  EXPORT tarvioTargets
  NAMESPACE tarvio::
  DESTINATION ${package_dir})
configure_package_config_file(cmake/tarvioConfig.cmake.in tarvioConfig.cmake
                              INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file(tarvioConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/tarvioConfig.cmake
              ${PROJECT_BINARY_DIR}/tarvioConfigVersion.cmake DESTINATION ${package_dir})

# Relative to the file's own directory, so that `cmake --install --prefix` and a moved tree keep working.
file(RELATIVE_PATH PREFIX_FROM_PKGCONFIG_DIR "${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig"
     "${CMAKE_INSTALL_PREFIX}")
string(REGEX REPLACE "/$" "" PREFIX_FROM_PKGCONFIG_DIR "${PREFIX_FROM_PKGCONFIG_DIR}")
configure_file(cmake/tarvio.pc.in tarvio.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/tarvio.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

# Where each shell looks for completions, and under which name.
function(install_completions program)
  set(completions packaging/completions/${program})
  install(FILES ${completions}/bash RENAME ${program}
          DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
  install(FILES ${completions}/zsh RENAME _${program}
          DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/site-functions)
  install(FILES ${completions}/fish RENAME ${program}.fish
          DESTINATION ${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d)
endfunction()
if(TARGET tarvio-client)
  install_completions(tarvio)
endif()
if(TARGET tarvio-fleet)
  install_completions(tarvio-fleet)
endif()

# Of the programs that are built, with the version in the first line.
file(GLOB manuals RELATIVE ${PROJECT_SOURCE_DIR}/docs docs/man/*.[158])
foreach(manual ${manuals})
  get_filename_component(program ${manual} NAME_WE)
  string(REGEX MATCH ".$" section ${manual})
  if(TARGET ${program} OR TARGET ${program}-client)
    configure_file(docs/${manual} ${manual} @ONLY)
    install(FILES ${PROJECT_BINARY_DIR}/${manual} DESTINATION ${CMAKE_INSTALL_MANDIR}/man${section})
  endif()
endforeach()

install(FILES packaging/tarviod.conf packaging/tarvio.conf packaging/busybox/inittab
        DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples)
install(
  FILES packaging/systemd/hardening.conf
  DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples
  RENAME tarviod-hardening.conf)
if(TARGET tarvio-agent)
  install(FILES packaging/agent.conf DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples)
endif()
if(TARGET tarvio-fleet)
  install(
    DIRECTORY packaging/fleet
    DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples
    USE_SOURCE_PERMISSIONS)
endif()
install(
  DIRECTORY examples/
  DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples
  USE_SOURCE_PERMISSIONS
  REGEX "examples/CMakeLists.txt$" EXCLUDE)

# Of the programs that are built. Written at installation: they contain the program's path, which depends on
# `cmake --install --prefix`.
set(TARVIO_SERVICE "" CACHE STRING "Service files to install: systemd, init.d, openrc, procd or nothing")
if(TARVIO_SERVICE STREQUAL "systemd")
  set(service_kind FILES)
  set(service_suffix .service)
  set(service_directory lib/systemd/system)
elseif(TARVIO_SERVICE MATCHES "^(init.d|openrc|procd)$")
  set(service_kind PROGRAMS)
  set(service_suffix "")
  set(service_directory ${CMAKE_INSTALL_SYSCONFDIR}/init.d)
elseif(TARVIO_SERVICE)
  message(FATAL_ERROR "TARVIO_SERVICE is '${TARVIO_SERVICE}' and must be systemd, init.d, openrc, procd or empty")
endif()
foreach(program tarviod tarvio-agent)
  if(TARVIO_SERVICE AND TARGET ${program})
    set(source ${PROJECT_SOURCE_DIR}/packaging/${TARVIO_SERVICE}/${program}${service_suffix}.in)
    set(service ${PROJECT_BINARY_DIR}/service/${program}${service_suffix})
    install(CODE "set(sbindir \${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_SBINDIR})
configure_file(${source} ${service} @ONLY)")
    install(${service_kind} ${service} DESTINATION ${service_directory})
  endif()
endforeach()
