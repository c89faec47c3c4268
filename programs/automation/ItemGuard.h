// The items of Qt's item widgets (QListWidgetItem, QTableWidgetItem,
// QTreeWidgetItem) are no QObjects: nothing tells a script that the view
// deleted one (a list cleared, a row removed). An item's facade keeps a
// guard that watches its view and, before each use, looks for the item
// among the view's items by its address alone, never reading through it.
#pragma once

#include <QtCore/QPointer>
#include <QtCore/QString>
#include <QtGui/QWidget>

namespace kwauto {

class ItemGuard {
 public:
  ItemGuard() = default;
  // A guard of `instance` when `typeName` is an item widget's item that
  // belongs to a view now; an empty guard (Lost() always false) otherwise.
  static ItemGuard For(const char* typeName, void* instance);

  // Whether the item is gone: its view destroyed, or the item no longer
  // one of the view's; `why` then says which.
  bool Lost(QString* why) const;

 private:
  enum class Kind { kNone, kList, kTable, kTree };
  Kind m_kind = Kind::kNone;
  const void* m_item = nullptr;
  QPointer<QWidget> m_view;
  QString m_className;
};

}  // namespace kwauto
