# What runs a program of the library's under valgrind, which keeps the program's own operator new; empty
# where that is left out.
set(memcheck "")
find_program(VALGRIND valgrind)
if(NOT CORVANTA_HARDENED OR CMAKE_CROSSCOMPILING OR NOT VALGRIND)
  message(STATUS "tests: memcheck left out, needs valgrind and an optimized native build")
  return()
endif()
set(memcheck ${VALGRIND} --quiet --error-exitcode=9 --leak-check=full --show-leak-kinds=definite
  --errors-for-leak-kinds=definite --soname-synonyms=somalloc=nouserintercepts
  --suppressions=${CMAKE_CURRENT_SOURCE_DIR}/valgrind.supp)
