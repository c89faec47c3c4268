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

#include <QtCore/QPoint>
#include <QtCore/QString>

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

// Opens the menus of the path ("File/Save As...") in the window's menu bar
// by clicks and clicks the last entry; given an open menu (a context menu)
// instead of a window, the path starts in it. Entries are named by their
// text without "&" and without a shortcut.
QString ChooseMenu(QWidget* window, const QString& path);

}  // namespace kwauto
