# What is installed. The agent's files are installed by agent/; debian/ makes packages of it all.
include(CMakePackageConfigHelpers)

set(cmake_dir ${CMAKE_INSTALL_LIBDIR}/cmake/corvanta)
set(pkgconfig_dir ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
file(RELATIVE_PATH CORVANTA_PREFIX_FROM_PC /${pkgconfig_dir} /)
string(REGEX REPLACE "/$" "" CORVANTA_PREFIX_FROM_PC "${CORVANTA_PREFIX_FROM_PC}")
configure_file(cmake/corvanta.pc.in corvanta.pc @ONLY)
configure_package_config_file(cmake/corvantaConfig.cmake.in corvantaConfig.cmake
  INSTALL_DESTINATION ${cmake_dir} NO_SET_AND_CHECK_MACRO)
write_basic_package_version_file(corvantaConfigVersion.cmake COMPATIBILITY SameMajorVersion)

install(TARGETS corvanta EXPORT corvantaTargets LIBRARY
  DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT development)
install(FILES include/corvanta.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development)
# The exported classes, in folders as here, since they include each other.
foreach(header frame/SnmpConfigHandler.h frame/Wrapper.h objects/data_cache.h
    objects/managed_objects.h readers/AtmFile.h readers/MappingTable.h readers/SpeedInfo.h
    readers/Table.h)
  get_filename_component(folder ${header} DIRECTORY)
  install(FILES ${header} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/corvanta/${folder}
    COMPONENT development)
endforeach()
install(FILES ${PROJECT_BINARY_DIR}/corvanta.pc DESTINATION ${pkgconfig_dir} COMPONENT development)
install(FILES ${PROJECT_BINARY_DIR}/corvantaConfig.cmake
              ${PROJECT_BINARY_DIR}/corvantaConfigVersion.cmake
  DESTINATION ${cmake_dir} COMPONENT development)
install(EXPORT corvantaTargets NAMESPACE corvanta:: DESTINATION ${cmake_dir} COMPONENT development)
