# GTest::gtest and GTest::gtest_main: the installed ones, or for another machine or standard library
# built from the sources that the package googletest installs. GTest_FOUND tells.
if(NOT CMAKE_CROSSCOMPILING AND NOT CMAKE_CXX_FLAGS MATCHES "-stdlib=")
  find_package(GTest QUIET)
elseif(EXISTS /usr/src/googletest/CMakeLists.txt)
  set(BUILD_GMOCK OFF)
  set(INSTALL_GTEST OFF)
  add_subdirectory(/usr/src/googletest ${PROJECT_BINARY_DIR}/googletest EXCLUDE_FROM_ALL SYSTEM)
  set(GTest_FOUND TRUE)
endif()
