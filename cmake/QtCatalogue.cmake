# kwQtWrappers.dll, the Qt 4.8 catalogue DLL.
#
# Its wrapper classes call Qt, so they are built only against a Qt 4.8 SDK
# for Windows x64 (KW_QT_SDK: a folder with include/, lib/ and
# mkspecs/default/). When none is named, ../shared/qt48-sdk beside the
# source tree is used if it is there. Without an SDK the DLL carries the
# frame, the type-name chain and the type library, and every known type name
# answers E_NOINTERFACE.
#
# KW_QT_SOURCE (a Qt 4.8.7 source tree, read for its headers only) adds the
# target kwQtWrappers_compile_check, not built by default, which compiles the
# generated Qt wrappers against those headers without linking anything.

set(KW_QT_SDK "" CACHE PATH "Qt 4.8 SDK for Windows x64 (include/, lib/) to build kwQtWrappers' wrapper classes against")
set(kw_shared_qt_sdk ${PROJECT_SOURCE_DIR}/../shared/qt48-sdk)
if(NOT KW_QT_SDK AND EXISTS ${kw_shared_qt_sdk}/include/QtCore/qglobal.h)
  get_filename_component(kw_shared_qt_sdk ${kw_shared_qt_sdk} ABSOLUTE)
  set(KW_QT_SDK ${kw_shared_qt_sdk} CACHE PATH "" FORCE)
endif()
set(KW_QT_SOURCE "" CACHE PATH "Qt 4.8.7 source tree whose headers kwQtWrappers_compile_check compiles the generated wrappers against")
set(KW_QT_WRAPPER_PARTS 16 CACHE STRING "Translation units the generated Qt wrapper classes are spread over")

set(kw_qt_catalogue ${PROJECT_SOURCE_DIR}/typelib/catalogue)
set(kw_qt_declarations ${PROJECT_SOURCE_DIR}/typelib/qt48/declarations.jsonl)
set(KW_QT_IMPORTED_DLLS "")

# Qt's configuration for a client of a shared Qt. The wrappers leave
# QT_NO_DEBUG out on purpose: Qt's inline container code is compiled into
# them with its assertions active ("index out of range" reaches the
# application's message handler), as a debug client of Qt would have it.
set(kw_qt_definitions QT_DLL QT_CORE_LIB QT_GUI_LIB)
# The folders an installed Qt puts on a client's include path, as qmake does.
set(kw_qt_sdk_includes include include/QtCore include/QtGui mkspecs/default)

# A wrappers DLL's generated classes compiled against the SDK's headers and
# linked to its DLLs, without debug information (that of hundreds of wrapper
# classes would be most of the DLL).
function(kw_build_wrappers_against_qt target)
  target_include_directories(${target} SYSTEM PRIVATE ${kw_qt_sdk_includes})
  target_compile_definitions(${target} PRIVATE ${kw_qt_definitions})
  # Qt's headers redeclare some of its functions without dllimport.
  target_compile_options(${target} PRIVATE -Wno-attributes)
  target_link_libraries(${target} PRIVATE ${KW_QTCORE4_LIBRARY} ${KW_QTGUI4_LIBRARY})
  set_source_files_properties(${${target}_generated_sources} TARGET_DIRECTORY ${target} PROPERTIES COMPILE_OPTIONS -g0)
  target_link_options(${target} PRIVATE -s)
endfunction()

if(KW_QT_SDK)
  find_library(KW_QTCORE4_LIBRARY NAMES QtCore4 PATHS ${KW_QT_SDK}/lib NO_DEFAULT_PATH NO_CMAKE_FIND_ROOT_PATH)
  find_library(KW_QTGUI4_LIBRARY NAMES QtGui4 PATHS ${KW_QT_SDK}/lib NO_DEFAULT_PATH NO_CMAKE_FIND_ROOT_PATH)
  if(NOT EXISTS ${KW_QT_SDK}/include/QtCore/qglobal.h OR NOT KW_QTCORE4_LIBRARY OR NOT KW_QTGUI4_LIBRARY)
    message(FATAL_ERROR "KW_QT_SDK=${KW_QT_SDK} is not a Qt 4.8 SDK: it needs include/QtCore, lib/QtCore4 and lib/QtGui4")
  endif()
  kw_add_wrappers_dll(kwQtWrappers
    KNOWN_TYPE_NAMES ${kw_qt_catalogue}/known_type_names.txt
    DECLARATIONS ${kw_qt_declarations}
    CATALOGUE ${kw_qt_catalogue}
    TYPE_LIBRARY QtClientWrap HALVES 2
    WRAPPER_CLASSES PARTS ${KW_QT_WRAPPER_PARTS})
  list(TRANSFORM kw_qt_sdk_includes PREPEND ${KW_QT_SDK}/)
  kw_build_wrappers_against_qt(kwQtWrappers)
  set(KW_QT_IMPORTED_DLLS "QtCore4|QtGui4")
  # Qt for the project's own Qt programs (tests, demo): the SDK's headers and
  # import libraries, and its DLLs beside every program in the output folder.
  add_library(kwQt4 INTERFACE)
  target_include_directories(kwQt4 SYSTEM INTERFACE ${kw_qt_sdk_includes})
  target_compile_definitions(kwQt4 INTERFACE ${kw_qt_definitions})
  target_compile_options(kwQt4 INTERFACE -Wno-attributes)
  target_link_libraries(kwQt4 INTERFACE ${KW_QTGUI4_LIBRARY} ${KW_QTCORE4_LIBRARY})
  file(COPY ${KW_QT_SDK}/lib/QtCore4.dll ${KW_QT_SDK}/lib/QtGui4.dll DESTINATION ${CMAKE_RUNTIME_OUTPUT_DIRECTORY})
  message(STATUS "kwQtWrappers: Qt 4.8 wrapper classes built against the SDK in ${KW_QT_SDK}")
else()
  kw_add_wrappers_dll(kwQtWrappers
    KNOWN_TYPE_NAMES ${kw_qt_catalogue}/known_type_names.txt
    DECLARATIONS ${kw_qt_declarations}
    CATALOGUE ${kw_qt_catalogue}
    TYPE_LIBRARY QtClientWrap HALVES 2)
  message(STATUS "kwQtWrappers: Qt 4.8 wrapper classes SKIPPED, no Qt 4.8 SDK given "
                 "(-DKW_QT_SDK=<folder>); the DLL has the frame and the type library only")
endif()

if(KW_QT_SOURCE)
  if(NOT EXISTS ${KW_QT_SOURCE}/src/corelib/global/qglobal.h)
    message(FATAL_ERROR "KW_QT_SOURCE=${KW_QT_SOURCE} is not a Qt 4.8 source tree")
  endif()
  execute_process(
    COMMAND ${Python3_EXECUTABLE} ${PROJECT_SOURCE_DIR}/generator/frontend.py
            --qt-source ${KW_QT_SOURCE} --include-tree ${CMAKE_BINARY_DIR}/qt-include
    OUTPUT_VARIABLE kw_qt_include_dirs OUTPUT_STRIP_TRAILING_WHITESPACE
    RESULT_VARIABLE kw_qt_include_result)
  if(NOT kw_qt_include_result EQUAL 0)
    message(FATAL_ERROR "could not lay out the include tree of ${KW_QT_SOURCE}")
  endif()
  string(REPLACE "\n" ";" kw_qt_include_dirs "${kw_qt_include_dirs}")
  set(out ${CMAKE_BINARY_DIR}/qt-compile-check)
  kw_generate_wrappers(kwQtWrappers ${out} ${kw_qt_declarations} ${kw_qt_catalogue}
                       ${KW_QT_WRAPPER_PARTS} kw_qt_check_sources kw_qt_check_exposers)
  add_library(kwQtWrappers_compile_check OBJECT EXCLUDE_FROM_ALL ${kw_qt_check_sources})
  target_include_directories(kwQtWrappers_compile_check PRIVATE ${out} ${PROJECT_SOURCE_DIR})
  target_include_directories(kwQtWrappers_compile_check SYSTEM PRIVATE ${kw_qt_include_dirs})
  # Every generated member must be callable against these headers.
  target_compile_definitions(kwQtWrappers_compile_check PRIVATE ${kw_qt_definitions})
  message(STATUS "kwQtWrappers_compile_check: compiles the generated Qt wrappers against the headers "
                 "of ${KW_QT_SOURCE} (build that target explicitly)")
endif()
