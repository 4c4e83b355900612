# Man pages and HTML of the public header, from its comments.
find_program(DOXYGEN doxygen)
find_program(PERL perl)
if(CMAKE_CROSSCOMPILING OR NOT DOXYGEN OR NOT PERL)
  message(STATUS "reference: left out, needs doxygen and perl, and a build for this machine")
  return()
endif()

set(warnings NO)
if(CORVANTA_WERROR)
  set(warnings FAIL_ON_WARNINGS)
endif()
configure_file(cmake/Doxyfile.in Doxyfile @ONLY)
set(reference ${PROJECT_BINARY_DIR}/reference)
add_custom_command(OUTPUT ${reference}/made
  COMMAND ${CMAKE_COMMAND} -E rm -rf ${reference}
  COMMAND ${DOXYGEN} ${PROJECT_BINARY_DIR}/Doxyfile
  COMMAND ${PERL} ${PROJECT_SOURCE_DIR}/cmake/man-pages ${reference}/man/man3
  # What begins with the contract is a better first page than an empty one.
  COMMAND ${CMAKE_COMMAND} -E create_symlink corvanta_8h.html ${reference}/html/index.html
  COMMAND ${CMAKE_COMMAND} -E touch ${reference}/made
  DEPENDS include/corvanta.h cmake/man-pages ${PROJECT_BINARY_DIR}/Doxyfile
  COMMENT "Making the reference" VERBATIM)
add_custom_target(reference ALL DEPENDS ${reference}/made)
install(DIRECTORY ${reference}/man/ DESTINATION ${CMAKE_INSTALL_MANDIR} COMPONENT development)
install(DIRECTORY ${reference}/html DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT documentation)
