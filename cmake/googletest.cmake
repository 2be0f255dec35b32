# GoogleTest from Debian's source package, built with the same compiler and sanitizers as the tests.
set(BUILD_GMOCK ON CACHE BOOL "" FORCE)
set(INSTALL_GTEST OFF CACHE BOOL "" FORCE)
add_subdirectory(/usr/src/googletest "${CMAKE_BINARY_DIR}/googletest" EXCLUDE_FROM_ALL)
# It is as uninteresting to the optimiser as to somebody who reads a sanitizer's report. Addresses and threads are watched in
# it nevertheless, because it holds what belongs to the tests.
foreach(target gtest gmock)
  target_compile_options(${target} PRIVATE -O0 -g0)
  if(MG_SANITIZE)
    target_compile_options(${target} PRIVATE -fno-sanitize=undefined)
  endif()
endforeach()

# Test code is compiled for the compiler's time, not for its own: without optimisation, and with GoogleTest's headers
# precompiled once for all test binaries.
add_library(mg_test_headers OBJECT "${CMAKE_CURRENT_LIST_DIR}/test_headers.cpp")
target_link_libraries(mg_test_headers PUBLIC GTest::gmock GTest::gtest PRIVATE mg_warnings)
target_precompile_headers(mg_test_headers PRIVATE
  <gmock/gmock.h> <gtest/gtest.h> <functional> <map> <memory> <mutex> <string> <thread> <vector>)
if(MG_PRECOMPILE)
  target_precompile_headers(mg_test_headers PRIVATE ${MG_OWN_HEADERS})
endif()
set(MG_TEST_OPTIONS -O0 ${MG_PRECOMPILE_OPTIONS})
if(WIN32)
  # GNU's assembler for Windows goes through all sections for each new one, and code that is not optimised has tens of
  # thousands: it took as long as the compiler. What is installed is assembled by it nevertheless.
  list(APPEND MG_TEST_OPTIONS "-specs=${CMAKE_CURRENT_LIST_DIR}/assemble-with-llvm.specs" "-B${CMAKE_CURRENT_LIST_DIR}/")
endif()
target_compile_options(mg_test_headers PRIVATE ${MG_TEST_OPTIONS})

# What every test binary has: its main function, and a bound for each of its tests.
set(support "${CMAKE_SOURCE_DIR}/tests/support")
add_library(mg_test_main STATIC "${support}/test_main.cpp" "${support}/test_deadline.cpp"
  "${support}/test_deadline_$<IF:$<BOOL:${WIN32}>,windows,posix>.cpp")
# The deadline is its own object: a binary with a main of its own takes it alone.
set_target_properties(mg_test_main PROPERTIES UNITY_BUILD OFF)
target_include_directories(mg_test_main PRIVATE "${CMAKE_SOURCE_DIR}")
target_link_libraries(mg_test_main PUBLIC GTest::gmock GTest::gtest PRIVATE mg_warnings)
target_compile_options(mg_test_main PRIVATE ${MG_TEST_OPTIONS})
target_precompile_headers(mg_test_main REUSE_FROM mg_test_headers)
