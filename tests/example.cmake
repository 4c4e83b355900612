# The worked example of adding an object, in a copy of the sources.
if(NOT CORVANTA_HARDENED OR NOT TARGET agent_test)
  return()
endif()
find_program(SMILINT smilint)
if(NOT SMILINT)
  message(STATUS "tests: example_test left out, smilint not found (smitools)")
  return()
endif()
add_test(NAME example_test COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/example_test.sh ${smi})
set_tests_properties(example_test PROPERTIES TIMEOUT 900 COST 300 PROCESSORS 2
  ENVIRONMENT CMAKE_GENERATOR=${CMAKE_GENERATOR})
