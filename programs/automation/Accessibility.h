// What assistive technology would be told of an object: its name and its
// role, in WAI-ARIA's terms, as WebDriver's computed label and role ask.
// Qt 4.8's own accessibility needs plugins that applications rarely ship,
// so both follow from the object's Qt class and texts.
#pragma once

#include <QtCore/QString>

class QObject;
class QModelIndex;

namespace kwauto {

// The accessible name: the accessibleName property when set; else the
// visible text of the label whose buddy the widget is (as an HTML label
// names its field); else, for what is not a field to type into, the text a
// user reads on it (VisibleText).
QString AccessibleLabel(const QObject* object);

// The WAI-ARIA role nearest to the Qt class the object inherits: a check
// box "checkbox", a line edit "textbox", a tree view "tree", a menu's action
// "menuitem"; "generic" for an object without one.
QString AriaRole(const QObject* object);

// The role of an item of `view`: a tree's "treeitem", a table's "gridcell",
// a list's "option".
QString ItemAriaRole(const QObject* view);

}  // namespace kwauto
