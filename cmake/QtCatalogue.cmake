# kwQtWrappers.dll, the Qt 4.8 catalogue DLL.
#
# Its wrapper classes call Qt, so they are built only against a Qt 4.8 SDK
# for Windows x64 (KW_QT_SDK: a folder with include/ and lib/). Without one
# the DLL carries the frame, the type-name chain and the type library, and
# every known type name answers E_NOINTERFACE.
#
# KW_QT_SOURCE (a Qt 4.8.7 source tree, read for its headers only) adds the
# target kwQtWrappers_compile_check, not built by default, which compiles the
# generated Qt wrappers against those headers without linking anything.

set(KW_QT_SDK "" CACHE PATH "Qt 4.8 SDK for Windows x64 (include/, lib/) to build kwQtWrappers' wrapper classes against")
set(KW_QT_SOURCE "" CACHE PATH "Qt 4.8.7 source tree whose headers kwQtWrappers_compile_check compiles the generated wrappers against")
set(KW_QT_WRAPPER_PARTS 16 CACHE STRING "Translation units the generated Qt wrapper classes are spread over")

set(kw_qt_catalogue ${PROJECT_SOURCE_DIR}/typelib/catalogue)
set(kw_qt_declarations ${PROJECT_SOURCE_DIR}/typelib/qt48/declarations.jsonl)
set(KW_QT_IMPORTED_DLLS "")

# Qt's configuration for a client of a shared Qt.
set(kw_qt_definitions QT_DLL QT_NO_DEBUG QT_CORE_LIB QT_GUI_LIB)

if(KW_QT_SDK)
  find_library(KW_QTCORE4_LIBRARY NAMES QtCore4 PATHS ${KW_QT_SDK}/lib NO_DEFAULT_PATH NO_CMAKE_FIND_ROOT_PATH)
  find_library(KW_QTGUI4_LIBRARY NAMES QtGui4 PATHS ${KW_QT_SDK}/lib NO_DEFAULT_PATH NO_CMAKE_FIND_ROOT_PATH)
  if(NOT EXISTS ${KW_QT_SDK}/include/QtCore/qglobal.h OR NOT KW_QTCORE4_LIBRARY OR NOT KW_QTGUI4_LIBRARY)
    message(FATAL_ERROR "KW_QT_SDK=${KW_QT_SDK} is not a Qt 4.8 SDK: it needs include/QtCore, lib/QtCore4 and lib/QtGui4")
  endif()
  kw_add_wrappers_dll(kwQtWrappers
    KNOWN_TYPE_NAMES ${kw_qt_catalogue}/known_type_names.txt
    WRAPPERS_FROM ${kw_qt_declarations}
    CATALOGUE ${kw_qt_catalogue}
    PARTS ${KW_QT_WRAPPER_PARTS})
  target_include_directories(kwQtWrappers SYSTEM PRIVATE
    ${KW_QT_SDK}/include ${KW_QT_SDK}/include/QtCore ${KW_QT_SDK}/include/QtGui)
  target_compile_definitions(kwQtWrappers PRIVATE ${kw_qt_definitions})
  target_link_libraries(kwQtWrappers PRIVATE ${KW_QTCORE4_LIBRARY} ${KW_QTGUI4_LIBRARY})
  set(KW_QT_IMPORTED_DLLS "QtCore4|QtGui4")
  message(STATUS "kwQtWrappers: Qt 4.8 wrapper classes built against the SDK in ${KW_QT_SDK}")
else()
  kw_add_wrappers_dll(kwQtWrappers KNOWN_TYPE_NAMES ${kw_qt_catalogue}/known_type_names.txt)
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
  # Every generated member must be callable against these headers: none may
  # fall back to E_NOTIMPL.
  target_compile_definitions(kwQtWrappers_compile_check PRIVATE ${kw_qt_definitions}
                             KW_WRAPPERS_REQUIRE_AVAILABLE)
  message(STATUS "kwQtWrappers_compile_check: compiles the generated Qt wrappers against the headers "
                 "of ${KW_QT_SOURCE} (build that target explicitly)")
endif()
