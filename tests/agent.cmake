# The agent on the stand-in device, asked by the stock SNMP tools, as an agent of its own and as a
# subagent of a real snmpd.
if(NOT TARGET corvantad OR NOT TARGET quorlet)
  return()
endif()
find_program(SNMPD snmpd PATHS /usr/sbin)
find_program(SNMPGET snmpget)
if(NOT SNMPD OR NOT SNMPGET)
  message(STATUS "tests: agent_test left out, no SNMP tools found (snmp, snmpd)")
  return()
endif()

# The MIB needs modules that Debian doesn't have; without npm, what needs the MIB is skipped.
set(smi ${PROJECT_BINARY_DIR}/smi)
add_test(NAME smi_modules COMMAND ${PROJECT_SOURCE_DIR}/agent/smi-modules ${smi})
set_tests_properties(smi_modules PROPERTIES FIXTURES_SETUP smi SKIP_RETURN_CODE 77)

# Tests of the agent share what Site.h needs.
add_library(agent_site INTERFACE)
target_link_libraries(agent_site INTERFACE GTest::gtest_main corvanta_flags)
target_compile_definitions(agent_site INTERFACE
  SNMPD="${SNMPD}"
  CORVANTAD="$<TARGET_FILE:corvantad>"
  QUORLET="$<TARGET_FILE:quorlet>"
  ON_DEVICE="env CORVANTA_BUILD=${PROJECT_BINARY_DIR} ${PROJECT_SOURCE_DIR}/scripts/on-device"
  SMI="${smi}"
  MIB="${PROJECT_SOURCE_DIR}/agent/CORVANTA-MIB.txt"
  SNMPD_CONF="${PROJECT_BINARY_DIR}/agent/snmpd-corvanta.conf"
  PVC="${PROJECT_SOURCE_DIR}/device/pvc"
  ROOT_OID=".1.3.6.1.4.1.${CORVANTA_ENTERPRISE}.1")
add_dependencies(agent_site corvantad quorlet pvcshim)

add_executable(watch_test watch_test.cpp)
target_link_libraries(watch_test PRIVATE agent_site)
if(CORVANTA_HARDENED) # a refresh under sanitizers takes longer than it allows
  add_test(NAME watch_test COMMAND watch_test)
  set_tests_properties(watch_test PROPERTIES RUN_SERIAL ON TIMEOUT 900)
endif()

add_executable(agent_test agent_test.cpp)
target_link_libraries(agent_test PRIVATE agent_site)
add_test(NAME agent_test COMMAND agent_test)
set_tests_properties(agent_test PROPERTIES FIXTURES_REQUIRED smi RUN_SERIAL ON TIMEOUT 900)

add_executable(field_test field_test.cpp ${PROJECT_SOURCE_DIR}/agent/Sandbox.cpp)
target_link_libraries(field_test PRIVATE agent_site PkgConfig::SECCOMP)
target_compile_definitions(field_test PRIVATE UNIT="${PROJECT_BINARY_DIR}/agent/corvantad.service")
if(CORVANTA_HARDENED) # likewise
  add_test(NAME field_test COMMAND field_test)
  set_tests_properties(field_test PROPERTIES TIMEOUT 900)
endif()

add_executable(change_test change_test.cpp)
target_link_libraries(change_test PRIVATE agent_site)
if(CORVANTA_HARDENED) # likewise
  add_test(NAME change_test COMMAND change_test)
  set_tests_properties(change_test PROPERTIES TIMEOUT 1800)
endif()

# A fault at each command of the client. It is linked statically: a run of the tests starts it a
# million times. Under sanitizers it would take hours.
if(CORVANTA_HARDENED)
  add_executable(fault_client
    fault_client.cpp ${PROJECT_SOURCE_DIR}/device/quorlet.cpp ${PROJECT_SOURCE_DIR}/device/Command.cpp)
  set_source_files_properties(${PROJECT_SOURCE_DIR}/device/quorlet.cpp PROPERTIES COMPILE_DEFINITIONS main=quorlet)
  target_compile_options(fault_client PRIVATE -O2)
  target_link_options(fault_client PRIVATE -static)
  target_compile_definitions(fault_client PRIVATE LOCK_SECONDS="15")
  target_link_libraries(fault_client PRIVATE corvanta_flags sqlite3 m)

  add_executable(faults_test faults_test.cpp)
  target_link_libraries(faults_test PRIVATE agent_site)
  target_compile_definitions(faults_test PRIVATE FAULT_CLIENT="$<TARGET_FILE:fault_client>")
  add_dependencies(faults_test fault_client)
  add_test(NAME faults_test COMMAND faults_test)
  set_tests_properties(faults_test PROPERTIES RUN_SERIAL ON TIMEOUT 3600)
endif()

find_program(SCRIPT script)
if(NOT SCRIPT OR NOT CORVANTA_HARDENED)
  message(STATUS "tests: corvanta_set_test left out, needs script (bsdutils) and an optimized build")
  return()
endif()
add_test(NAME corvanta_set_test
  COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/corvanta_set_test.sh ${PROJECT_BINARY_DIR})
set_tests_properties(corvanta_set_test PROPERTIES
  FIXTURES_REQUIRED smi SKIP_RETURN_CODE 77 RUN_SERIAL ON TIMEOUT 1800)
