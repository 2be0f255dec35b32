# mg_windows_library(<target> <name> LIBRARIES lib.a ... [LINK lib ...])
#
# A library that Debian does not have for Windows: scripts/<name> builds it from Debian's source into build/<name>, when
# the first program that needs it is built. <target> is what such a program links to.
function(mg_windows_library target name)
  cmake_parse_arguments(arg "" "" "LIBRARIES;LINK" ${ARGN})
  set(place "${CMAKE_SOURCE_DIR}/build/${name}")
  list(TRANSFORM arg_LIBRARIES PREPEND "${place}/lib/" OUTPUT_VARIABLE libraries)
  add_custom_command(OUTPUT ${libraries} COMMAND "${CMAKE_SOURCE_DIR}/scripts/${name}" VERBATIM USES_TERMINAL
    COMMENT "Fetching Debian's source and building build/${name}, which takes a minute or two")
  add_custom_target(${target}_built DEPENDS ${libraries})
  add_library(${target} INTERFACE)
  add_dependencies(${target} ${target}_built)
  target_include_directories(${target} SYSTEM INTERFACE "${place}/include")
  target_link_libraries(${target} INTERFACE ${libraries} ${arg_LINK})
endfunction()
