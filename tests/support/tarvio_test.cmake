# tarvio_test(NAME [SOURCE...] [THREADED])
#
# A test program NAME_test of the given sources, or of NAME_test.cpp, linked with the shared library that
# ships. Each of its tests runs in a process and a sandbox of its own. THREADED tests also run under
# ThreadSanitizer in CI.

include(GoogleTest)

# Parts of the support that only some tests need, each as a source of theirs.
set(test_support ${CMAKE_CURRENT_SOURCE_DIR}/support)
set(ipc_support ${test_support}/hooks/live_allocations.cpp ${test_support}/com/manager.cpp
                ${test_support}/com/sockets.cpp)

# How a test program is run: in the sandbox; one of the device under the emulator there, unless it is a test
# that the emulation cannot do.
set(test_launcher ${sandbox_program})
if(CMAKE_CROSSCOMPILING)
  list(APPEND test_launcher ${CMAKE_CURRENT_SOURCE_DIR}/armhf/run ${CMAKE_CROSSCOMPILING_EMULATOR})
endif()

# tarvio_command(VARIABLE TARGET): a file that runs the program TARGET when it is executed. The emulation
# does not execute programs of the device from others: there it is a script of the host, which does. All of
# them are in one directory, under the names of the programs.
if(CMAKE_CROSSCOMPILING)
  set(command_directory ${PROJECT_BINARY_DIR}/emulated CACHE INTERNAL "")
else()
  set(command_directory ${PROJECT_BINARY_DIR} CACHE INTERNAL "")
endif()
function(tarvio_command variable target)
  if(NOT CMAKE_CROSSCOMPILING)
    set(${variable} $<TARGET_FILE:${target}> PARENT_SCOPE)
    return()
  endif()
  set(script ${command_directory}/$<TARGET_FILE_NAME:${target}>)
  set(${variable} ${script} PARENT_SCOPE)
  get_target_property(made ${target} EMULATED)
  if(NOT made)
    set_target_properties(${target} PROPERTIES EMULATED ON)
    list(JOIN CMAKE_CROSSCOMPILING_EMULATOR " " emulator)
    file(
      GENERATE
      OUTPUT ${script}
      CONTENT "#!/bin/sh\nexec ${emulator} -0 \"\${0##*/}\" $<TARGET_FILE:${target}> \"$@\"\n"
      FILE_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ
                       WORLD_EXECUTE)
  endif()
endfunction()

# What the library leaves allocated by contract is listed with its reason in lsan.supp.
set(sanitizer_environment
    "ASAN_OPTIONS=detect_stack_use_after_return=1:strict_string_checks=1"
    "LSAN_OPTIONS=suppressions=${CMAKE_CURRENT_SOURCE_DIR}/support/lsan.supp:print_suppressions=0"
    "TSAN_OPTIONS=halt_on_error=1"
    "UBSAN_OPTIONS=print_stacktrace=1")

# What ThreadSanitizer's tests need, so that its build stops there.
add_custom_target(threaded-tests)
add_dependencies(threaded-tests sandbox-enter tarviod)

# The library and the programs are what is under test: optimising the tests makes their build three times as
# long, and checking them for undefined behaviour twice.
set(test_options -O0)
if(TARVIO_SANITIZE MATCHES undefined)
  list(APPEND test_options -fno-sanitize=undefined)
endif()
if(TARVIO_SANITIZE)
  list(APPEND test_options -g1) # what a stack trace needs
endif()
if(TARVIO_SANITIZE MATCHES address)
  list(APPEND test_options -DTARVIO_ADDRESS_SANITIZER)
endif()
if(TARVIO_SANITIZE MATCHES thread)
  list(APPEND test_options -DTARVIO_THREAD_SANITIZER)
endif()

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
  target_compile_options(${target} PRIVATE ${test_options})
  target_precompile_headers(${target} REUSE_FROM test-support)
  add_dependencies(${target} sandbox-enter)
  set_target_properties(${target} PROPERTIES CROSSCOMPILING_EMULATOR "${test_launcher}")

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
