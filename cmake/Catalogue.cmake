# kw_add_wrappers_dll(<target> KNOWN_TYPE_NAMES <file> [EXPOSERS <file>] [SOURCES <files...>])
# Builds one wrappers DLL: the whole hand-written frame, the chain of type-name
# tests generated from the catalogue's known names, and the catalogue's own
# generated sources. The DLL exports GetModuleIntf only.
function(kw_add_wrappers_dll target)
  cmake_parse_arguments(D "" "KNOWN_TYPE_NAMES;EXPOSERS" "SOURCES" ${ARGN})
  set(chain ${CMAKE_CURRENT_BINARY_DIR}/${target}_type_chain.cpp)
  set(chain_args ${D_KNOWN_TYPE_NAMES} ${chain})
  set(chain_deps ${D_KNOWN_TYPE_NAMES} ${PROJECT_SOURCE_DIR}/generator/emit_type_chain.py)
  if(D_EXPOSERS)
    list(APPEND chain_args --exposers ${D_EXPOSERS})
    list(APPEND chain_deps ${D_EXPOSERS})
  endif()
  add_custom_command(OUTPUT ${chain}
    COMMAND ${Python3_EXECUTABLE} ${PROJECT_SOURCE_DIR}/generator/emit_type_chain.py ${chain_args}
    DEPENDS ${chain_deps}
    COMMENT "Generating the type-name chain of ${target}")

  add_library(${target} SHARED ${chain} ${D_SOURCES} ${PROJECT_SOURCE_DIR}/module/kwQtWrappers.def)
  set_target_properties(${target} PROPERTIES PREFIX "" OUTPUT_NAME ${target})
  target_link_libraries(${target} PRIVATE $<LINK_LIBRARY:WHOLE_ARCHIVE,kwframe>)
  target_link_options(${target} PRIVATE -Wl,--exclude-all-symbols)
endfunction()
