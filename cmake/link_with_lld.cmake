# mg_link_with_lld(<target>): LLVM's linker links this binary for Windows, which takes it a fraction of a second where
# GNU's needs up to a minute for code that is not optimised. For what stays here: what is installed is linked by GNU's.
set(MG_LLD_WRAPPER "${CMAKE_CURRENT_LIST_DIR}/link-with-lld")
set(MG_LLD_LIBRARY "${CMAKE_BINARY_DIR}/link_with_lld/libstdc++.a")
execute_process(COMMAND ${CMAKE_CXX_COMPILER} -print-file-name=libstdc++.a
  OUTPUT_VARIABLE libstdcxx OUTPUT_STRIP_TRAILING_WHITESPACE)
set(tool "${CMAKE_CURRENT_LIST_DIR}/add_section_symbols.py")
add_custom_command(OUTPUT "${MG_LLD_LIBRARY}" COMMAND python3 "${tool}" "${libstdcxx}" "${MG_LLD_LIBRARY}"
  DEPENDS "${tool}" "${libstdcxx}" VERBATIM)
add_custom_target(mg_lld_library DEPENDS "${MG_LLD_LIBRARY}")

function(mg_link_with_lld target)
  add_dependencies(${target} mg_lld_library)
  target_link_options(${target} PRIVATE -wrapper "${MG_LLD_WRAPPER}" "-L${CMAKE_BINARY_DIR}/link_with_lld")
  set_property(TARGET ${target} APPEND PROPERTY LINK_DEPENDS "${MG_LLD_WRAPPER}" "${MG_LLD_LIBRARY}")
endfunction()
