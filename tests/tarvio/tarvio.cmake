# The tests of the client: its parts one by one, and the program.

if(NOT TARGET tarvio-client)
  return()
endif()

find_package(nlohmann_json REQUIRED)

tarvio_test(
  tarvio
  tarvio_text_test.cpp
  tarvio_reply_test.cpp
  tarvio_options_test.cpp
  tarvio_status_test.cpp
  tarvio_watch_test.cpp
  tarvio_app_test.cpp
  tarvio_list_test.cpp
  tarvio_exchange_test.cpp
  tarvio_terminal_test.cpp
  tarvio_completion_test.cpp
  tarvio_control_file_test.cpp
  tarvio_pack_test.cpp
  tarvio_inspect_test.cpp
  tarvio_verdict_test.cpp
  tarvio_change_test.cpp
  tarvio_check_test.cpp
  support/tarvio.cpp
  support/live_allocations.cpp
  support/manager.cpp
  support/sockets.cpp)
target_link_libraries(tarvio_test PRIVATE tarvio-client-parts nlohmann_json::nlohmann_json)
tarvio_command(client_command tarvio-client)
target_compile_definitions(
  tarvio_test
  PRIVATE TARVIO_CLIENT="${client_command}" TARVIO_VERSION="${PROJECT_VERSION}"
          TARVIO_COMPLETION="${PROJECT_SOURCE_DIR}/packaging/bash-completion/tarvio")
add_dependencies(tarvio_test tarvio-client)

tarvio_test(
  tarvio_flash
  tarvio_flash_parts_test.cpp
  tarvio_backup_test.cpp
  tarvio_restore_test.cpp
  tarvio_flash_terminal_test.cpp
  tarvio_flash_failure_test.cpp
  support/sockets.cpp)
target_link_libraries(tarvio_flash_test PRIVATE tarvio-client-parts nlohmann_json::nlohmann_json)

if(NOT TARVIO_SANITIZE)
  add_test(NAME tarvio.has_no_locales
           COMMAND ${CMAKE_CURRENT_LIST_DIR}/check-locale $<TARGET_FILE:tarvio-client>)
  add_test(NAME tarvio.needs_only_the_library_and_libc
           COMMAND ${CMAKE_CURRENT_LIST_DIR}/../library/check needs $<TARGET_FILE:tarvio-client>
                   libc.so.6 libtarvio.so.1)
endif()
