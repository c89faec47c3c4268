// What a user does, as the events Qt would get from the window system:
// mouse presses and releases at a place in a widget (delivered to the child
// there), key presses and releases with their text to the focus widget of
// the active window (so shortcuts and mnemonics work). The events are
// posted and each function returns once the event loop has delivered them,
// also when one of them opens a modal dialog that is still open.
// Each returns an empty string, or what went wrong.
#pragma once

#include <QtCore/QPoint>
#include <QtCore/QString>

class QWidget;

namespace kwscript {

// A click (or a double click) at `at` in the widget's own coordinates.
QString Click(QWidget* widget, const QPoint& at, bool twice);

// The centre of the widget.
QPoint Centre(const QWidget* widget);

// Gives the widget the focus in its window, as a click would, then types
// `text` one character at a time.
QString Type(QWidget* widget, const QString& text);

// Presses one key combination ("Return", "Ctrl+S", "Alt+F", "Tab") in the
// widget, after giving it the focus.
QString Key(QWidget* widget, const QString& combination);

// Clicks (or double-clicks) the item at row and column of an item view (a
// list, table or tree) at the centre of its rectangle, scrolled into view.
QString ClickItem(QWidget* view, int row, int column, bool twice);

// Opens the menus of the path ("File/Save As...") in the window's menu bar
// by clicks and clicks the last entry. Entries are named by their text
// without "&" and without a shortcut.
QString ChooseMenu(QWidget* window, const QString& path);

}  // namespace kwscript
