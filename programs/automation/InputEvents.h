// What a user does, as the events Qt would get from the window system:
// mouse presses and releases at a place in a widget (delivered to the child
// there; a right button's release followed by a context menu event, as on
// Windows), key presses and releases with their text to whichever widget has
// the focus when each key arrives (so a key that opens a cell editor or
// moves the focus sends the next ones there, and shortcuts and mnemonics
// work). The events are posted and each function returns once the event
// loop has delivered them, also when one of them opens a modal dialog that
// is still open. Each returns an empty string, or what went wrong.
#pragma once

#include <QtCore/QList>
#include <QtCore/QPoint>
#include <QtCore/QPointer>
#include <QtCore/QString>
#include <QtCore/QTime>

class QAbstractItemView;
class QModelIndex;
class QWidget;

namespace kwauto {

// The button a click or drag uses and the modifier keys held meanwhile.
struct MouseOptions {
  Qt::MouseButton button = Qt::LeftButton;
  Qt::KeyboardModifiers modifiers = Qt::NoModifier;
};

// "left", "right" or "middle" (any case).
QString ParseButton(const QString& name, Qt::MouseButton* button);
// "Shift", "Ctrl", "Alt", "Meta" joined by "+" (any case); "" for none.
QString ParseModifiers(const QString& names, Qt::KeyboardModifiers* modifiers);
// The options as text: "button=right modifiers=Shift+Ctrl", either part
// left out for its default, the parts separated by blanks.
QString ParseMouseOptions(const QString& text, MouseOptions* options);

// A click (or a double click) at `at` in the widget's own coordinates.
QString Click(QWidget* widget, const QPoint& at, bool twice, const MouseOptions& options = MouseOptions());

// A press at `start` in `from`, the pointer moved in steps with the button
// held to `end` in `to`, and released there. The moves and the release go
// to the widget that took the press, as the window system's implicit grab
// sends them.
QString Drag(QWidget* from, const QPoint& start, QWidget* to, const QPoint& end,
             const MouseOptions& options = MouseOptions());

// The centre of the widget.
QPoint Centre(const QWidget* widget);

// Gives the widget the focus in its window, as a click would, then types
// `text` one character at a time ("\t" is the Tab key, "\n" Return).
QString Type(QWidget* widget, const QString& text);

// Presses one key combination ("Return", "Ctrl+S", "Alt+F", "Tab") in the
// widget, after giving it the focus.
QString Key(QWidget* widget, const QString& combination);

// Clicks (or double-clicks) the item at row and column of an item view (a
// list, table or tree) at the centre of its rectangle, scrolled into view.
QString ClickItem(QWidget* view, int row, int column, bool twice, const MouseOptions& options = MouseOptions());

// Clicks (or double-clicks) the item of `index` (of the view's model, at
// any depth of a tree) at the centre of its rectangle, scrolled into view.
QString ClickIndex(QAbstractItemView* view, const QModelIndex& index, bool twice,
                   const MouseOptions& options = MouseOptions());

// One key pressed and released: the Qt key, the modifiers held and the
// text it types (empty for keys that type nothing).
struct KeyStroke {
  int key = 0;
  Qt::KeyboardModifiers modifiers = Qt::NoModifier;
  QString text;
};

// Gives the widget the focus in its window, as Type does, then presses the
// keys one after another, each delivered to whichever widget has the
// keyboard when it arrives.
QString PressKeys(QWidget* widget, const QList<KeyStroke>& strokes);

// Asks the window to close, as its title bar's close button does (its
// closeEvent may refuse, or open a dialog that asks first), and returns
// once the event loop has delivered that.
QString CloseWindow(QWidget* window);

// Lets the event loop deliver everything posted so far (a window moved or
// shown, a model changed); returns once it has, or what went wrong.
QString Settle();

// Opens the menus of the path ("File/Save As...") in the window's menu bar
// by clicks and clicks the last entry; given an open menu (a context menu)
// instead of a window, the path starts in it. Entries are named by their
// text without "&" and without a shortcut.
QString ChooseMenu(QWidget* window, const QString& path);

// The pointer of a sequence its caller drives step by step (WebDriver's
// actions): moves, presses and releases at places on the screen, each
// delivered as the window system would before the call returns. A move or
// press goes to the widget under the pointer (inside an open popup, the
// popup), the moves and the release while a button is held to the widget
// that took the press. A press where the last one of the same button was
// released, within the double-click interval, is a double click. A drag
// and drop the application starts while a button is held goes on with the
// pointer's moves and ends with its release (SystemDrag.h).
class Pointer {
 public:
  Pointer() = default;
  Pointer(const Pointer&) = delete;
  Pointer& operator=(const Pointer&) = delete;
  ~Pointer();

  QPoint position() const { return m_at; }
  Qt::MouseButtons buttons() const { return m_held; }

  QString Move(const QPoint& global, Qt::KeyboardModifiers modifiers);
  QString Press(Qt::MouseButton button, Qt::KeyboardModifiers modifiers);
  QString Release(Qt::MouseButton button, Qt::KeyboardModifiers modifiers);
  // A wheel turned at `global` by `deltaX` and `deltaY` pixels (positive:
  // right and down), to the widget under it.
  QString Scroll(const QPoint& global, int deltaX, int deltaY, Qt::KeyboardModifiers modifiers);

 private:
  QPoint m_at;
  Qt::MouseButtons m_held = Qt::NoButton;
  QPointer<QWidget> m_grab;  // took the press of the buttons held
  // The last release, for a double click.
  Qt::MouseButton m_lastButton = Qt::NoButton;
  QPoint m_lastAt;
  QTime m_lastRelease;
};

// The widget a pointer event at `global` reaches: inside an open popup
// the popup's child there (the popup outside it), else the widget there;
// `local` becomes the place in it. Null when no widget of the application
// is there.
QWidget* WidgetAtPoint(const QPoint& global, QPoint* local);

// One key's press (or release) alone, delivered to the widget that has the
// keyboard when it arrives (else to `fallback`); returns once delivered.
QString SendKeyEvent(bool press, int key, Qt::KeyboardModifiers modifiers, const QString& text,
                     QWidget* fallback = nullptr);

}  // namespace kwauto
