// The items of item views (lists, tables, trees) as a user sees them: the
// cells of the rows a view shows, row by row, a tree's child rows under the
// first cell of their parent row. Items are model indexes, no QObjects.
#pragma once

#include <QtCore/QList>
#include <QtCore/QModelIndex>
#include <QtCore/QRect>
#include <QtCore/QString>

class QAbstractItemView;
class QObject;

namespace kwauto {

// A row a view shows: its items column by column and, in a tree, the rows
// under it.
struct ListedRow {
  int row = 0;
  QList<QModelIndex> cells;
  bool branch = false;  // a tree's row that has rows under it (listed or not)
  QList<ListedRow> children;
};

// The view when `object` is an item view whose items count (a header view
// shows its view's model and is left out), else null.
QAbstractItemView* ItemViewOf(QObject* object);

// The rows of the view, at most `maxRows` of them (a tree's child rows
// counted too), depth first; `complete` says whether that was all of them,
// `listed` how many were listed.
QList<ListedRow> ListRows(const QAbstractItemView* view, int maxRows, bool* complete = nullptr,
                          int* listed = nullptr);

// Their items, a row's cells followed by the rows under it: the order of
// the page source.
QList<QModelIndex> ItemsInOrder(const QList<ListedRow>& rows);

// What the item shows (its display text), whether the view has it selected,
// and its rectangle in screen coordinates (empty when the view does not
// show it: scrolled away, a collapsed branch).
QString ItemText(const QModelIndex& index);
bool ItemSelected(const QAbstractItemView* view, const QModelIndex& index);
QRect ItemScreenRect(const QAbstractItemView* view, const QModelIndex& index);

}  // namespace kwauto
