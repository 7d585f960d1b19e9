# The target "doc": the reference of the interface in HTML, and a manual page for each function. It is not part of "all",
# and installed when it was built.

find_package(Doxygen QUIET)
find_package(Python3 3.9 QUIET COMPONENTS Interpreter)
if(NOT DOXYGEN_FOUND OR NOT Python3_FOUND)
  add_custom_target(
    doc
    COMMAND ${CMAKE_COMMAND} -E echo "The reference needs doxygen and python3, of the packages of these names."
    COMMAND ${CMAKE_COMMAND} -E false
    VERBATIM)
  return()
endif()

set(api ${PROJECT_SOURCE_DIR}/docs/api)
set(api_directory ${PROJECT_BINARY_DIR}/api)
configure_file(${api}/Doxyfile.in ${api_directory}/Doxyfile @ONLY)
file(GLOB headers CONFIGURE_DEPENDS include/tarvio/*.h include/tarvio/*.hpp)
add_custom_command(
  OUTPUT ${api_directory}/done
  COMMAND ${CMAKE_COMMAND} -E rm -rf ${api_directory}/html ${api_directory}/man ${api_directory}/man3
  COMMAND Doxygen::doxygen ${api_directory}/Doxyfile
  COMMAND ${api}/man-pages ${api_directory}/man/man3 ${api_directory}/man3
          ${PROJECT_SOURCE_DIR}/tests/exports.txt ${PROJECT_VERSION}
  COMMAND ${CMAKE_COMMAND} -E touch ${api_directory}/done
  DEPENDS ${headers} ${api_directory}/Doxyfile ${api}/doxygen-filter ${api}/mainpage.dox ${api}/man-pages
          ${PROJECT_SOURCE_DIR}/tests/exports.txt
  COMMENT "Writing the reference of the interface"
  VERBATIM)
add_custom_target(doc DEPENDS ${api_directory}/done)

install(
  DIRECTORY ${api_directory}/html
  DESTINATION ${CMAKE_INSTALL_DOCDIR}
  COMPONENT doc
  OPTIONAL)
install(
  DIRECTORY ${api_directory}/man3
  DESTINATION ${CMAKE_INSTALL_MANDIR}
  COMPONENT doc
  OPTIONAL)
