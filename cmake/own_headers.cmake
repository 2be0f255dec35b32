# The standard library and <windows.h>, precompiled once for all folders and programs. A source still includes what it
# uses: the presets windows-x64-coverage and linux-fuzz build each one alone and without (MG_UNITY and MG_PRECOMPILE are
# off there). CLI11 and nlohmann-json are no part of it, because whatever includes CLI11 pays seconds for code that it
# never calls.
option(MG_PRECOMPILE "Precompile the headers that most sources include" ON)

set(MG_OWN_HEADERS
  <algorithm> <array> <atomic> <chrono> <condition_variable> <cstdint> <cstring> <cwchar> <filesystem> <fstream>
  <functional> <map> <memory> <mutex> <optional> <span> <sstream> <stdexcept> <string> <string_view> <thread> <vector>)
if(WIN32)
  list(APPEND MG_OWN_HEADERS <winsock2.h> <windows.h> <winspool.h>)
endif()

if(CMAKE_CXX_COMPILER_ID MATCHES Clang)
  # What it precompiles names this checkout, so another one would share nothing with it; and with some sources at a time it
  # was measured to save nothing.
  set(CMAKE_DISABLE_PRECOMPILE_HEADERS ON)
else()
  set(MG_PRECOMPILE_OPTIONS -fpch-preprocess)  # for ccache
endif()

if(MG_PRECOMPILE)
  add_library(mg_own_headers OBJECT "${CMAKE_CURRENT_LIST_DIR}/own_headers.cpp")
  target_link_libraries(mg_own_headers PRIVATE mg_warnings)
  target_precompile_headers(mg_own_headers PRIVATE ${MG_OWN_HEADERS})
  # GCC 12 sees too small buffers in std::string that are none; it keeps that to itself for a system header, but not for
  # one that was precompiled. In the portable code the preset linux looks for real ones, in the Windows code the guarded
  # heap of the tests.
  set(MG_OWN_HEADERS_OPTIONS ${MG_PRECOMPILE_OPTIONS}
    $<$<CXX_COMPILER_ID:GNU>:-Wno-array-bounds>
    $<$<CXX_COMPILER_ID:GNU>:-Wno-stringop-overflow>
    $<$<CXX_COMPILER_ID:GNU>:-Wno-stringop-overread>)
  target_compile_options(mg_own_headers PRIVATE ${MG_OWN_HEADERS_OPTIONS})
endif()

# mg_own_headers(<target> ...): the targets use them. The options of the targets must be those of all.
function(mg_own_headers)
  if(MG_PRECOMPILE)
    foreach(target ${ARGN})
      target_precompile_headers(${target} REUSE_FROM mg_own_headers)
      target_compile_options(${target} PRIVATE ${MG_OWN_HEADERS_OPTIONS})
    endforeach()
  endif()
endfunction()

# mg_command_line(<target> ...): the targets read a command line with CLI11, which is slow to optimise and runs once. What is
# precompiled for the others was so with optimisation, and the compiler would read it all again.
function(mg_command_line)
  foreach(target ${ARGN})
    set_target_properties(${target} PROPERTIES DISABLE_PRECOMPILE_HEADERS ON)
    target_compile_options(${target} PRIVATE $<$<NOT:$<CONFIG:Debug>>:-O1>)
  endforeach()
endfunction()
