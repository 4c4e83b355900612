# The stand-in device by itself, and the library on it through the real shell and client.
if(NOT TARGET quorlet)
  return()
endif()
find_package(SQLite3 REQUIRED)
foreach(name device_test road_test)
  add_executable(${name} ${name}.cpp)
  target_link_libraries(${name} PRIVATE GTest::gtest_main SQLite::SQLite3 corvanta_flags)
  target_compile_definitions(${name} PRIVATE
    QUORLET="$<TARGET_FILE:quorlet>"
    ON_DEVICE="${PROJECT_SOURCE_DIR}/scripts/on-device")
  add_dependencies(${name} quorlet pvcshim)
endforeach()
target_link_libraries(road_test PRIVATE corvanta::corvanta)
set(on_device ${PROJECT_SOURCE_DIR}/scripts/on-device ${CMAKE_CURRENT_BINARY_DIR}/road)
add_test(NAME device_test COMMAND device_test)
add_test(NAME road_test COMMAND ${on_device} $<TARGET_FILE:road_test>)
set_tests_properties(device_test road_test PROPERTIES
  ENVIRONMENT CORVANTA_BUILD=${PROJECT_BINARY_DIR})
