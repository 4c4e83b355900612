# The library under valgrind, scripted and on the device. The test program's own operator new stays.
find_program(VALGRIND valgrind)
if(NOT CORVANTA_HARDENED OR CMAKE_CROSSCOMPILING OR NOT VALGRIND)
  message(STATUS "tests: memcheck left out, needs valgrind and an optimized native build")
  return()
endif()
set(memcheck ${VALGRIND} --quiet --error-exitcode=9 --leak-check=full --show-leak-kinds=definite
  --errors-for-leak-kinds=definite --soname-synonyms=somalloc=nouserintercepts
  --suppressions=${CMAKE_CURRENT_SOURCE_DIR}/valgrind.supp)
add_test(NAME library_memcheck COMMAND ${memcheck} $<TARGET_FILE:library_test>)
if(TARGET road_test)
  add_test(NAME road_memcheck COMMAND ${on_device} ${memcheck} $<TARGET_FILE:road_test>)
  set_tests_properties(road_memcheck PROPERTIES
    ENVIRONMENT CORVANTA_BUILD=${PROJECT_BINARY_DIR})
endif()
