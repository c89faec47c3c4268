# kwQtMoreWrappers.dll: kwscript's second wrappers set, the public QtCore and
# QtGui classes the library does not wrap (QObject, the item models,
# QPlainTextEdit, QGraphicsView...). Only kwscript loads it, beside
# kwQtWrappers.dll; the library's own type library and catalogue stay as they
# are. Its catalogue and declarations are written by
# generator/more_catalogue.py and generator/frontend.py --qt-sdk (see
# typelib/qt48more/); the build reads them only.
#
# Built with the Qt SDK only: without one, kwscript is not built either.

set(kw_more_typelib ${PROJECT_SOURCE_DIR}/typelib/qt48more)
set(kw_more_catalogue ${kw_more_typelib}/catalogue)
set(kw_more_declarations ${kw_more_typelib}/declarations.jsonl)
# The type library's LIBID, also the namespace of its interfaces' IIDs.
file(STRINGS ${kw_more_catalogue}/interface_namespace.txt kw_more_libid REGEX "^[0-9A-F-]+$")
set(KW_QT_MORE_WRAPPER_PARTS 6 CACHE STRING "Translation units the second set's wrapper classes are spread over")

if(NOT TARGET kwQt4)
  message(STATUS "kwQtMoreWrappers: SKIPPED, no Qt 4.8 SDK")
  return()
endif()

kw_add_wrappers_dll(kwQtMoreWrappers
  KNOWN_TYPE_NAMES ${kw_more_catalogue}/known_type_names.txt
  DECLARATIONS ${kw_more_declarations}
  CATALOGUE ${kw_more_catalogue}
  TYPE_LIBRARY QtMoreWrap LIBID ${kw_more_libid}
  HELPSTRING "Wrappers of the Qt classes kwQtWrappers leaves out, for kwscript"
  WRAPPER_CLASSES PARTS ${KW_QT_MORE_WRAPPER_PARTS})
kw_build_wrappers_against_qt(kwQtMoreWrappers)
message(STATUS "kwQtMoreWrappers: the second wrappers set built against the SDK in ${KW_QT_SDK}")
