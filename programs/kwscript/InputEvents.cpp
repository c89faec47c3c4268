#include "kwscript/InputEvents.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QElapsedTimer>
#include <QtCore/QStringList>
#include <QtGui/QAbstractItemView>
#include <QtGui/QAction>
#include <QtGui/QApplication>
#include <QtGui/QKeyEvent>
#include <QtGui/QKeySequence>
#include <QtGui/QMenu>
#include <QtGui/QMenuBar>
#include <QtGui/QMouseEvent>
#include <QtGui/QWidget>

#include "kwscript/ScriptRunner.h"

namespace kwscript {

namespace {

constexpr int kDeliveryLimitMs = 10000;
constexpr int kMenuLimitMs = 3000;

// Marks the end of a batch of posted events: delivered after all of them.
class Sentinel : public QObject {
 public:
  static const QEvent::Type kType = static_cast<QEvent::Type>(QEvent::User + 0x4B45);
  bool delivered = false;
  bool event(QEvent* event) override {
    if (event->type() != kType) return QObject::event(event);
    delivered = true;
    return true;
  }
};

// Lets the event loop run until `done` holds, the time is up or the script
// is to stop.
template <typename Condition>
bool AwaitCondition(Condition done, int limitMs) {
  QElapsedTimer clock;
  clock.start();
  while (!done() && clock.elapsed() < limitMs && ScriptRunner::YieldToEventLoop()) {
  }
  return done();
}

// Lets the event loop run until everything posted so far is delivered (or
// a handler among them runs a loop of its own, such as a modal dialog's).
QString AwaitDelivery() {
  Sentinel sentinel;
  QCoreApplication::postEvent(&sentinel, new QEvent(Sentinel::kType));
  const bool delivered = AwaitCondition([&sentinel] { return sentinel.delivered; }, kDeliveryLimitMs);
  QCoreApplication::removePostedEvents(&sentinel);
  // Once more round the loop: a modal dialog the events closed has then
  // returned to the handler that opened it, and that handler has finished.
  for (int round = 0; delivered && round < 2 && ScriptRunner::YieldToEventLoop(); ++round) {
  }
  QString stop;
  if (ScriptRunner::StopRequested(&stop)) return stop;
  return delivered ? QString() : "the application did not take the events within 10 s";
}

void PostMouse(QWidget* target, QEvent::Type type, const QPoint& at, Qt::MouseButtons buttons) {
  QCoreApplication::postEvent(target,
                              new QMouseEvent(type, at, target->mapToGlobal(at), Qt::LeftButton, buttons, Qt::NoModifier));
}

// Makes the widget's window the active one and gives the widget the focus,
// so key events reach it and the window's shortcuts apply.
void Focus(QWidget* widget) {
  QWidget* window = widget->window();
  window->activateWindow();
  QApplication::setActiveWindow(window);
  widget->setFocus(Qt::MouseFocusReason);
}

// The text a key press carries: printable keys without Ctrl or Alt.
QString KeyText(int key, Qt::KeyboardModifiers modifiers) {
  if (modifiers & (Qt::ControlModifier | Qt::AltModifier | Qt::MetaModifier)) return QString();
  if (key == Qt::Key_Return || key == Qt::Key_Enter) return "\r";
  if (key == Qt::Key_Tab) return "\t";
  if (key == Qt::Key_Escape) return QString(QChar(0x1B));
  if (key >= 0x20 && key < 0x7F) {
    const QChar c(key);
    return (modifiers & Qt::ShiftModifier) ? QString(c.toUpper()) : QString(c.toLower());
  }
  return QString();
}

void PostKey(QWidget* target, int key, Qt::KeyboardModifiers modifiers, const QString& text) {
  QCoreApplication::postEvent(target, new QKeyEvent(QEvent::KeyPress, key, modifiers, text));
  QCoreApplication::postEvent(target, new QKeyEvent(QEvent::KeyRelease, key, modifiers, text));
}

// An entry's text as a path names it: without "&" and the tab before a shortcut.
QString PlainText(const QAction* action) {
  QString text = action->text();
  text = text.left(text.indexOf('\t') >= 0 ? text.indexOf('\t') : text.size());
  return text.remove('&').trimmed();
}

QAction* FindAction(const QList<QAction*>& actions, const QString& name) {
  foreach (QAction* action, actions)
    if (!action->isSeparator() && PlainText(action).compare(name, Qt::CaseInsensitive) == 0) return action;
  return nullptr;
}

QString Names(const QList<QAction*>& actions) {
  QStringList names;
  foreach (QAction* action, actions)
    if (!action->isSeparator()) names << "\"" + PlainText(action) + "\"";
  return names.join(", ");
}

}  // namespace

QPoint Centre(const QWidget* widget) { return widget->rect().center(); }

QString Click(QWidget* widget, const QPoint& at, bool twice) {
  if (!widget->isVisible()) return QString("the %1 is not visible").arg(widget->metaObject()->className());
  // The press goes where a user's would: to the child under the pointer.
  QWidget* target = widget->childAt(at);
  const QPoint local = target != nullptr ? target->mapFrom(widget, at) : at;
  if (target == nullptr) target = widget;
  PostMouse(target, QEvent::MouseMove, local, Qt::NoButton);
  PostMouse(target, QEvent::MouseButtonPress, local, Qt::LeftButton);
  PostMouse(target, QEvent::MouseButtonRelease, local, Qt::NoButton);
  if (twice) {
    PostMouse(target, QEvent::MouseButtonDblClick, local, Qt::LeftButton);
    PostMouse(target, QEvent::MouseButtonRelease, local, Qt::NoButton);
  }
  return AwaitDelivery();
}

QString Type(QWidget* widget, const QString& text) {
  Focus(widget);
  QWidget* target = QApplication::focusWidget() != nullptr ? QApplication::focusWidget() : widget;
  foreach (const QChar c, text) {
    const bool upper = c.isUpper();
    const int key = c.unicode() < 0x7F ? c.toUpper().unicode() : static_cast<int>(Qt::Key_unknown);
    PostKey(target, key, upper ? Qt::ShiftModifier : Qt::NoModifier, QString(c));
  }
  return AwaitDelivery();
}

QString Key(QWidget* widget, const QString& combination) {
  const QKeySequence sequence(combination, QKeySequence::PortableText);
  if (sequence.count() != 1 || sequence[0] == 0)
    return QString("\"%1\" is not a key combination (such as \"Return\", \"Ctrl+S\", \"Alt+F\")").arg(combination);
  const int key = sequence[0] & ~Qt::KeyboardModifierMask;
  const Qt::KeyboardModifiers modifiers(sequence[0] & Qt::KeyboardModifierMask);
  Focus(widget);
  QWidget* target = QApplication::focusWidget() != nullptr ? QApplication::focusWidget() : widget;
  PostKey(target, key, modifiers, KeyText(key, modifiers));
  return AwaitDelivery();
}

QString ClickItem(QWidget* widget, int row, int column, bool twice) {
  auto* view = qobject_cast<QAbstractItemView*>(widget);
  if (view == nullptr || view->model() == nullptr)
    return QString("a %1 is not an item view with a model").arg(widget->metaObject()->className());
  const QModelIndex index = view->model()->index(row, column, view->rootIndex());
  if (!index.isValid())
    return QString("the view has no item at row %1, column %2 (%3 rows, %4 columns)")
        .arg(row)
        .arg(column)
        .arg(view->model()->rowCount(view->rootIndex()))
        .arg(view->model()->columnCount(view->rootIndex()));
  view->scrollTo(index);
  QCoreApplication::processEvents();
  return Click(view->viewport(), view->visualRect(index).center(), twice);
}

QString ChooseMenu(QWidget* window, const QString& path) {
  QMenuBar* bar = window->findChild<QMenuBar*>();
  if (bar == nullptr) return QString("the %1 has no menu bar").arg(window->metaObject()->className());
  const QStringList names = path.split('/');
  QWidget* in = bar;
  QList<QAction*> actions = bar->actions();
  for (int i = 0; i < names.size(); ++i) {
    QAction* action = FindAction(actions, names[i]);
    if (action == nullptr)
      return QString("no menu entry \"%1\" in %2; there are %3").arg(names[i], i == 0 ? "the menu bar" : names[i - 1],
                                                                     Names(actions));
    if (!action->isEnabled()) return QString("the menu entry \"%1\" is disabled").arg(names[i]);
    const QRect place = in == bar ? bar->actionGeometry(action) : static_cast<QMenu*>(in)->actionGeometry(action);
    QString why = Click(in, place.center(), false);
    if (!why.isEmpty() || i + 1 == names.size()) return why;
    QMenu* menu = action->menu();
    if (menu == nullptr) return QString("the menu entry \"%1\" opens no menu").arg(names[i]);
    if (!AwaitCondition([menu] { return menu->isVisible(); }, kMenuLimitMs))
      return QString("the menu \"%1\" did not open").arg(names[i]);
    in = menu;
    actions = menu->actions();
  }
  return QString();
}

}  // namespace kwscript
