#include "automation/InputEvents.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QElapsedTimer>
#include <QtCore/QPointer>
#include <QtCore/QStringList>
#include <QtGui/QAbstractItemView>
#include <QtGui/QAction>
#include <QtGui/QApplication>
#include <QtGui/QContextMenuEvent>
#include <QtGui/QWheelEvent>
#include <QtGui/QKeyEvent>
#include <QtGui/QKeySequence>
#include <QtGui/QMenu>
#include <QtGui/QMenuBar>
#include <QtGui/QMouseEvent>
#include <QtGui/QWidget>

#include "automation/EventPump.h"
#include "automation/SystemDrag.h"

namespace kwauto {

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
  while (!done() && clock.elapsed() < limitMs && YieldToEventLoop()) {
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
  for (int round = 0; delivered && round < 2 && YieldToEventLoop(); ++round) {
  }
  QString stop;
  if (StopRequested(&stop)) return stop;
  return delivered ? QString() : "the application did not take the events within 10 s";
}

// Lets the event loop run until the events posted so far are delivered, as
// AwaitDelivery without its rounds after; for a slice of a long sequence.
QString AwaitSlice() {
  Sentinel sentinel;
  QCoreApplication::postEvent(&sentinel, new QEvent(Sentinel::kType));
  const bool delivered = AwaitCondition([&sentinel] { return sentinel.delivered; }, kDeliveryLimitMs);
  QCoreApplication::removePostedEvents(&sentinel);
  QString stop;
  if (StopRequested(&stop)) return stop;
  return delivered ? QString() : "the application did not take the events within 10 s";
}

// Whether a click gives `widget` the focus: its policy, and its focus
// proxy's, take clicks.
bool TakesClickFocus(QWidget* widget) {
  if ((widget->focusPolicy() & Qt::ClickFocus) != Qt::ClickFocus) return false;
  QWidget* proxy = widget;
  while (proxy->focusProxy() != nullptr) proxy = proxy->focusProxy();
  return (proxy->focusPolicy() & Qt::ClickFocus) == Qt::ClickFocus;
}

// A press from the window system gives the focus to the widget clicked (or
// the nearest parent in its window that takes it) before the widget sees
// the press; Qt does that for spontaneous presses only, so for a posted
// one it is done here, at the press's turn in the event queue.
class ClickFocus : public QObject {
 public:
  static const QEvent::Type kRequest = static_cast<QEvent::Type>(QEvent::User + 0x4B60);

  struct Request : QEvent {
    explicit Request(QWidget* widget) : QEvent(kRequest), widget(widget) {}
    QPointer<QWidget> widget;
  };

  bool event(QEvent* event) override {
    if (event->type() != kRequest) return QObject::event(event);
    for (QWidget* widget = static_cast<Request*>(event)->widget; widget != nullptr; widget = widget->parentWidget()) {
      if (widget->isEnabled() && TakesClickFocus(widget)) {
        widget->setFocus(Qt::MouseFocusReason);
        break;
      }
      if (widget->isWindow()) break;
    }
    return true;
  }
};

// One mouse event for `target` at `at` in its coordinates: `button` is the
// one that changed (none for a move), `held` those down afterwards.
void PostMouse(QWidget* target, QEvent::Type type, const QPoint& at, Qt::MouseButton button, Qt::MouseButtons held,
               Qt::KeyboardModifiers modifiers) {
  if (type == QEvent::MouseButtonPress) {
    static ClickFocus* focus = new ClickFocus;  // lives as long as the GUI thread
    QCoreApplication::postEvent(focus, new ClickFocus::Request(target));
  }
  QCoreApplication::postEvent(target, new QMouseEvent(type, at, target->mapToGlobal(at), button, held, modifiers));
}

// The widget a press at `at` in `widget` reaches: the child under the
// pointer; `local` becomes the place in it.
QWidget* UnderPointer(QWidget* widget, const QPoint& at, QPoint* local) {
  QWidget* child = widget->childAt(at);
  if (child == nullptr) {
    *local = at;
    return widget;
  }
  *local = child->mapFrom(widget, at);
  return child;
}

// A release of the options' button at `at` in `target`; a right button's
// release is followed by the context menu request Qt makes of it on Windows.
void PostRelease(QWidget* target, const QPoint& at, const MouseOptions& options) {
  PostMouse(target, QEvent::MouseButtonRelease, at, options.button, Qt::NoButton, options.modifiers);
  if (options.button == Qt::RightButton)
    QCoreApplication::postEvent(
        target, new QContextMenuEvent(QContextMenuEvent::Mouse, at, target->mapToGlobal(at), options.modifiers));
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

// A key press or release on its way: the relay hands it, when the event
// loop delivers it, to the widget that has the keyboard then, as the window
// system does, not to the one that had it when the key was posted.
class RelayedKey : public QEvent {
 public:
  static const QEvent::Type kType = static_cast<QEvent::Type>(QEvent::User + 0x4B4B);
  RelayedKey(QEvent::Type type, int key, Qt::KeyboardModifiers modifiers, const QString& text, QWidget* fallback)
      : QEvent(kType), m_key(type, key, modifiers, text), m_fallback(fallback) {}
  QKeyEvent* key() { return &m_key; }
  QWidget* fallback() const { return m_fallback; }

 private:
  QKeyEvent m_key;
  QPointer<QWidget> m_fallback;  // the widget the script named, if nothing has the focus
};

// Where a key goes now: a widget grabbing the keyboard, an open popup (a
// menu) and its focus child, the focus widget, else the widget named.
QWidget* KeyReceiver(QWidget* fallback) {
  if (QWidget* grabber = QWidget::keyboardGrabber()) return grabber;
  if (QWidget* popup = QApplication::activePopupWidget())
    return popup->focusWidget() != nullptr ? popup->focusWidget() : popup;
  if (QWidget* focus = QApplication::focusWidget()) return focus;
  return fallback;
}

class KeyRelay : public QObject {
 public:
  bool event(QEvent* event) override {
    if (event->type() != RelayedKey::kType) return QObject::event(event);
    auto* relayed = static_cast<RelayedKey*>(event);
    if (QWidget* receiver = KeyReceiver(relayed->fallback())) QApplication::sendEvent(receiver, relayed->key());
    return true;
  }
};

void PostKeyEvent(QEvent::Type type, QWidget* named, int key, Qt::KeyboardModifiers modifiers, const QString& text) {
  static KeyRelay* relay = new KeyRelay;  // lives as long as the agent's module
  QCoreApplication::postEvent(relay, new RelayedKey(type, key, modifiers, text, named));
}

void PostKey(QWidget* named, int key, Qt::KeyboardModifiers modifiers, const QString& text) {
  PostKeyEvent(QEvent::KeyPress, named, key, modifiers, text);
  PostKeyEvent(QEvent::KeyRelease, named, key, modifiers, text);
}

// The key a character of typed text is, with its modifiers.
int KeyOfCharacter(QChar c, Qt::KeyboardModifiers* modifiers) {
  *modifiers = c.isUpper() ? Qt::ShiftModifier : Qt::NoModifier;
  if (c == '\t') return Qt::Key_Tab;
  if (c == '\n' || c == '\r') return Qt::Key_Return;
  return c.unicode() < 0x7F ? c.toUpper().unicode() : static_cast<int>(Qt::Key_unknown);
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

QString ParseButton(const QString& name, Qt::MouseButton* button) {
  static const struct {
    const char* name;
    Qt::MouseButton button;
  } kButtons[] = {{"left", Qt::LeftButton}, {"right", Qt::RightButton}, {"middle", Qt::MiddleButton}};
  for (const auto& known : kButtons)
    if (name.compare(known.name, Qt::CaseInsensitive) == 0) {
      *button = known.button;
      return QString();
    }
  return QString("\"%1\" is not a button (left, right, middle)").arg(name);
}

QString ParseModifiers(const QString& names, Qt::KeyboardModifiers* modifiers) {
  static const struct {
    const char* name;
    Qt::KeyboardModifier modifier;
  } kModifiers[] = {{"shift", Qt::ShiftModifier},
                    {"ctrl", Qt::ControlModifier},
                    {"alt", Qt::AltModifier},
                    {"meta", Qt::MetaModifier}};
  *modifiers = Qt::NoModifier;
  if (names.trimmed().isEmpty()) return QString();
  foreach (const QString& name, names.split('+')) {
    bool known = false;
    for (const auto& modifier : kModifiers)
      if (name.trimmed().compare(modifier.name, Qt::CaseInsensitive) == 0) {
        *modifiers |= modifier.modifier;
        known = true;
      }
    if (!known) return QString("\"%1\" is not a modifier (Shift, Ctrl, Alt, Meta)").arg(name.trimmed());
  }
  return QString();
}

QString ParseMouseOptions(const QString& text, MouseOptions* options) {
  foreach (const QString& part, text.split(' ', QString::SkipEmptyParts)) {
    const int equals = part.indexOf('=');
    const QString name = part.left(equals).toLower(), value = part.mid(equals + 1);
    QString why;
    if (equals > 0 && name == "button")
      why = ParseButton(value, &options->button);
    else if (equals > 0 && name == "modifiers")
      why = ParseModifiers(value, &options->modifiers);
    else
      why = QString("\"%1\" is not an option (button=left|right|middle modifiers=Shift+Ctrl+Alt+Meta)").arg(part);
    if (!why.isEmpty()) return why;
  }
  return QString();
}

QString Click(QWidget* widget, const QPoint& at, bool twice, const MouseOptions& options) {
  if (!widget->isVisible()) return QString("the %1 is not visible").arg(widget->metaObject()->className());
  // The press goes where a user's would: to the child under the pointer.
  QPoint local;
  QWidget* target = UnderPointer(widget, at, &local);
  const Qt::MouseButton button = options.button;
  PostMouse(target, QEvent::MouseMove, local, Qt::NoButton, Qt::NoButton, options.modifiers);
  PostMouse(target, QEvent::MouseButtonPress, local, button, button, options.modifiers);
  PostRelease(target, local, options);
  if (twice) {
    PostMouse(target, QEvent::MouseButtonDblClick, local, button, button, options.modifiers);
    PostRelease(target, local, options);
  }
  return AwaitDelivery();
}

QString Drag(QWidget* from, const QPoint& start, QWidget* to, const QPoint& end, const MouseOptions& options) {
  constexpr int kSteps = 10;
  foreach (QWidget* widget, QList<QWidget*>() << from << to)
    if (!widget->isVisible()) return QString("the %1 is not visible").arg(widget->metaObject()->className());
  const QPoint first = from->mapToGlobal(start), last = to->mapToGlobal(end);
  // Step by step, as a user's hand: a drag and drop the moves start goes
  // on with the next ones.
  Pointer pointer;
  QString why = pointer.Move(first, options.modifiers);
  if (why.isEmpty()) why = pointer.Press(options.button, options.modifiers);
  for (int step = 1; why.isEmpty() && step <= kSteps; ++step)
    why = pointer.Move(first + (last - first) * step / kSteps, options.modifiers);
  const QString released = pointer.Release(options.button, options.modifiers);
  return why.isEmpty() ? released : why;
}

QString Type(QWidget* widget, const QString& text) {
  // In slices: Qt delivers every event posted before the script resumes,
  // so a long text posted at once could be neither stopped nor timed out.
  constexpr int kKeysPerSlice = 100;
  Focus(widget);
  const QPointer<QWidget> named(widget);  // the handlers of a slice may destroy it
  int posted = 0;
  foreach (const QChar c, text) {
    Qt::KeyboardModifiers modifiers;
    const int key = KeyOfCharacter(c, &modifiers);
    PostKey(named.data(), key, modifiers, QString(c));
    if (++posted % kKeysPerSlice == 0 && posted < text.size()) {
      const QString why = AwaitSlice();
      if (!why.isEmpty()) return why;
    }
  }
  return AwaitDelivery();
}

QString Key(QWidget* widget, const QString& combination) {
  const QString refusal =
      QString("\"%1\" is not a key combination (such as \"Return\", \"Ctrl+S\", \"Alt+F\")").arg(combination);
  // Qt passes over a modifier it does not know ("Crtl+S" reads as S), and
  // a key name it does not know leaves the modifiers alone ("Ctrl+Nonsense"
  // reads as Ctrl): each part before the key must be a modifier, and a key
  // must be there.
  const QString trimmed = combination.trimmed();
  const int lastPlus = trimmed.lastIndexOf('+', trimmed.size() - 2);  // "Ctrl++" is Ctrl and "+"
  Qt::KeyboardModifiers named;
  if (lastPlus > 0 && !ParseModifiers(trimmed.left(lastPlus), &named).isEmpty()) return refusal;
  const QKeySequence sequence(combination, QKeySequence::PortableText);
  const int key = sequence.count() == 1 ? sequence[0] & ~Qt::KeyboardModifierMask : 0;
  if (key == 0 || key == Qt::Key_unknown) return refusal;
  const Qt::KeyboardModifiers modifiers(sequence[0] & Qt::KeyboardModifierMask);
  Focus(widget);
  PostKey(widget, key, modifiers, KeyText(key, modifiers));
  return AwaitDelivery();
}

QString ClickItem(QWidget* widget, int row, int column, bool twice, const MouseOptions& options) {
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
  return ClickIndex(view, index, twice, options);
}

QString ClickIndex(QAbstractItemView* view, const QModelIndex& index, bool twice, const MouseOptions& options) {
  if (!index.isValid() || index.model() != view->model()) return "the item is not one of the view's";
  view->scrollTo(index);
  QCoreApplication::processEvents();
  const QRect place = view->visualRect(index);
  if (place.isEmpty()) return "the item is not shown (a collapsed branch, or a hidden row or column)";
  return Click(view->viewport(), place.center(), twice, options);
}

QString PressKeys(QWidget* widget, const QList<KeyStroke>& strokes) {
  constexpr int kKeysPerSlice = 100;  // as Type, in slices
  Focus(widget);
  const QPointer<QWidget> named(widget);
  int posted = 0;
  foreach (const KeyStroke& stroke, strokes) {
    PostKey(named.data(), stroke.key, stroke.modifiers, stroke.text);
    if (++posted % kKeysPerSlice == 0 && posted < strokes.size()) {
      const QString why = AwaitSlice();
      if (!why.isEmpty()) return why;
    }
  }
  return AwaitDelivery();
}

QString CloseWindow(QWidget* window) {
  // close() is a slot: queued, it runs from the event loop as the window
  // system's request would, so a dialog its closeEvent opens does not hold
  // up the caller.
  QMetaObject::invokeMethod(window, "close", Qt::QueuedConnection);
  return AwaitDelivery();
}

QString Settle() { return AwaitDelivery(); }

QString ChooseMenu(QWidget* window, const QString& path) {
  QWidget* in = qobject_cast<QMenu*>(window);
  if (in == nullptr) in = window->findChild<QMenuBar*>();
  if (in == nullptr) return QString("the %1 has no menu bar").arg(window->metaObject()->className());
  auto* bar = qobject_cast<QMenuBar*>(in);
  const QStringList names = path.split('/');
  QList<QAction*> actions = in->actions();
  for (int i = 0; i < names.size(); ++i) {
    QAction* action = FindAction(actions, names[i]);
    if (action == nullptr)
      return QString("no menu entry \"%1\" in %2; there are %3")
          .arg(names[i], i > 0 ? names[i - 1] : QString(bar ? "the menu bar" : "the menu"), Names(actions));
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

QWidget* WidgetAtPoint(const QPoint& global, QPoint* local) {
  QWidget* target = nullptr;
  if (QWidget* popup = QApplication::activePopupWidget()) {
    target = popup->rect().contains(popup->mapFromGlobal(global)) ? QApplication::widgetAt(global) : nullptr;
    if (target == nullptr || target->window() != popup) target = popup;
  } else {
    target = QApplication::widgetAt(global);
  }
  if (target != nullptr) *local = target->mapFromGlobal(global);
  return target;
}

Pointer::~Pointer() { NotePointerGone(this); }

QString Pointer::Move(const QPoint& global, Qt::KeyboardModifiers modifiers) {
  m_at = global;
  if (m_held != Qt::NoButton) {
    // Where a drag the move starts starts.
    NotePointerHolds(this, global, m_held, modifiers);
    if (DragUnderWay()) {
      PostDragStep(DragStep::kMove, global, m_held, modifiers);
      return AwaitSlice();
    }
  }
  QWidget* target = m_grab.data();
  QPoint local;
  if (m_held != Qt::NoButton && target != nullptr)
    local = target->mapFromGlobal(global);
  else
    target = WidgetAtPoint(global, &local);
  if (target == nullptr) return QString();  // over no window of the application
  PostMouse(target, QEvent::MouseMove, local, Qt::NoButton, m_held, modifiers);
  return AwaitSlice();
}

QString Pointer::Press(Qt::MouseButton button, Qt::KeyboardModifiers modifiers) {
  if (m_held & button) return QString();
  QPoint local;
  QWidget* target = m_held != Qt::NoButton && m_grab != nullptr ? m_grab.data() : WidgetAtPoint(m_at, &local);
  if (target == nullptr) return "no window of the application is under the pointer";
  local = target->mapFromGlobal(m_at);
  const bool twice = button == m_lastButton && m_lastRelease.isValid() &&
                     m_lastRelease.elapsed() < QApplication::doubleClickInterval() &&
                     (m_at - m_lastAt).manhattanLength() <= QApplication::startDragDistance();
  m_lastButton = Qt::NoButton;
  // A press in a window makes it the active one, as the window system does.
  QWidget* window = target->window();
  if (window != QApplication::activeWindow() && QApplication::activePopupWidget() == nullptr) {
    window->activateWindow();
    QApplication::setActiveWindow(window);
  }
  if (m_held == Qt::NoButton) m_grab = target;
  m_held |= button;
  InstallDragHook();
  NotePointerHolds(this, m_at, m_held, modifiers);
  PostMouse(target, twice ? QEvent::MouseButtonDblClick : QEvent::MouseButtonPress, local, button, m_held, modifiers);
  return AwaitDelivery();
}

QString Pointer::Release(Qt::MouseButton button, Qt::KeyboardModifiers modifiers) {
  if (!(m_held & button)) return QString();
  m_held &= ~button;
  QWidget* target = m_grab.data();
  if (m_held == Qt::NoButton) m_grab = nullptr;
  m_lastButton = button;
  m_lastAt = m_at;
  m_lastRelease.start();
  if (DragUnderWay()) {
    // The drop: the drag's loop takes the release, the widget that took
    // the press never sees it (as with the system's drag).
    PostDragStep(DragStep::kDrop, m_at, m_held, modifiers);
    m_held = Qt::NoButton;
    m_grab = nullptr;
    NotePointerHolds(this, m_at, m_held, modifiers);
    return AwaitDelivery();
  }
  NotePointerHolds(this, m_at, m_held, modifiers);
  if (target == nullptr) return QString();  // the widget that took the press is gone
  const QPoint local = target->mapFromGlobal(m_at);
  PostMouse(target, QEvent::MouseButtonRelease, local, button, m_held, modifiers);
  if (button == Qt::RightButton)
    QCoreApplication::postEvent(target,
                                new QContextMenuEvent(QContextMenuEvent::Mouse, local, m_at, modifiers));
  return AwaitDelivery();
}

QString Pointer::Scroll(const QPoint& global, int deltaX, int deltaY, Qt::KeyboardModifiers modifiers) {
  // A wheel's notch is 120 eighths of a degree; take one for 100 pixels,
  // the distance a browser scrolls for it, and at least one eighth.
  const auto wheel = [](int pixels) { return pixels == 0 ? 0 : (pixels > 0 ? 1 : -1) * qMax(1, qAbs(pixels) * 120 / 100); };
  QPoint local;
  QWidget* target = WidgetAtPoint(global, &local);
  if (target == nullptr) return "no window of the application is under the pointer";
  // Qt's wheel turns away from the user for content moving down: the
  // opposite sign of a scroll down.
  if (deltaY != 0)
    QCoreApplication::postEvent(target, new QWheelEvent(local, global, -wheel(deltaY), m_held, modifiers, Qt::Vertical));
  if (deltaX != 0)
    QCoreApplication::postEvent(target, new QWheelEvent(local, global, -wheel(deltaX), m_held, modifiers, Qt::Horizontal));
  return AwaitDelivery();
}

QString SendKeyEvent(bool press, int key, Qt::KeyboardModifiers modifiers, const QString& text, QWidget* fallback) {
  if (key == Qt::Key_Escape && DragUnderWay()) {  // Escape cancels a drag and reaches no widget
    if (press) PostDragStep(DragStep::kCancel, QPoint(), Qt::NoButton, modifiers);
    return AwaitSlice();
  }
  PostKeyEvent(press ? QEvent::KeyPress : QEvent::KeyRelease, fallback, key, modifiers, text);
  return AwaitSlice();
}

}  // namespace kwauto
