// Selectors: finding objects in an application that names few of them.
//
//   selector  = step { combinator step }
//   combinator = one or more blanks (any descendant) | ">" (a direct child),
//                blanks around ">" allowed
//   step      = [Type | "*"] { "#" objectName | "." Class
//                              | "[" key "=" quoted "]" | ":visible" | ":" N }
//               (at least one part)
//   quoted    = "\"" text "\"" | "'" text "'"
//
//   Type         the object inherits that class (QObject::inherits), so
//                "QAbstractButton" matches a subclass of QToolButton
//   *            any class (the same as no Type)
//   #name        the object name; "." and "-" belong to it
//   .Class       the object inherits Class too: as a Type, and any number
//                of them ("QWidget.QAbstractButton" is a QAbstractButton,
//                ".QAbstractButton" any button). CSS's class selector, as
//                WebDriver clients send a "class name" locator
//   [id="v"]     the object name (a client's "id" locator)
//   [name="v"]   the accessible name, or for an object without one the text
//                a person reads on it (ReadableText): a client's "name" locator
//   [prop="v"]   any other key: the Qt property of that name, compared as
//                text ("checked" reads "true"/"false"); inside the quotes a
//                backslash takes the next character as it is (\" \' \\)
//   :visible     a widget that is visible
//   :N           the N-th object (from 0) that the step matches, in the
//                order of the object tree
//
// In a name or a class a backslash takes the next character as it is, or
// reads up to 6 hex digits (and one blank after them) as a character
// code, as CSS escapes ("#my\.id", "#\31 23" for "123").
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

// The same below `root`: the first step looks at the descendants of `root`
// only (not at `root` itself); a null root is the application.
QList<QObject*> QueryObjects(const QString& selector, SelectorError* error, QObject* root);

// Every object a selector's first step looks at below `root` (null: the
// application's top-level widgets and all below them), in tree order.
QList<QObject*> ObjectsBelow(QObject* root);

}  // namespace kwauto
