// Selectors: finding objects in an application that names few of them.
//
//   selector  = step { combinator step }
//   combinator = one or more blanks (any descendant) | ">" (a direct child),
//                blanks around ">" allowed
//   step      = [Type] { "#" objectName | "[" property "=" "\"" text "\"" "]"
//                        | ":visible" | ":" N }            (at least one part)
//
//   Type         the object inherits that class (QObject::inherits), so
//                "QAbstractButton" matches a subclass of QToolButton
//   #name        the object name
//   [prop="v"]   a Qt property of the object, compared as text ("checked"
//                reads "true"/"false"); inside the quotes \" and \\ escape
//   :visible     a widget that is visible
//   :N           the N-th object (from 0) that the step matches, in the
//                order of the object tree
//
// The first step looks at every object under the application's top-level
// widgets (and those widgets themselves); each later step at the children
// (">") or all descendants (blanks) of what the step before it found.
// Matches come in the order of the object tree, each once.
#pragma once

#include <QtCore/QList>
#include <QtCore/QObject>
#include <QtCore/QString>

namespace kwauto {

// What a selector with a mistake says: where (1-based character) and what.
struct SelectorError {
  int position = 0;
  QString message;
};

// The objects `selector` matches, in tree order. On a syntax error: none,
// and `error` says where and what.
QList<QObject*> QueryObjects(const QString& selector, SelectorError* error);

}  // namespace kwauto
