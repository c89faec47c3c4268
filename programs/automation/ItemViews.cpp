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
  int listed = 0;

  QList<ListedRow> Rows(const QModelIndex& parent) {
    QList<ListedRow> out;
    const int rows = m_model->rowCount(parent), columns = m_model->columnCount(parent);
    for (int row = 0; row < rows; ++row) {
      if (listed == m_budget) {
        complete = false;
        break;
      }
      ++listed;
      ListedRow listedRow;
      listedRow.row = row;
      for (int column = 0; column < columns; ++column) listedRow.cells.append(m_model->index(row, column, parent));
      // Only a tree view shows rows under a row (a table model may answer
      // a row count for any parent, and a proxy over it makes one up).
      const QModelIndex first = m_model->index(row, 0, parent);
      listedRow.branch = m_tree && m_model->hasChildren(first);
      if (listedRow.branch) listedRow.children = Rows(first);
      out.append(listedRow);
    }
    return out;
  }

 private:
  const QAbstractItemModel* m_model;
  bool m_tree;
  int m_budget;
};

void Flatten(const QList<ListedRow>& rows, QList<QModelIndex>* out) {
  foreach (const ListedRow& row, rows) {
    out->append(row.cells);
    Flatten(row.children, out);
  }
}

}  // namespace

QAbstractItemView* ItemViewOf(QObject* object) {
  auto* view = qobject_cast<QAbstractItemView*>(object);
  if (view == nullptr || view->model() == nullptr || qobject_cast<QHeaderView*>(view) != nullptr) return nullptr;
  return view;
}

QList<ListedRow> ListRows(const QAbstractItemView* view, int maxRows, bool* complete, int* listed) {
  QList<ListedRow> out;
  Lister lister(view, maxRows);
  if (view->model() != nullptr) out = lister.Rows(view->rootIndex());
  if (complete != nullptr) *complete = lister.complete;
  if (listed != nullptr) *listed = lister.listed;
  return out;
}

QList<QModelIndex> ItemsInOrder(const QList<ListedRow>& rows) {
  QList<QModelIndex> out;
  Flatten(rows, &out);
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
