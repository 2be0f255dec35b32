# GoogleTest from Debian's source package, built with the same compiler and sanitizers as the tests.
set(BUILD_GMOCK ON CACHE BOOL "" FORCE)
set(INSTALL_GTEST OFF CACHE BOOL "" FORCE)
add_subdirectory(/usr/src/googletest "${CMAKE_BINARY_DIR}/googletest" EXCLUDE_FROM_ALL)

# Test code is compiled for the compiler's time, not for its own: without optimisation, and with GoogleTest's headers
# precompiled once for all test binaries.
add_library(mg_test_headers OBJECT "${CMAKE_CURRENT_LIST_DIR}/test_headers.cpp")
target_link_libraries(mg_test_headers PUBLIC GTest::gmock GTest::gtest PRIVATE mg_warnings)
target_precompile_headers(mg_test_headers PRIVATE
  <gmock/gmock.h> <gtest/gtest.h> <functional> <map> <memory> <mutex> <string> <thread> <vector>)
set(MG_TEST_OPTIONS -O0 -fpch-preprocess)
target_compile_options(mg_test_headers PRIVATE ${MG_TEST_OPTIONS})
