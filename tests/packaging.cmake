# What is built, installed and packaged. Each has packages of its own to work with.
find_program(ABIDW abidw)
find_program(LINTIAN lintian)
find_program(DH dh)
if(CORVANTA_HARDENED)
  add_test(NAME check_build COMMAND scripts/check-build ${PROJECT_BINARY_DIR}
    WORKING_DIRECTORY ${PROJECT_SOURCE_DIR})
endif()
if(CORVANTA_HARDENED AND NOT CMAKE_CROSSCOMPILING)
  add_test(NAME install_test
    COMMAND tests/install_test.sh ${PROJECT_BINARY_DIR} ${PROJECT_VERSION}
    WORKING_DIRECTORY ${PROJECT_SOURCE_DIR})
  if(ABIDW)
    add_test(NAME abi_check COMMAND scripts/abi check WORKING_DIRECTORY ${PROJECT_SOURCE_DIR})
    set_tests_properties(abi_check PROPERTIES
      ENVIRONMENT CORVANTA_ABI_BUILD=${PROJECT_BINARY_DIR}/abi)
  else()
    message(STATUS "tests: abi_check left out, abidw not found (abigail-tools)")
  endif()
  if(LINTIAN AND DH AND TARGET corvantad AND TARGET quorlet)
    add_test(NAME package_test
      COMMAND tests/package_test.sh ${PROJECT_BINARY_DIR} ${PROJECT_VERSION}
      WORKING_DIRECTORY ${PROJECT_SOURCE_DIR})
  else()
    message(STATUS "tests: package_test left out, needs debhelper, lintian, the agent and the device")
  endif()
endif()
