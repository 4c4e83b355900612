# What is installed, and the Debian packages. The agent's files are installed by agent/.
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
# The exported classes, in folders as here; their "../include/corvanta.h" leads to the header above.
foreach(header frame/SnmpConfigHandler.h frame/Wrapper.h objects/data_cache.h
    objects/managed_objects.h readers/AtmFile.h readers/MappingTable.h readers/SpeedInfo.h
    readers/Table.h)
  get_filename_component(folder ${header} DIRECTORY)
  install(FILES ${header} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/corvanta/${folder}
    COMPONENT development)
endforeach()
file(CONFIGURE OUTPUT installed/corvanta.h CONTENT "#include \"../../corvanta.h\"\n")
install(FILES ${PROJECT_BINARY_DIR}/installed/corvanta.h
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/corvanta/include COMPONENT development)
install(FILES ${PROJECT_BINARY_DIR}/corvanta.pc DESTINATION ${pkgconfig_dir} COMPONENT development)
install(FILES ${PROJECT_BINARY_DIR}/corvantaConfig.cmake
              ${PROJECT_BINARY_DIR}/corvantaConfigVersion.cmake
  DESTINATION ${cmake_dir} COMPONENT development)
install(EXPORT corvantaTargets NAMESPACE corvanta:: DESTINATION ${cmake_dir} COMPONENT development)

# `packages` makes one Debian package of each component.
set(CPACK_GENERATOR DEB)
set(CPACK_COMPONENTS_ALL runtime development)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_STRIP_FILES ON)
set(CPACK_SET_DESTDIR ON) # the agent's configuration goes to /etc
set(CPACK_PRE_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/cmake/package-files.cmake)
set(CPACK_CORVANTA_SOURCE ${PROJECT_SOURCE_DIR})
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SOURCE corvanta)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_MAINTAINER "libcorvanta maintainers <maintainers@corvanta.example>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "") # each package has its own
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR})
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME libcorvanta${PROJECT_VERSION_MAJOR})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA ${PROJECT_SOURCE_DIR}/packaging/triggers)
set(CPACK_DEBIAN_RUNTIME_DESCRIPTION
"state and managed objects of an ATM-over-SHDSL modem-router
The library answers from the kernel's list of ATM circuits, the DSL tool and
the device's configuration database, for the SNMP agent that loads it.")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libcorvanta-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_DESCRIPTION
"state and managed objects of a modem-router - development files
The headers of libcorvanta and its files for pkg-config and CMake, for an SNMP
agent that loads the library.")
set(CPACK_COMPONENT_DEVELOPMENT_DEPENDS runtime)

set(product corvanta)
if(TARGET corvantad)
  list(APPEND product corvantad)
  list(APPEND CPACK_COMPONENTS_ALL agent)
  set(CPACK_DEBIAN_AGENT_PACKAGE_NAME corvanta-agent)
  set(CPACK_DEBIAN_AGENT_PACKAGE_SECTION net)
  set(CPACK_DEBIAN_AGENT_PACKAGE_RECOMMENDS snmpd)
  set(CPACK_DEBIAN_AGENT_PACKAGE_SUGGESTS snmp)
  set(CPACK_DEBIAN_AGENT_PACKAGE_CONTROL_EXTRA
    ${PROJECT_SOURCE_DIR}/packaging/conffiles
    ${PROJECT_SOURCE_DIR}/packaging/postinst
    ${PROJECT_SOURCE_DIR}/packaging/prerm)
  set(CPACK_DEBIAN_AGENT_DESCRIPTION
"SNMP agent of an ATM-over-SHDSL modem-router
Shows CORVANTA-MIB to SNMP managers, as an AgentX subagent of snmpd or by
itself: line rates, ATM circuits, interfaces, VLAN objects. It answers from a
snapshot, so that a slow device never stalls a manager.")
  set(CPACK_COMPONENT_AGENT_DEPENDS runtime)
endif()
include(CPack)
add_custom_target(packages COMMAND ${CMAKE_CPACK_COMMAND} DEPENDS ${product} VERBATIM)


if(BUILD_TESTING)
  include(tests/packaging.cmake)
endif()
