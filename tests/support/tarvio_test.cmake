# tarvio_test(NAME [SOURCE...] [THREADED])
#
# A test program NAME_test of the given sources, or of NAME_test.cpp, linked with the shared library that
# ships. Each of its tests runs in a process and a sandbox of its own. THREADED tests also run under
# ThreadSanitizer in CI.

include(GoogleTest)

# What the library leaves allocated by contract is listed with its reason in lsan.supp.
set(sanitizer_environment
    "ASAN_OPTIONS=detect_stack_use_after_return=1:strict_string_checks=1"
    "LSAN_OPTIONS=suppressions=${CMAKE_CURRENT_SOURCE_DIR}/support/lsan.supp:print_suppressions=0"
    "TSAN_OPTIONS=halt_on_error=1"
    "UBSAN_OPTIONS=print_stacktrace=1")

# What ThreadSanitizer's tests need, so that its build stops there.
add_custom_target(threaded-tests)
add_dependencies(threaded-tests sandbox-enter tarviod)

function(tarvio_test name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "THREADED" "" "")
  set(sources ${arg_UNPARSED_ARGUMENTS})
  if(NOT sources)
    set(sources ${name}_test.cpp)
  endif()
  set(target ${name}_test)

  add_executable(${target} ${sources})
  target_link_libraries(${target} PRIVATE test-support tarvio GTest::gmock_main)
  target_compile_definitions(${target} PRIVATE TARVIO_SANDBOX_TOOLS="${PROJECT_SOURCE_DIR}/tests/sandbox")
  tarvio_warnings(${target})
  tarvio_sanitize(${target})
  # The library is what is under test: optimising the tests only makes their build three times as long.
  target_compile_options(${target} PRIVATE -O0)
  add_dependencies(${target} sandbox-enter)
  set_target_properties(${target} PROPERTIES CROSSCOMPILING_EMULATOR
                                             ${CMAKE_CURRENT_BINARY_DIR}/sandbox-enter)

  set(labels unit)
  if(arg_THREADED)
    set(labels threaded)
    add_dependencies(threaded-tests ${target})
  endif()
  # Listing the tests enters the sandbox as well, which a build should not need.
  gtest_discover_tests(
    ${target}
    DISCOVERY_MODE PRE_TEST
    DISCOVERY_TIMEOUT 60
    PROPERTIES TIMEOUT 120 LABELS ${labels})
  # Not above: gtest_discover_tests takes a list apart and would keep its first entry alone.
  set(environment_file ${CMAKE_CURRENT_BINARY_DIR}/${target}_environment.cmake)
  file(
    WRITE ${environment_file}
    "if(${target}_TESTS)\n"
    "  set_tests_properties(\${${target}_TESTS} PROPERTIES ENVIRONMENT \"${sanitizer_environment}\")\n"
    "endif()\n")
  set_property(DIRECTORY APPEND PROPERTY TEST_INCLUDE_FILES ${environment_file})
endfunction()
