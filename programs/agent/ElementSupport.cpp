#include "agent/ElementSupport.h"

#include <QtCore/QBuffer>
#include <QtGui/QApplication>
#include <QtGui/QDesktopWidget>
#include <QtGui/QWidget>

#include <algorithm>

#include "automation/ObjectText.h"

namespace kwagent {

namespace {

bool IsUserWindow(const QWidget* widget) {
  if (!widget->isWindow() || !widget->isVisible()) return false;
  switch (widget->windowType()) {
    case Qt::Popup:
    case Qt::ToolTip:
    case Qt::SplashScreen:
    case Qt::Desktop:
      return false;
    default:
      return true;
  }
}

int Serial(const std::string& id) { return std::atoi(id.c_str() + 2); }  // "kw17"

}  // namespace

QList<QWidget*> VisibleWindows(ElementTable& elements) {
  QList<QPair<int, QWidget*>> windows;
  foreach (QWidget* top, QApplication::topLevelWidgets())
    if (IsUserWindow(top)) windows.append(qMakePair(Serial(elements.Id(top)), top));
  std::sort(windows.begin(), windows.end(),
            [](const QPair<int, QWidget*>& a, const QPair<int, QWidget*>& b) { return a.first < b.first; });
  QList<QWidget*> out;
  for (const auto& window : windows) out.append(window.second);
  return out;
}

QWidget* CurrentWindow(SessionState& session) {
  if (!session.windowChosen) {
    const QList<QWidget*> windows = VisibleWindows(session.elements);
    QWidget* active = QApplication::activeWindow();
    QWidget* chosen = windows.contains(active) ? active : windows.isEmpty() ? nullptr : windows.first();
    if (chosen == nullptr) Fail("no such window", "the application shows no window");
    session.window = chosen;
    session.windowChosen = true;
  }
  QWidget* window = session.window.data();
  if (window == nullptr) Fail("no such window", "the current window was destroyed; switch to another");
  if (!window->isVisible()) Fail("no such window", "the current window was closed; switch to another");
  return window;
}

const QWidget* BlockingModal(const QObject* target) {
  const QWidget* modal = QApplication::activeModalWidget();
  if (modal == nullptr) return nullptr;
  for (const QObject* inside = target; inside != nullptr; inside = inside->parent())
    if (inside == modal) return nullptr;
  return modal;
}

void CheckNotBlocked(const QObject* target) {
  const QWidget* modal = BlockingModal(target);
  if (modal == nullptr) return;
  Fail("unexpected alert open",
       QString("the modal %1 is open: a user cannot reach the %2 before it is answered")
           .arg(kwauto::ObjectDescription(modal), target->metaObject()->className()));
}

bool Displayed(const QWidget* widget) {
  if (!widget->isVisible() || widget->window()->isMinimized()) return false;
  // The part of the widget its parents leave, in its window's coordinates.
  QRect shown = widget->rect();
  const QWidget* at = widget;
  while (!at->isWindow()) {
    shown = shown.translated(at->pos()) & at->parentWidget()->rect();
    if (shown.isEmpty()) return false;
    at = at->parentWidget();
  }
  if (shown.isEmpty()) return false;
  const QRect onScreen(at->mapToGlobal(shown.topLeft()), shown.size());
  return onScreen.intersects(QApplication::desktop()->geometry());
}

void CheckInteractable(const QWidget* widget) {
  if (!Displayed(widget))
    Fail("element not interactable", QString("the %1 is not displayed").arg(kwauto::ObjectDescription(widget)));
  if (!widget->isEnabled())
    Fail("element not interactable", QString("the %1 is disabled").arg(kwauto::ObjectDescription(widget)));
}

Json RectJson(const QRect& rect) {
  return Json{{"x", rect.x()}, {"y", rect.y()}, {"width", rect.width()}, {"height", rect.height()}};
}

Json PngBase64(const QPixmap& picture) {
  if (picture.isNull()) Fail("unable to capture screen", "the picture is empty (nothing of it is shown)");
  QByteArray png;
  QBuffer buffer(&png);
  buffer.open(QIODevice::WriteOnly);
  if (!picture.save(&buffer, "PNG")) Fail("unable to capture screen", "the picture could not be written as PNG");
  return Json(std::string(png.toBase64().constData()));
}

}  // namespace kwagent
