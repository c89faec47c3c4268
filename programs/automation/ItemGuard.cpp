#include "automation/ItemGuard.h"

#include <QtGui/QListWidget>
#include <QtGui/QTableWidget>
#include <QtGui/QTreeWidget>
#include <QtGui/QTreeWidgetItemIterator>

#include <cstring>

namespace kwauto {

ItemGuard ItemGuard::For(const char* typeName, void* instance) {
  ItemGuard guard;
  if (instance == nullptr) return guard;
  if (std::strcmp(typeName, "QListWidgetItem") == 0) {
    guard.m_kind = Kind::kList;
    guard.m_view = static_cast<QListWidgetItem*>(instance)->listWidget();
  } else if (std::strcmp(typeName, "QTableWidgetItem") == 0) {
    guard.m_kind = Kind::kTable;
    guard.m_view = static_cast<QTableWidgetItem*>(instance)->tableWidget();
  } else if (std::strcmp(typeName, "QTreeWidgetItem") == 0) {
    guard.m_kind = Kind::kTree;
    guard.m_view = static_cast<QTreeWidgetItem*>(instance)->treeWidget();
  }
  if (guard.m_view.isNull()) return ItemGuard();  // an item of no view: the script's own
  guard.m_item = instance;
  guard.m_className = typeName;
  return guard;
}

bool ItemGuard::Lost(QString* why) const {
  if (m_kind == Kind::kNone) return false;
  bool found = false;
  if (QWidget* view = m_view.data()) {
    if (m_kind == Kind::kList) {
      const QListWidget* list = static_cast<QListWidget*>(view);
      for (int row = 0; row < list->count() && !found; ++row) found = list->item(row) == m_item;
    } else if (m_kind == Kind::kTable) {
      const QTableWidget* table = static_cast<QTableWidget*>(view);
      for (int row = 0; row < table->rowCount() && !found; ++row)
        for (int column = 0; column < table->columnCount() && !found; ++column)
          found = table->item(row, column) == m_item;
    } else {
      for (QTreeWidgetItemIterator it(static_cast<QTreeWidget*>(view)); *it != nullptr && !found; ++it)
        found = *it == m_item;
    }
  }
  if (found) return false;
  *why = m_view.isNull() ? QString("object destroyed: this %1's view was destroyed by the application").arg(m_className)
                         : QString("object destroyed: this %1 is no longer an item of its %2 (the application removed it)")
                               .arg(m_className, m_view->metaObject()->className());
  return true;
}

}  // namespace kwauto
