# kw_add_wrappers_dll(<target> KNOWN_TYPE_NAMES <file> [EXPOSERS <file>] [SOURCES <files...>]
#                     [DECLARATIONS <declarations file> CATALOGUE <folder>
#                      [TYPE_LIBRARY <name> [HALVES <n>] [LIBID <guid>] [HELPSTRING <text>]]
#                      [WRAPPER_CLASSES [PARTS <n>]]])
# Builds one wrappers DLL: the whole hand-written frame, the chain of type-name
# tests generated from the catalogue's known names, and what the generator
# makes of the declarations and the catalogue. The DLL exports GetModuleIntf
# only.
#
# TYPE_LIBRARY: the IDL back-end, widl and windres build the type library
# <name> (HALVES: the catalogue's halves, one IDL file each) and embed it as
# resource TYPELIB 1 (typelib/TypeLibrary.cmake).
# WRAPPER_CLASSES: the C++ back-end writes the wrapper classes (in PARTS
# translation units, default 1) and the exposers at build time; the exposers
# it writes are the ones the chain gets factories for. The caller adds the
# include folders and libraries of the wrapped classes to <target>; the
# generated sources are listed in <target>_generated_sources.
# Without DECLARATIONS the caller supplies its own type library and wrappers
# in SOURCES, and EXPOSERS lists the type names it has exposers for.
include(${PROJECT_SOURCE_DIR}/typelib/TypeLibrary.cmake)

# The generator, run once per output (generator/generate.py <output> ...), and
# the modules every output depends on.
set(KW_GENERATOR ${Python3_EXECUTABLE} ${PROJECT_SOURCE_DIR}/generator/generate.py)
file(GLOB KW_GENERATOR_SOURCES CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/generator/*.py)

# kw_generate_wrappers(<prefix> <out dir> <declarations> <catalogue> <parts> <sources var> <exposers var>)
# Has the generator's C++ back-end write, at build time, the interfaces
# header, the wrapper classes in <parts> translation units and the exposers
# into <out dir>; sets <sources var> to the sources to compile and
# <exposers var> to the list of type names that have an exposer.
function(kw_generate_wrappers prefix out declarations catalogue parts sources_var exposers_var)
  set(sources)
  foreach(k RANGE 1 ${parts})
    list(APPEND sources ${out}/${prefix}Wrappers${k}.cpp)
  endforeach()
  list(APPEND sources ${out}/${prefix}Exposers.cpp)
  file(GLOB catalogue_files ${catalogue}/*)
  get_filename_component(declarations_dir ${declarations} DIRECTORY)
  file(GLOB unexported ${declarations_dir}/unexported.txt)
  add_custom_command(OUTPUT ${sources} ${out}/${prefix}Interfaces.h ${out}/${prefix}Exposers.txt
    COMMAND ${KW_GENERATOR} cpp --declarations ${declarations} --catalogue ${catalogue}
            --out-dir ${out} --prefix ${prefix} --parts ${parts}
    DEPENDS ${declarations} ${unexported} ${catalogue_files} ${KW_GENERATOR_SOURCES}
    COMMENT "Generating the wrapper classes and exposers of ${prefix}")
  set(${sources_var} ${sources} PARENT_SCOPE)
  set(${exposers_var} ${out}/${prefix}Exposers.txt PARENT_SCOPE)
endfunction()

function(kw_add_wrappers_dll target)
  cmake_parse_arguments(D "WRAPPER_CLASSES" "KNOWN_TYPE_NAMES;EXPOSERS;DECLARATIONS;CATALOGUE;PARTS;TYPE_LIBRARY;HALVES;LIBID;HELPSTRING"
                        "SOURCES" ${ARGN})
  set(generated)
  set(out ${CMAKE_CURRENT_BINARY_DIR}/${target}_wrappers)
  if(D_WRAPPER_CLASSES)
    if(NOT D_PARTS)
      set(D_PARTS 1)
    endif()
    kw_generate_wrappers(${target} ${out} ${D_DECLARATIONS} ${D_CATALOGUE} ${D_PARTS} generated D_EXPOSERS)
  endif()

  set(chain ${CMAKE_CURRENT_BINARY_DIR}/${target}_type_chain.cpp)
  set(chain_args ${D_KNOWN_TYPE_NAMES} ${chain})
  set(chain_deps ${D_KNOWN_TYPE_NAMES} ${KW_GENERATOR_SOURCES})
  if(D_EXPOSERS)
    list(APPEND chain_args --exposers ${D_EXPOSERS})
    list(APPEND chain_deps ${D_EXPOSERS})
  endif()
  add_custom_command(OUTPUT ${chain}
    COMMAND ${KW_GENERATOR} chain ${chain_args}
    DEPENDS ${chain_deps}
    COMMENT "Generating the type-name chain of ${target}")

  set(${target}_generated_sources ${generated} PARENT_SCOPE)
  add_library(${target} SHARED ${chain} ${generated} ${D_SOURCES} ${PROJECT_SOURCE_DIR}/module/kwQtWrappers.def)
  set_target_properties(${target} PROPERTIES PREFIX "" OUTPUT_NAME ${target})
  target_link_libraries(${target} PRIVATE $<LINK_LIBRARY:WHOLE_ARCHIVE,kwframe>)
  target_link_options(${target} PRIVATE -Wl,--exclude-all-symbols)
  if(D_WRAPPER_CLASSES)
    target_include_directories(${target} PRIVATE ${out})
  endif()
  if(D_TYPE_LIBRARY)
    kw_add_type_library(TARGET ${target} NAME ${D_TYPE_LIBRARY} DECLARATIONS ${D_DECLARATIONS}
                        CATALOGUE ${D_CATALOGUE} PARTS ${D_HALVES} LIBID ${D_LIBID} HELPSTRING ${D_HELPSTRING})
  endif()
endfunction()
