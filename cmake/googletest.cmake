# GTest::gtest_main: Debian's library, or its sources built for the target when cross compiling.
# Comes before the project's own options, which are not made for code of others.
if(NOT CMAKE_CROSSCOMPILING)
  find_package(GTest REQUIRED)
else()
  set(CMAKE_CXX_STANDARD 20)
  set(INSTALL_GTEST OFF CACHE BOOL "" FORCE)
  set(BUILD_GMOCK OFF CACHE BOOL "" FORCE)
  add_subdirectory(/usr/src/googletest ${CMAKE_BINARY_DIR}/googletest EXCLUDE_FROM_ALL)
  target_compile_options(gtest PRIVATE -w)
endif()
include(GoogleTest)
