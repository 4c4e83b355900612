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

# What CORVANTA-MIB imports. One test compares it with the standard modules, which Debian doesn't have.
set(smi ${PROJECT_SOURCE_DIR}/agent/share/modules)
add_test(NAME mib_test COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/mib_test.sh ${PROJECT_BINARY_DIR}/smi)
set_tests_properties(mib_test PROPERTIES SKIP_RETURN_CODE 77 TIMEOUT 120)

# A test of the agent, with what Site.h needs.
function(add_site_test name timeout)
  add_executable(${name} ${name}.cpp ${ARGN})
  target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR})
  target_link_libraries(${name} PRIVATE GTest::gtest_main corvanta_flags)
  target_compile_definitions(${name} PRIVATE
    SNMPD="${SNMPD}"
    CORVANTAD="$<TARGET_FILE:corvantad>"
    QUORLET="$<TARGET_FILE:quorlet>"
    ON_DEVICE="env CORVANTA_BUILD=${PROJECT_BINARY_DIR} ${PROJECT_SOURCE_DIR}/scripts/on-device"
    SMI="${smi}"
    MIB="${PROJECT_SOURCE_DIR}/agent/share/CORVANTA-MIB.txt"
    SNMPD_CONF="${PROJECT_BINARY_DIR}/agent/snmpd-corvanta.conf"
    PVC="${PROJECT_SOURCE_DIR}/device/pvc"
    ROOT_OID=".1.3.6.1.4.1.${CORVANTA_ENTERPRISE}.1")
  add_dependencies(${name} corvantad quorlet pvcshim)
  add_test(NAME ${name} COMMAND ${name})
  set_tests_properties(${name} PROPERTIES TIMEOUT ${timeout} COST 100)
endfunction()

add_site_test(agent_test 900)

# Under sanitizers a refresh takes longer than these allow, or all of them take hours.
if(NOT CORVANTA_HARDENED)
  return()
endif()
add_site_test(watch_test 900)

add_site_test(field_test 900 ${PROJECT_SOURCE_DIR}/agent/net/Sandbox.cpp)
target_link_libraries(field_test PRIVATE PkgConfig::SECCOMP)
target_compile_definitions(field_test PRIVATE UNIT="${PROJECT_BINARY_DIR}/agent/corvantad.service")

add_site_test(change_test 1800)

# A fault at each command of the client, which is linked statically: a run of the tests starts it a
# million times.
add_executable(fault_client
  fault_client.cpp ${PROJECT_SOURCE_DIR}/device/quorlet.cpp ${PROJECT_SOURCE_DIR}/device/Command.cpp)
set_source_files_properties(${PROJECT_SOURCE_DIR}/device/quorlet.cpp PROPERTIES COMPILE_DEFINITIONS main=quorlet)
target_compile_options(fault_client PRIVATE -O2)
target_link_options(fault_client PRIVATE -static LINKER:--no-warnings) # of dlopen(), which it never calls
target_compile_definitions(fault_client PRIVATE LOCK_SECONDS="15")
target_link_libraries(fault_client PRIVATE corvanta_flags sqlite3 m)

add_site_test(faults_test 3600)
set_tests_properties(faults_test PROPERTIES COST 1000 PROCESSORS 2) # the first to begin
target_compile_definitions(faults_test PRIVATE FAULT_CLIENT="$<TARGET_FILE:fault_client>")
add_dependencies(faults_test fault_client)

find_program(SCRIPT script)
if(NOT SCRIPT)
  message(STATUS "tests: corvanta_set_test left out, needs script (bsdutils)")
  return()
endif()
add_test(NAME corvanta_set_test
  COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/corvanta_set_test.sh ${PROJECT_BINARY_DIR})
set_tests_properties(corvanta_set_test PROPERTIES
  TIMEOUT 1800)

# The process that owns the device, in a world in memory.
add_executable(world_test simulation/World.cpp simulation/world_test.cpp
  ${PROJECT_SOURCE_DIR}/agent/Log.cpp)
target_include_directories(world_test PRIVATE simulation)
target_link_libraries(world_test PRIVATE
  agent_change agent_link agent_dev corvanta::corvanta corvanta_flags GTest::gtest_main)
set_target_properties(world_test PROPERTIES ENABLE_EXPORTS ON) # the library calls into it
add_test(NAME world_test COMMAND world_test)

# The process that faces the network, likewise; its toolkit is not needed for what decides.
set(net ${PROJECT_SOURCE_DIR}/agent/net)
add_executable(sets_test simulation/World.cpp simulation/sets_test.cpp
  ${net}/Answers.cpp ${net}/ManagerRequest.cpp ${net}/SetLog.cpp ${net}/Sets.cpp ${net}/Snapshots.cpp
  ${PROJECT_SOURCE_DIR}/agent/Log.cpp)
target_include_directories(sets_test PRIVATE simulation)
target_link_libraries(sets_test PRIVATE agent_change agent_link corvanta_flags GTest::gtest_main)
add_test(NAME sets_test COMMAND sets_test)
