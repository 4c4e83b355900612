# The files of monitoring/ with the programs that use them, and the pages in a browser on a small fleet.
find_program(GENERATOR prometheus-snmp-generator)
find_program(PROMTOOL promtool)
find_program(AMTOOL amtool)
find_program(SNMPTRAPD snmptrapd PATHS /usr/sbin)
find_program(CHROMEDRIVER chromedriver)
if(NOT CORVANTA_HARDENED OR CMAKE_CROSSCOMPILING OR NOT TEST agent_test
    OR NOT GENERATOR OR NOT PROMTOOL OR NOT AMTOOL OR NOT SNMPTRAPD)
  message(STATUS "tests: monitoring left out, needs an optimized native build with the agent, "
    "prometheus, prometheus-snmp-exporter, prometheus-alertmanager and snmptrapd")
  return()
endif()
foreach(group generator rules routes credentials notifications)
  add_test(NAME monitoring_${group}
    COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/monitoring_test.sh ${group} ${smi} ${PROJECT_BINARY_DIR})
  set_tests_properties(monitoring_${group} PROPERTIES TIMEOUT 300)
endforeach()
if(CHROMEDRIVER)
  add_test(NAME monitoring_page COMMAND ${PROJECT_SOURCE_DIR}/scripts/fleet --check 3)
  set_tests_properties(monitoring_page PROPERTIES
    ENVIRONMENT CORVANTA_BUILD=${PROJECT_BINARY_DIR} TIMEOUT 600)
else()
  message(STATUS "tests: monitoring_page left out, chromedriver not found (chromium-driver)")
endif()
