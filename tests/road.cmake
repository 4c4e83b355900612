# The library on the stand-in device, through the real shell and client.
if(TARGET quorlet)
  add_executable(road_test road_test.cpp)
  target_link_libraries(road_test PRIVATE
    corvanta::corvanta GTest::gtest_main SQLite::SQLite3 corvanta_flags)
  target_compile_definitions(road_test PRIVATE
    ON_DEVICE="${PROJECT_SOURCE_DIR}/scripts/on-device")
  add_dependencies(road_test quorlet pvcshim)
  add_test(NAME road_test
    COMMAND ${PROJECT_SOURCE_DIR}/scripts/on-device
      ${CMAKE_CURRENT_BINARY_DIR}/road $<TARGET_FILE:road_test>)
  set_tests_properties(road_test PROPERTIES
    ENVIRONMENT CORVANTA_BUILD=${PROJECT_BINARY_DIR})
endif()
