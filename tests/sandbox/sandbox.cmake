add_executable(sandbox-enter sandbox/enter.cpp sandbox/private_tree.cpp)
tarvio_warnings(sandbox-enter)
target_compile_definitions(sandbox-enter PRIVATE TARVIO_SOURCE_DIR="${PROJECT_SOURCE_DIR}")
if(TARVIO_SANITIZE MATCHES thread)
  target_compile_definitions(sandbox-enter PRIVATE TARVIO_FIXED_ADDRESSES)
endif()
# It is entered once for each test: no time for a dynamic linker.
target_link_options(sandbox-enter PRIVATE -static)
