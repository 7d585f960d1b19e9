# The tests of the resident manager as a program, and what they load into it.

foreach(name fast_looks held_setup late_clock no_binding)
  add_library(tarviod-${name} MODULE tarviod/${name}.cpp)
  target_include_directories(tarviod-${name} PRIVATE ${PROJECT_SOURCE_DIR}/include)
  tarvio_warnings(tarviod-${name})
  string(TOUPPER ${name} constant)
  list(APPEND preloaded TARVIOD_${constant}="$<TARGET_FILE:tarviod-${name}>")
endforeach()

tarvio_test(
  tarviod
  tarviod_test.cpp
  tarviod_daemon_test.cpp
  tarviod_applications_test.cpp
  tarviod_end_test.cpp
  tarviod_log_test.cpp
  support/applications.cpp
  support/sockets.cpp
  support/tarviod.cpp
  THREADED)
tarvio_test(
  tarviod_log_monitor
  tarviod_watch_test.cpp
  tarviod_log_reader_test.cpp
  tarviod_config_test.cpp
  support/applications.cpp
  support/sockets.cpp
  support/tarviod.cpp
  support/watched_log.cpp
  THREADED)

tarvio_command(tarviod_command tarviod)
foreach(test tarviod_test tarviod_log_monitor_test)
  target_compile_definitions(
    ${test} PRIVATE TARVIOD="${tarviod_command}" TARVIO_VERSION="${PROJECT_VERSION}" ${preloaded})
  add_dependencies(${test} tarviod tarviod-fast_looks tarviod-held_setup tarviod-late_clock
                   tarviod-no_binding)
endforeach()

if(TARGET tarvio-client)
  tarvio_test(tarviod_syslogd tarviod_syslogd_test.cpp support/applications.cpp support/sockets.cpp
              support/tarvio.cpp support/tarviod.cpp)
  tarvio_command(client_command tarvio-client)
  target_compile_definitions(tarviod_syslogd_test PRIVATE TARVIOD="${tarviod_command}"
                                                          TARVIO_CLIENT="${client_command}")
  add_dependencies(tarviod_syslogd_test tarviod tarvio-client)
endif()
