# mg_folder(<name> SOURCES a.cpp ... [TESTS a_test.cpp ...] [LINK lib ...] [TEST_LINK lib ...])
#
# One folder of the source tree: a static library <name> and, when it has tests, one test binary <name>_tests that
# runs as one ctest entry. A *_test.cpp file in the folder that its CMakeLists.txt does not name stops the build.
function(mg_folder name)
  cmake_parse_arguments(arg "" "" "SOURCES;TESTS;LINK;TEST_LINK" ${ARGN})
  mg_check_tests_registered()

  add_library(${name} STATIC ${arg_SOURCES})
  mg_own_headers(${name})
  target_link_libraries(${name} PUBLIC ${arg_LINK} PRIVATE mg_warnings)
  target_include_directories(${name} PUBLIC "${CMAKE_SOURCE_DIR}")
  if(NOT WIN32)
    target_link_libraries(${name} PUBLIC Threads::Threads)
  endif()
  if(MG_COVERAGE)
    target_compile_options(${name} PRIVATE ${MG_COVERAGE_OPTIONS})
    target_link_options(${name} INTERFACE --coverage)
  endif()

  if(arg_TESTS)
    mg_test_binary(${name}_tests SOURCES ${arg_TESTS} LINK ${name} ${arg_TEST_LINK})
  endif()
endfunction()

# mg_program(<name> SOURCES main.cpp ... [LINK lib ...]): an executable in bin/.
function(mg_program name)
  cmake_parse_arguments(arg "" "" "SOURCES;LINK" ${ARGN})
  add_executable(${name} ${arg_SOURCES})
  mg_own_headers(${name})
  target_link_libraries(${name} PRIVATE ${arg_LINK} mg_warnings)
  if(WIN32)
    target_link_options(${name} PRIVATE -municode)
  endif()
endfunction()

# mg_test_binary(<name> SOURCES ... [LINK ...]): a GoogleTest binary and its ctest entry of the same name.
function(mg_test_binary name)
  cmake_parse_arguments(arg "" "" "SOURCES;LINK" ${ARGN})
  add_executable(${name} ${arg_SOURCES})
  target_link_libraries(${name} PRIVATE ${arg_LINK} mg_test_main GTest::gmock GTest::gtest mg_warnings)
  # Fixtures are in unnamed namespaces, which the compiler takes for a mistake where sources are compiled as one.
  target_compile_options(${name} PRIVATE ${MG_TEST_OPTIONS} $<$<AND:$<BOOL:${MG_UNITY}>,$<CXX_COMPILER_ID:GNU>>:-Wno-subobject-linkage>)
  target_precompile_headers(${name} REUSE_FROM mg_test_headers)
  add_test(NAME ${name} COMMAND ${name})
  set_tests_properties(${name} PROPERTIES TIMEOUT 300)
endfunction()

function(mg_check_tests_registered)
  file(READ "${CMAKE_CURRENT_SOURCE_DIR}/CMakeLists.txt" text)
  file(GLOB_RECURSE tests RELATIVE "${CMAKE_CURRENT_SOURCE_DIR}" CONFIGURE_DEPENDS "${CMAKE_CURRENT_SOURCE_DIR}/*_test.cpp")
  foreach(test ${tests})
    string(FIND "${text}" "${test}" at)
    if(at EQUAL -1)
      message(FATAL_ERROR "${CMAKE_CURRENT_SOURCE_DIR}/${test} is not registered in its CMakeLists.txt")
    endif()
  endforeach()
endfunction()
