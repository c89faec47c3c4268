# Builds the embedded type library of a wrappers DLL from a declarations file
# and a catalogue folder, with the generator's IDL back-end, widl and
# windres. kw_add_wrappers_dll (cmake/Catalogue.cmake) calls it.
#
# kw_add_type_library(TARGET <dll target> NAME <library name>
#                     DECLARATIONS <declarations file> CATALOGUE <folder>
#                     [PARTS <n>] [LIBID <guid>] [HELPSTRING <text>])
#
# The catalogue's halves are written as one IDL file each and compiled by
# widl on its own (widl writes at most 512 type descriptions into one
# library); tlbmerge then joins the parts, in order, into <NAME>.tlb, which
# becomes resource TYPELIB 1 of the DLL.  PARTS is the number of halves in
# the catalogue (default 1).

find_program(KW_WIDL widl REQUIRED)
find_path(KW_WINE_IDL_DIR oaidl.idl
  PATHS /usr/include/wine/wine/windows /usr/include/wine/windows
  NO_DEFAULT_PATH NO_CMAKE_FIND_ROOT_PATH REQUIRED)
find_path(KW_STDOLE2_DIR stdole2.tlb
  PATHS /usr/lib/x86_64-linux-gnu/wine/x86_64-windows /usr/lib/wine/x86_64-windows
        /usr/lib64/wine/x86_64-windows /usr/lib/x86_64-linux-gnu/wine/i386-windows
  NO_DEFAULT_PATH NO_CMAKE_FIND_ROOT_PATH REQUIRED)

set(KW_TYPELIB_DIR ${CMAKE_CURRENT_LIST_DIR})

# A Windows console tool of the type-library build (wide main), once per project.
function(kw_add_typelib_tool name source)
  if(NOT TARGET kw_${name})
    add_executable(kw_${name} ${source})
    target_link_libraries(kw_${name} PRIVATE oleaut32 ole32 uuid)
    target_link_options(kw_${name} PRIVATE -municode)
    set_target_properties(kw_${name} PROPERTIES OUTPUT_NAME ${name})
  endif()
endfunction()
kw_add_typelib_tool(tlbmerge ${KW_TYPELIB_DIR}/tools/tlbmerge.cpp)
kw_add_typelib_tool(tlbdump ${KW_TYPELIB_DIR}/dump/tlbdump.cpp)

function(kw_add_type_library)
  cmake_parse_arguments(L "" "TARGET;NAME;DECLARATIONS;CATALOGUE;PARTS;LIBID;HELPSTRING" "" ${ARGN})
  if(NOT L_PARTS)
    set(L_PARTS 1)
  endif()
  set(out ${CMAKE_CURRENT_BINARY_DIR}/${L_NAME})
  file(MAKE_DIRECTORY ${out})
  file(GLOB catalogue_files ${L_CATALOGUE}/*)
  get_filename_component(declarations_dir ${L_DECLARATIONS} DIRECTORY)
  file(GLOB unexported ${declarations_dir}/unexported.txt)
  set(gen_deps ${L_DECLARATIONS} ${unexported} ${catalogue_files} ${KW_GENERATOR_SOURCES})
  set(extra)
  if(L_LIBID)
    list(APPEND extra --libid ${L_LIBID})
  endif()
  if(L_HELPSTRING)
    list(APPEND extra --helpstring ${L_HELPSTRING})
  endif()

  set(part_tlbs)
  foreach(part RANGE 1 ${L_PARTS})
    set(idl ${out}/${L_NAME}_part${part}.idl)
    set(tlb ${out}/${L_NAME}_part${part}.tlb)
    set(half_arg)
    if(L_PARTS GREATER 1)
      set(half_arg --half ${part})
    endif()
    add_custom_command(OUTPUT ${idl}
      COMMAND ${KW_GENERATOR} idl --declarations ${L_DECLARATIONS} --catalogue ${L_CATALOGUE}
              --out ${idl} --library ${L_NAME} ${half_arg} ${extra}
      DEPENDS ${gen_deps}
      COMMENT "Generating the IDL of ${L_NAME} (part ${part} of ${L_PARTS})")
    add_custom_command(OUTPUT ${tlb}
      COMMAND ${KW_WIDL} --win64 -t -I ${KW_WINE_IDL_DIR} -L ${KW_STDOLE2_DIR} -o ${tlb} ${idl}
      DEPENDS ${idl}
      COMMENT "Compiling ${L_NAME}_part${part}.idl with widl")
    list(APPEND part_tlbs ${tlb})
  endforeach()

  set(tlb ${out}/${L_NAME}.tlb)
  set(part_names)
  foreach(p ${part_tlbs})
    get_filename_component(n ${p} NAME)
    list(APPEND part_names ${n})
  endforeach()
  add_custom_command(OUTPUT ${tlb}
    COMMAND ${CMAKE_COMMAND} -E env KW_WINE_ROOT=${CMAKE_BINARY_DIR}/wine
            ${PROJECT_SOURCE_DIR}/cmake/wine-run.sh --prefix build
            $<TARGET_FILE:kw_tlbmerge> ${L_NAME}.tlb ${part_names}
    WORKING_DIRECTORY ${out}
    DEPENDS ${part_tlbs} kw_tlbmerge
    COMMENT "Joining the parts of ${L_NAME}.tlb")

  set(rc ${out}/${L_NAME}_typelib.rc)
  file(WRITE ${rc}.in "1 TYPELIB \"${tlb}\"\n")
  configure_file(${rc}.in ${rc} COPYONLY)
  set_source_files_properties(${rc} TARGET_DIRECTORY ${L_TARGET} PROPERTIES OBJECT_DEPENDS ${tlb})
  target_sources(${L_TARGET} PRIVATE ${rc})
  add_custom_target(${L_TARGET}_typelib DEPENDS ${tlb})
  add_dependencies(${L_TARGET} ${L_TARGET}_typelib)
endfunction()
