# GoogleTest: Debian's library, or for another processor what its sources give.

if(CMAKE_CROSSCOMPILING)
  set(googletest_sources /usr/src/googletest)
  if(EXISTS ${googletest_sources}/CMakeLists.txt)
    set(INSTALL_GTEST OFF)
    add_subdirectory(${googletest_sources} ${PROJECT_BINARY_DIR}/googletest EXCLUDE_FROM_ALL SYSTEM)
  endif()
else()
  find_package(GTest QUIET)
endif()

if(NOT TARGET GTest::gmock_main)
  message(FATAL_ERROR "The tests need GoogleTest. Install: libgtest-dev libgmock-dev")
endif()
