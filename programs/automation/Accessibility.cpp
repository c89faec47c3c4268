#include "automation/Accessibility.h"

#include <QtGui/QAction>
#include <QtGui/QActionGroup>
#include <QtGui/QComboBox>
#include <QtGui/QLabel>
#include <QtGui/QWidget>

#include "automation/ObjectText.h"

namespace kwauto {

namespace {

struct ClassRole {
  const char* className;
  const char* role;
};

// Searched in order: a class before the classes it inherits.
const ClassRole kRoles[] = {
    {"QCheckBox", "checkbox"},       {"QRadioButton", "radio"},         {"QAbstractButton", "button"},
    {"QLineEdit", "textbox"},        {"QTextEdit", "textbox"},          {"QPlainTextEdit", "textbox"},
    {"QAbstractSpinBox", "spinbutton"}, {"QComboBox", "combobox"},      {"QScrollBar", "scrollbar"},
    {"QAbstractSlider", "slider"},   {"QProgressBar", "progressbar"},   {"QMenuBar", "menubar"},
    {"QMenu", "menu"},               {"QTabBar", "tablist"},            {"QToolBar", "toolbar"},
    {"QStatusBar", "status"},        {"QHeaderView", "generic"},        {"QTreeView", "tree"},
    {"QTableView", "grid"},          {"QListView", "listbox"},          {"QAbstractItemView", "list"},
    {"QMessageBox", "alertdialog"},  {"QDialog", "dialog"},             {"QGroupBox", "group"},
};

// Fields whose text is what was typed, not their name.
bool IsField(const QObject* object) {
  if (const auto* combo = qobject_cast<const QComboBox*>(object)) return combo->isEditable();
  return object->inherits("QLineEdit") || object->inherits("QTextEdit") || object->inherits("QPlainTextEdit") ||
         object->inherits("QAbstractSpinBox");
}

// The label in the widget's window that gives the widget the focus.
const QLabel* BuddyLabelOf(const QWidget* widget) {
  foreach (const QLabel* label, widget->window()->findChildren<QLabel*>())
    if (label->buddy() == widget) return label;
  return nullptr;
}

}  // namespace

QString AccessibleLabel(const QObject* object) {
  const auto* widget = object->isWidgetType() ? static_cast<const QWidget*>(object) : nullptr;
  if (widget != nullptr && !widget->accessibleName().isEmpty()) return widget->accessibleName();
  if (widget != nullptr)
    if (const QLabel* label = BuddyLabelOf(widget)) return VisibleText(label).trimmed();
  return IsField(object) ? QString() : VisibleText(object).trimmed();
}

QString AriaRole(const QObject* object) {
  if (const auto* action = qobject_cast<const QAction*>(object)) {
    if (action->isSeparator()) return "separator";
    if (!action->isCheckable()) return "menuitem";
    return action->actionGroup() != nullptr && action->actionGroup()->isExclusive() ? "menuitemradio"
                                                                                    : "menuitemcheckbox";
  }
  for (const ClassRole& entry : kRoles)
    if (object->inherits(entry.className)) return entry.role;
  return "generic";
}

QString ItemAriaRole(const QObject* view) {
  if (view->inherits("QTreeView")) return "treeitem";
  if (view->inherits("QTableView")) return "gridcell";
  if (view->inherits("QListView")) return "option";
  return "listitem";
}

}  // namespace kwauto
