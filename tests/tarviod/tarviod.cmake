# The tests of the resident manager as a program, and what they load into it.

foreach(name held_setup late_clock no_binding)
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
target_compile_definitions(
  tarviod_test PRIVATE TARVIOD="$<TARGET_FILE:tarviod>" TARVIO_VERSION="${PROJECT_VERSION}"
                       ${preloaded})
add_dependencies(tarviod_test tarviod tarviod-held_setup tarviod-late_clock tarviod-no_binding)
