#include "automation/ObjectTree.h"

#include <QtCore/QAbstractItemModel>
#include <QtCore/QVariant>
#include <QtGui/QAbstractItemView>
#include <QtGui/QApplication>
#include <QtGui/QHeaderView>
#include <QtGui/QTreeView>
#include <QtGui/QWidget>

#include "automation/ItemViews.h"
#include "automation/ObjectText.h"

namespace kwauto {

namespace {

// What a person reads on an object: its text, window title, title or
// document (ReadableText), else the page or entry shown, a calendar's date
// or a value; and which property that is.
QString ShownText(const QObject* object, QString* which) {
  const QString readable = ReadableText(object, which);
  if (!readable.isEmpty()) return readable;
  for (const char* property : {"currentIndex", "selectedDate", "value"}) {
    const QVariant value = object->property(property);
    if (value.isValid() && value.canConvert(QVariant::String) && !value.toString().isEmpty()) {
      *which = property;
      return value.toString();
    }
  }
  return QString();
}

// The cells of a listed row as quoted texts.
QStringList Cells(const ListedRow& row) {
  QStringList cells;
  foreach (const QModelIndex& cell, row.cells) cells << QuotedShort(ItemText(cell));
  return cells;
}

// Listed rows as lines of text indented by `indent`, a tree's child rows
// indented further.
QStringList Lines(const QList<ListedRow>& rows, const QString& indent) {
  QStringList out;
  foreach (const ListedRow& row, rows) {
    out << indent + QString("row %1: %2").arg(row.row).arg(Cells(row).join(" | "));
    out << Lines(row.children, indent + "  ");
  }
  return out;
}

// Listed rows as a JSON array.
QString Json(const QList<ListedRow>& rows) {
  QStringList out;
  foreach (const ListedRow& row, rows) {
    QString item = QString("{\"row\": %1, \"cells\": [%2]").arg(row.row).arg(Cells(row).join(", "));
    if (row.branch) item += ", \"children\": " + Json(row.children);
    out << item + "}";
  }
  return "[" + out.join(", ") + "]";
}

// The items of an item view (not of a header, which shows its view's
// model): appended to `out` as lines under the view, or as a JSON member
// to the view's own line.
void DescribeItems(const QAbstractItemView* view, int depth, bool json, int maxItems, QStringList* out) {
  const QAbstractItemModel* model = view->model();
  if (model == nullptr || qobject_cast<const QHeaderView*>(view) != nullptr) return;
  const QModelIndex root = view->rootIndex();
  const int rows = model->rowCount(root), columns = model->columnCount(root);
  bool complete = true;
  int listed = 0;
  const QList<ListedRow> listedRows = ListRows(view, maxItems, &complete, &listed);
  if (json) {
    out->last() += QString(", \"items\": {\"rows\": %1, \"columns\": %2, \"complete\": %3, \"listed\": %4}")
                       .arg(rows)
                       .arg(columns)
                       .arg(complete ? "true" : "false")
                       .arg(Json(listedRows));
    return;
  }
  const QString indent((depth + 1) * 2, ' ');
  out->append(indent + QString::fromUtf8("items: %1 rows \u00d7 %2 columns").arg(rows).arg(columns));
  out->append(Lines(listedRows, indent));
  if (!complete)
    out->append(indent + QString::fromUtf8("\u2026 %1 rows listed (--max-items N lists more)").arg(listed));
}

// A widget's geometry and whether it is visible, as a line of the tree
// shows them.
QString Placement(const QWidget* widget, bool json) {
  const QRect r = widget->geometry();
  const bool visible = widget->isVisible();
  return QString(json ? ", \"geometry\": [%1, %2, %3, %4], \"visible\": %5" : " %1,%2 %3x%4 %5")
      .arg(r.x())
      .arg(r.y())
      .arg(r.width())
      .arg(r.height())
      .arg(json ? (visible ? "true" : "false") : (visible ? "visible" : "hidden"));
}

void DescribeObject(QObject* object, int depth, bool json, int maxItems, QStringList* out) {
  QString which;
  const QString text = ShownText(object, &which);
  QWidget* widget = object->isWidgetType() ? static_cast<QWidget*>(object) : nullptr;
  const QString indent(depth * 2, ' ');
  QString line;
  if (json) {
    line = indent + QString("{\"class\": %1, \"name\": %2")
                        .arg(Quoted(object->metaObject()->className()), Quoted(object->objectName()));
    if (!which.isEmpty()) line += QString(", \"%1\": %2").arg(which, QuotedShort(text));
    if (widget != nullptr) line += Placement(widget, json);
  } else {
    line = indent + object->metaObject()->className();
    if (!object->objectName().isEmpty()) line += " #" + object->objectName();
    if (!which.isEmpty()) line += QString(" %1=%2").arg(which, QuotedShort(text));
    if (widget != nullptr) line += Placement(widget, json);
  }
  out->append(line);
  if (const QAbstractItemView* view = qobject_cast<const QAbstractItemView*>(object))
    DescribeItems(view, depth, json, maxItems, out);
  if (json) out->last() += ", \"children\": [";
  const QObjectList children = object->children();
  for (int i = 0; i < children.size(); ++i) {
    DescribeObject(children[i], depth + 1, json, maxItems, out);
    if (json && i + 1 < children.size()) out->last() += ",";
  }
  if (json) {
    if (children.isEmpty())
      out->last() += "]}";
    else
      out->append(indent + "]}");
  }
}

// Whether the window is shown under a parent already: its chain of parents
// ends at a widget, which is a top-level widget itself.
bool ShownUnderParent(const QWidget* window) {
  const QObject* root = window;
  while (root->parent() != nullptr) root = root->parent();
  return root != window && root->isWidgetType();
}

}  // namespace

QStringList DescribeObjectTree(bool json, int maxItems) {
  QStringList out;
  QWidgetList tops;
  foreach (QWidget* top, QApplication::topLevelWidgets())
    if (!ShownUnderParent(top)) tops.append(top);
  if (json) out.append("[");
  for (int i = 0; i < tops.size(); ++i) {
    DescribeObject(tops[i], json ? 1 : 0, json, maxItems, &out);
    if (json && i + 1 < tops.size()) out.last() += ",";
  }
  if (json) out.append("]");
  return out;
}

}  // namespace kwauto
