#include "automation/ItemViews.h"

#include <QtCore/QAbstractItemModel>
#include <QtGui/QAbstractItemView>
#include <QtGui/QHeaderView>
#include <QtGui/QItemSelectionModel>
#include <QtGui/QTreeView>

namespace kwauto {

namespace {

class Lister {
 public:
  Lister(const QAbstractItemView* view, int budget)
      : m_model(view->model()), m_tree(qobject_cast<const QTreeView*>(view) != nullptr), m_budget(budget) {}

  bool complete = true;

  QList<ListedItem> Rows(const QModelIndex& parent) {
    QList<ListedItem> out;
    const int rows = m_model->rowCount(parent), columns = m_model->columnCount(parent);
    for (int row = 0; row < rows; ++row) {
      if (m_listed == m_budget) {
        complete = false;
        break;
      }
      ++m_listed;
      for (int column = 0; column < columns; ++column) {
        ListedItem item;
        item.index = m_model->index(row, column, parent);
        // Only a tree view shows rows under a row (a table model may answer
        // a row count for any parent).
        if (column == 0 && m_tree && m_model->hasChildren(item.index)) item.children = Rows(item.index);
        out.append(item);
      }
    }
    return out;
  }

 private:
  const QAbstractItemModel* m_model;
  bool m_tree;
  int m_budget;
  int m_listed = 0;
};

void Flatten(const QList<ListedItem>& items, QList<QModelIndex>* out) {
  foreach (const ListedItem& item, items) {
    out->append(item.index);
    Flatten(item.children, out);
  }
}

}  // namespace

QAbstractItemView* ItemViewOf(QObject* object) {
  auto* view = qobject_cast<QAbstractItemView*>(object);
  if (view == nullptr || view->model() == nullptr || qobject_cast<QHeaderView*>(view) != nullptr) return nullptr;
  return view;
}

QList<ListedItem> ListItems(const QAbstractItemView* view, int maxRows, bool* complete) {
  QList<ListedItem> out;
  if (view->model() == nullptr) return out;
  Lister lister(view, maxRows);
  out = lister.Rows(view->rootIndex());
  if (complete != nullptr) *complete = lister.complete;
  return out;
}

QList<QModelIndex> ItemsInOrder(const QList<ListedItem>& items) {
  QList<QModelIndex> out;
  Flatten(items, &out);
  return out;
}

QString ItemText(const QModelIndex& index) { return index.data(Qt::DisplayRole).toString(); }

bool ItemSelected(const QAbstractItemView* view, const QModelIndex& index) {
  const QItemSelectionModel* selection = view->selectionModel();
  return selection != nullptr && selection->isSelected(index);
}

QRect ItemScreenRect(const QAbstractItemView* view, const QModelIndex& index) {
  const QRect place = view->visualRect(index);
  if (place.isEmpty()) return QRect();
  return QRect(view->viewport()->mapToGlobal(place.topLeft()), place.size());
}

}  // namespace kwauto
