# The stand-in device by itself, where it is built.
if(TARGET quorlet)
  find_package(SQLite3 REQUIRED)
  add_executable(device_test device_test.cpp)
  target_link_libraries(device_test PRIVATE GTest::gtest_main SQLite::SQLite3 corvanta_flags)
  target_compile_definitions(device_test PRIVATE
    QUORLET="$<TARGET_FILE:quorlet>"
    ON_DEVICE="${PROJECT_SOURCE_DIR}/scripts/on-device")
  add_dependencies(device_test quorlet pvcshim)
  add_test(NAME device_test COMMAND device_test)
  set_tests_properties(device_test PROPERTIES ENVIRONMENT CORVANTA_BUILD=${PROJECT_BINARY_DIR})
endif()
