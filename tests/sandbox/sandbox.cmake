set(sandbox_sources sandbox/enter.cpp sandbox/private_tree.cpp)

if(CMAKE_CROSSCOMPILING)
  # It makes namespaces and mounts for the programs of the device, which an emulator cannot.
  find_program(TARVIO_HOST_CXX NAMES c++ g++ clang++ REQUIRED)
  list(TRANSFORM sandbox_sources PREPEND ${CMAKE_CURRENT_SOURCE_DIR}/)
  # A name of its own: CMake takes a file that is named like a target for what that target makes.
  set(sandbox_program ${CMAKE_CURRENT_BINARY_DIR}/sandbox-enter.host)
  add_custom_command(
    OUTPUT ${sandbox_program}
    COMMAND ${TARVIO_HOST_CXX} -std=c++20 -O2 -static -DTARVIO_SOURCE_DIR="${PROJECT_SOURCE_DIR}"
            ${sandbox_sources} -o ${sandbox_program}
    DEPENDS ${sandbox_sources} ${CMAKE_CURRENT_SOURCE_DIR}/sandbox/private_tree.h
            ${CMAKE_CURRENT_SOURCE_DIR}/sandbox/report.h
    VERBATIM)
  add_custom_target(host-sandbox-enter ALL DEPENDS ${sandbox_program})
  add_executable(sandbox-enter IMPORTED GLOBAL)
  add_dependencies(sandbox-enter host-sandbox-enter)
  set_target_properties(sandbox-enter PROPERTIES IMPORTED_LOCATION ${sandbox_program}
                                                 CROSSCOMPILING_EMULATOR "")
  return()
endif()

set(sandbox_program ${CMAKE_CURRENT_BINARY_DIR}/sandbox-enter)
add_executable(sandbox-enter ${sandbox_sources})
tarvio_warnings(sandbox-enter)
target_compile_definitions(sandbox-enter PRIVATE TARVIO_SOURCE_DIR="${PROJECT_SOURCE_DIR}")
if(TARVIO_SANITIZE MATCHES thread)
  target_compile_definitions(sandbox-enter PRIVATE TARVIO_FIXED_ADDRESSES)
endif()
# It is entered once for each test: no time for a dynamic linker.
target_link_options(sandbox-enter PRIVATE -static)
