// What the element and window commands share: the session's windows, the
// checks a user's action goes through, and pictures and rectangles as a
// driver is answered them.
#pragma once

#include <QtCore/QList>
#include <QtCore/QRect>
#include <QtGui/QPixmap>

#include "agent/Session.h"

class QWidget;

namespace kwagent {

// The application's windows a user sees (visible top-level widgets that are
// no popup, tool tip or splash screen), in the order of their handles.
QList<QWidget*> VisibleWindows(ElementTable& elements);

// The current window: the one switched to, else (until one is) the active
// window or the first visible one. `no such window` once the window
// switched to is closed or destroyed, or when there is none.
QWidget* CurrentWindow(SessionState& session);

// The modal window that keeps a user from `target` (one is open and
// `target` is not inside it), or null.
const QWidget* BlockingModal(const QObject* target);

// `unexpected alert open` when a modal window keeps a user from `target`.
void CheckNotBlocked(const QObject* target);

// Whether a user sees the widget: it is visible, not minimized, not clipped
// away entirely by its parents and at least partly on the screen.
bool Displayed(const QWidget* widget);

// `element not interactable` for a widget that is hidden or disabled.
void CheckInteractable(const QWidget* widget);

// A rectangle as WebDriver gives one: {x, y, width, height}.
Json RectJson(const QRect& rect);

// A picture as WebDriver gives one: PNG, in Base64.
Json PngBase64(const QPixmap& picture);

}  // namespace kwagent
