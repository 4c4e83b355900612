# Runs once the packages' files stand in their folders: adds what only a package has, and packs
# manual pages as Debian wants them.
set(gzip gzip -9 --no-name --force)
foreach(component IN LISTS CPACK_COMPONENTS_ALL)
  string(TOUPPER ${component} upper)
  set(tree ${CPACK_TEMPORARY_DIRECTORY}/${component}/usr/share)
  set(doc ${tree}/doc/${CPACK_DEBIAN_${upper}_PACKAGE_NAME})
  configure_file(${CPACK_CORVANTA_SOURCE}/packaging/copyright ${doc}/copyright COPYONLY)
  configure_file(${CPACK_CORVANTA_SOURCE}/CHANGELOG.md ${doc}/changelog COPYONLY)
  set(PROJECT_VERSION ${CPACK_PACKAGE_VERSION})
  configure_file(${CPACK_CORVANTA_SOURCE}/packaging/changelog.in ${doc}/changelog.Debian @ONLY)
  file(GLOB pages ${tree}/man/man*/*.[1-9])
  execute_process(COMMAND ${gzip} ${doc}/changelog ${doc}/changelog.Debian ${pages}
    COMMAND_ERROR_IS_FATAL ANY)
endforeach()
