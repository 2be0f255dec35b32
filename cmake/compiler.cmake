# Language, warnings, sanitizers and the place of the binaries: the same for every folder.
set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/bin")
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/bin")

find_program(CCACHE ccache)
if(CCACHE)
  # Two checkouts of one state share what was compiled, precompiled headers included.
  set(launcher "${CMAKE_COMMAND}" -E env "CCACHE_BASEDIR=${CMAKE_SOURCE_DIR}" CCACHE_NOHASHDIR=true
    CCACHE_SLOPPINESS=pch_defines,time_macros,include_file_mtime,include_file_ctime "${CCACHE}")
  set(CMAKE_C_COMPILER_LAUNCHER "${launcher}")
  set(CMAKE_CXX_COMPILER_LAUNCHER "${launcher}")
endif()
set(CMAKE_CXX_FLAGS_RELEASE "-O2 -DNDEBUG")

# Warnings apply to our own targets only; GoogleTest is built as it comes.
add_library(mg_warnings INTERFACE)
target_compile_options(mg_warnings INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wno-sign-conversion -Wnon-virtual-dtor -Werror
  # GCC 12 sees overlaps in std::string that are none.
  $<$<CXX_COMPILER_ID:GNU>:-Wno-restrict>)
target_include_directories(mg_warnings INTERFACE "${CMAKE_SOURCE_DIR}")

if(WIN32)
  add_compile_definitions(UNICODE _UNICODE WIN32_LEAN_AND_MEAN NOMINMAX _WIN32_WINNT=0x0A00)
  # Of an inline function that several objects have, the linker keeps one. For Windows GCC 12 takes its own for that one, and
  # the caller then relies on registers that another object's, made with other options, does not leave alone.
  add_compile_options(-fno-ipa-ra)
  # Everything of the compiler's run time is linked in: our binaries need system DLLs only.
  add_link_options(-static -static-libgcc -static-libstdc++)
else()
  find_package(Threads REQUIRED)
endif()

# Counters in the folders' libraries, not in their tests. Threads count, too.
option(MG_COVERAGE "Count which lines and branches of the folders' libraries run" OFF)
set(MG_COVERAGE_OPTIONS --coverage -fprofile-update=atomic)

set(MG_SANITIZE "" CACHE STRING "Sanitizers for the whole build, as in -fsanitize=")
if(MG_SANITIZE)
  # Tests wait for more than they compute, so that optimising would cost more time than it saves; fuzzing only computes.
  # What a sanitizer reports has files and lines; nobody looks at variables.
  add_compile_options(-fsanitize=${MG_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${MG_SANITIZE} $<$<CXX_COMPILER_ID:Clang>:-fuse-ld=lld>)
  if(MG_SANITIZE STREQUAL thread)
    # The fences of Boost stand beside locks, which the sanitizer sees; a build folder of before is GCC's.
    add_compile_options($<$<CXX_COMPILER_ID:GNU>:-Wno-tsan>)
  endif()
  if(MG_FUZZ)
    set(CMAKE_CXX_FLAGS_DEBUG "-O1 -g1")
  else()
    set(CMAKE_CXX_FLAGS_DEBUG "-O0 -g1")
  endif()
endif()

# Some sources at a time are compiled as one, because most of the time goes into headers: what a folder's sources keep to
# themselves must not have the same name twice, nor hide what another one means (cmake/check_unity.py). The presets
# without this see whether a source includes what it uses. This number is the only place that says how many; fewer are
# quicker to compile when one has been changed, more are quicker when all have.
option(MG_UNITY "Compile some sources of a folder at a time as one" ON)
if(MG_UNITY)
  # What a class of a header has of an unnamed namespace, the compiler takes for a mistake where sources are compiled as one.
  target_compile_options(mg_warnings INTERFACE $<$<CXX_COMPILER_ID:GNU>:-Wno-subobject-linkage>)
  set(CMAKE_UNITY_BUILD ON)
  set(CMAKE_UNITY_BUILD_BATCH_SIZE 80)
endif()

if(CMAKE_CXX_COMPILER_ID STREQUAL GNU)
  # So many sources need memory, and the compiler collects less often when it may take that: kilobytes.
  add_compile_options(--param=ggc-min-heapsize=524288)
endif()
