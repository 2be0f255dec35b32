# Header-only libraries of Debian (Boost, CLI11, fmt, nlohmann-json) stand under /usr/include, which the cross compiler must not
# search as a whole. Their folders alone are linked into the build tree. Programs use them; MgPrintMon.dll does not.
set(MG_HOST_HEADERS "${CMAKE_BINARY_DIR}/host-headers")
file(MAKE_DIRECTORY "${MG_HOST_HEADERS}")
foreach(folder boost CLI fmt nlohmann)
  if(NOT EXISTS "/usr/include/${folder}")
    message(FATAL_ERROR "/usr/include/${folder} is missing; run scripts/setup first")
  endif()
  if(NOT EXISTS "${MG_HOST_HEADERS}/${folder}")
    file(CREATE_LINK "/usr/include/${folder}" "${MG_HOST_HEADERS}/${folder}" SYMBOLIC)
  endif()
endforeach()
add_library(mg_host_headers INTERFACE)
target_include_directories(mg_host_headers SYSTEM INTERFACE "${MG_HOST_HEADERS}")
# fmt is compiled once for all and linked into what uses it, so that no program needs its shared library. As a header it
# would cost each source two seconds.
add_library(mg_fmt STATIC "${CMAKE_CURRENT_LIST_DIR}/fmt.cpp")
target_include_directories(mg_fmt SYSTEM PUBLIC "${MG_HOST_HEADERS}")
target_link_libraries(mg_host_headers INTERFACE mg_fmt)
