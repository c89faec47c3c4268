// kwscript --tree: the object tree below the application's top-level
// widgets, one object a line, indented two blanks a level: class, object
// name, what a person reads on it (cut after 60 characters, with the whole
// length), geometry and visibility of widgets. A window that has a parent
// (a menu, a dialog) is shown once, under its parent. An item view (list,
// table, tree) also lists its model's rows with the text of each column,
// up to `maxItems` rows a view. With `json`, the same as one JSON document.
#pragma once

#include <QtCore/QStringList>

namespace kwauto {

constexpr int kDefaultMaxItems = 50;

QStringList DescribeObjectTree(bool json, int maxItems = kDefaultMaxItems);

}  // namespace kwauto
