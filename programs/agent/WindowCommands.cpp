// Windows, the page source and screenshots. A window's handle is its
// element reference: stable while the window lives, never reused.
#include <QtGui/QApplication>
#include <QtGui/QWidget>

#include "agent/ElementSupport.h"
#include "agent/Session.h"
#include "automation/InputEvents.h"
#include "automation/PageSource.h"

namespace kwagent {

namespace {

Json Handles(SessionState& session) {
  Json out = Json::array();
  foreach (QWidget* window, VisibleWindows(session.elements)) out.push_back(session.elements.Id(window));
  return out;
}

Json GetWindowHandle(const Json&, SessionState& session) {
  return session.elements.Id(CurrentWindow(session));
}

Json GetWindowHandles(const Json&, SessionState& session) { return Handles(session); }

Json SwitchToWindow(const Json& params, SessionState& session) {
  const QString handle = StringParam(params, "handle");
  QWidget* window = nullptr;
  try {
    window = session.elements.ResolveId(handle.toUtf8().constData()).Widget();
  } catch (const CommandError&) {
  }
  if (window == nullptr || !VisibleWindows(session.elements).contains(window))
    Fail("no such window", QString("no open window has the handle \"%1\"").arg(handle));
  session.window = window;
  session.windowChosen = true;
  return nullptr;
}

Json CloseWindow(const Json&, SessionState& session) {
  QWidget* window = CurrentWindow(session);
  CheckNotBlocked(window);
  if (QApplication::quitOnLastWindowClosed() && VisibleWindows(session.elements) == QList<QWidget*>() << window) {
    // Once its last window closes the application ends, and the event loop
    // with it: the answer goes first, the window closes after it.
    QMetaObject::invokeMethod(window, "close", Qt::QueuedConnection);
    return Json::array();
  }
  const QString why = kwauto::CloseWindow(window);
  if (!why.isEmpty()) Fail("unknown error", why);
  return Handles(session);
}

// The title as the title bar shows it: "[*]" is the place of the mark of
// unsaved changes.
Json GetTitle(const Json&, SessionState& session) {
  QWidget* window = CurrentWindow(session);
  QString title = window->windowTitle();
  title.replace("[*]", window->isWindowModified() ? "*" : "");
  return JsonOf(title);
}

Json WindowRect(QWidget* window) { return RectJson(window->frameGeometry()); }

Json GetWindowRect(const Json&, SessionState& session) { return WindowRect(CurrentWindow(session)); }

// A field of setWindowRect's: absent or null leaves it as it is.
bool OptionalInt(const Json& params, const char* key, int minimum, int* value) {
  auto found = params.find(key);
  if (found == params.end() || found->is_null()) return false;
  if (!found->is_number_integer() || found->get<long long>() < minimum || found->get<long long>() > 0x7fffffff)
    Fail("invalid argument", QString("\"%1\" must be an integer from %2 or null").arg(key).arg(minimum));
  *value = static_cast<int>(found->get<long long>());
  return true;
}

void Settled(const QString& why) {
  if (!why.isEmpty()) Fail("unknown error", why);
}

Json SetWindowRect(const Json& params, SessionState& session) {
  int x = 0, y = 0, width = 0, height = 0;
  const bool hasX = OptionalInt(params, "x", -0x7fffffff, &x), hasY = OptionalInt(params, "y", -0x7fffffff, &y);
  const bool hasWidth = OptionalInt(params, "width", 0, &width), hasHeight = OptionalInt(params, "height", 0, &height);
  QWidget* window = CurrentWindow(session);
  if (window->windowState() & (Qt::WindowMinimized | Qt::WindowMaximized | Qt::WindowFullScreen)) {
    window->showNormal();
    Settled(kwauto::Settle());
  }
  if (hasWidth || hasHeight) {
    // The sizes asked for are the frame's; the widget's own is without it.
    const QSize frame = window->frameGeometry().size() - window->size();
    window->resize(hasWidth ? width - frame.width() : window->width(),
                   hasHeight ? height - frame.height() : window->height());
  }
  if (hasX || hasY) {
    const QPoint at = window->frameGeometry().topLeft();
    window->move(hasX ? x : at.x(), hasY ? y : at.y());  // a window's position is its frame's
  }
  Settled(kwauto::Settle());
  return WindowRect(window);
}

template <void (QWidget::*show)()>
Json ShowWindow(const Json&, SessionState& session) {
  QWidget* window = CurrentWindow(session);
  (window->*show)();
  Settled(kwauto::Settle());
  return WindowRect(window);
}

Json GetPageSource(const Json&, SessionState& session) {
  kwauto::PageSource source(session.maxItems);
  source.Build(CurrentWindow(session));
  return JsonOf(source.Xml());
}

Json TakeScreenshot(const Json&, SessionState& session) {
  return PngBase64(QPixmap::grabWidget(CurrentWindow(session)));
}

}  // namespace

void AddWindowCommands(CommandTable& table) {
  table.Add("getWindowHandle", GetWindowHandle);
  table.Add("getWindowHandles", GetWindowHandles);
  table.Add("switchToWindow", SwitchToWindow);
  table.Add("closeWindow", CloseWindow);
  table.Add("getTitle", GetTitle);
  table.Add("getWindowRect", GetWindowRect);
  table.Add("setWindowRect", SetWindowRect);
  table.Add("maximizeWindow", ShowWindow<&QWidget::showMaximized>);
  table.Add("minimizeWindow", ShowWindow<&QWidget::showMinimized>);
  table.Add("fullscreenWindow", ShowWindow<&QWidget::showFullScreen>);
  table.Add("getPageSource", GetPageSource);
  table.Add("takeScreenshot", TakeScreenshot);
}

}  // namespace kwagent
