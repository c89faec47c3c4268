#include "kwscript/ScriptRunner.h"

#include <QtCore/QAtomicInt>
#include <QtCore/QCoreApplication>
#include <QtCore/QMutex>
#include <QtCore/QTimerEvent>
#include <QtGui/QApplication>
#include <QtGui/QWidget>

#include "automation/EventPump.h"
#include "kwscript/Output.h"
#include "kwscript/ScriptHost.h"

namespace kwscript {

namespace {

// The runner whose script fiber is running now, if any.
ScriptRunner* g_current = nullptr;
// The runner whose script waits for the event loop, if any.
ScriptRunner* g_waiting = nullptr;

// A stop asked for, from any thread.
QMutex g_stopLock;
QString g_stopReason;
QAtomicInt g_stopRequested(0);
// Calls given up (CallOffScript) still under way.
int g_givenUp = 0;
constexpr SIZE_T kScriptStack = 4 * 1024 * 1024;
constexpr int kResumeIntervalMs = 10;

// The fiber running now. GetCurrentFiber reads the thread block through gs,
// which GCC's bounds check takes for an access to an empty array.
void* CurrentFiber() {
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Warray-bounds"
  return GetCurrentFiber();
#pragma GCC diagnostic pop
}

}  // namespace

ScriptRunner::ScriptRunner(std::wstring path, std::wstring code, IDispatch* app, Done done)
    : m_job([path = std::move(path), code = std::move(code), app] { return RunScript(path, code, app); }),
      m_done(std::move(done)) {}

ScriptRunner::ScriptRunner(std::function<bool()> job, Done done) : m_job(std::move(job)), m_done(std::move(done)) {}

ScriptRunner::~ScriptRunner() {
  if (qApp != nullptr) qApp->removeEventFilter(this);
  if (m_timer != 0) killTimer(m_timer);
  if (m_fiber != nullptr) DeleteFiber(m_fiber);
  if (g_waiting == this) g_waiting = nullptr;
}

void ScriptRunner::RequestStop(const QString& reason) {
  QMutexLocker lock(&g_stopLock);
  g_stopReason = reason;
  g_stopRequested = 1;
}

bool ScriptRunner::StopRequested(QString* reason) {
  if (!g_stopRequested) return false;
  QMutexLocker lock(&g_stopLock);
  *reason = g_stopReason;
  return true;
}

bool ScriptRunner::AwaitOrStop(HANDLE done, int seconds, QString* why) {
  constexpr DWORD kStopGraceMs = 10000;
  if (WaitForSingleObject(done, seconds > 0 ? seconds * 1000u : INFINITE) != WAIT_TIMEOUT) return true;
  const QString late = QString("the script did not finish within %1 s").arg(seconds);
  RequestStop(late);
  if (WaitForSingleObject(done, kStopGraceMs) != WAIT_TIMEOUT) return true;
  *why = late + " and does not stop";
  return false;
}

bool ScriptRunner::GiveCrashToScript(const QString& reason) {
  ScriptRunner* runner = g_waiting;
  if (runner == nullptr || runner->m_finished || runner->m_inScript || runner->m_thread != GetCurrentThreadId())
    return false;
  RequestStop(reason);
  g_waiting = nullptr;
  g_current = runner;
  runner->m_inScript = true;
  SwitchToFiber(runner->m_fiber);
  return true;
}

void ScriptRunner::Start() {
  g_stopRequested = 0;
  m_thread = GetCurrentThreadId();
  kwauto::SetEventPump(&ScriptRunner::YieldToEventLoop, &ScriptRunner::StopRequested);
  if (IsThreadAFiber()) {
    m_mainFiber = CurrentFiber();
  } else {
    m_mainFiber = ConvertThreadToFiber(nullptr);
    m_convertedThread = m_mainFiber != nullptr;
  }
  m_fiber = m_mainFiber != nullptr ? CreateFiber(kScriptStack, &ScriptRunner::FiberMain, this) : nullptr;
  if (m_fiber == nullptr) {
    PrintLine(QString("kwscript: cannot make the script's fiber (error %1)").arg(GetLastError()));
    m_finished = true;
    if (m_done) m_done(false);
    return;
  }
  qApp->installEventFilter(this);
  m_timer = startTimer(0);
}

bool ScriptRunner::CallOffScript(FiberCall* call) {
  ScriptRunner* runner = g_current;
  if (runner == nullptr || runner->m_fiber == nullptr || CurrentFiber() != runner->m_fiber) {
    call->Make();
    return true;
  }
  runner->m_request = call;
  SwitchToFiber(runner->m_mainFiber);
  return !call->givenUp;
}

int ScriptRunner::CallsGivenUp() { return g_givenUp; }

bool ScriptRunner::eventFilter(QObject* watched, QEvent* event) {
  // A modal window or a popup shown while a call of the script is under
  // way: the call runs its loop, and will not return until it closes.
  if (event->type() == QEvent::Show && m_underway != nullptr && m_underway->window.isNull() &&
      watched->isWidgetType()) {
    auto* widget = static_cast<QWidget*>(watched);
    if (widget->isWindow() && (widget->isModal() || widget->windowType() == Qt::Popup)) {
      m_underway->window = widget;
      if (m_giveUpTimer == 0) m_giveUpTimer = startTimer(0);
    }
  }
  return false;
}

bool ScriptRunner::EnterScript() {
  SwitchToFiber(m_fiber);
  while (m_request != nullptr && !m_finished) {
    FiberCall* call = m_request;
    m_request = nullptr;
    FiberCall* outer = m_underway;
    m_underway = call;
    call->Make();
    m_underway = outer;
    if (call->givenUp) {
      --g_givenUp;
      delete call;
      return false;
    }
    if (m_giveUpTimer != 0) killTimer(m_giveUpTimer);
    m_giveUpTimer = 0;
    SwitchToFiber(m_fiber);
  }
  return true;
}

void ScriptRunner::GiveUpCall() {
  killTimer(m_giveUpTimer);
  m_giveUpTimer = 0;
  if (m_underway == nullptr || m_finished) return;
  m_underway->givenUp = true;
  m_underway = nullptr;
  ++g_givenUp;
  Resume();
}

void CALLBACK ScriptRunner::FiberMain(void* parameter) {
  auto* runner = static_cast<ScriptRunner*>(parameter);
  runner->m_succeeded = runner->m_job();
  runner->m_finished = true;
  for (;;) SwitchToFiber(runner->m_mainFiber);  // never resumed once finished
}

bool ScriptRunner::YieldToEventLoop() {
  ScriptRunner* runner = g_current;
  if (runner == nullptr)
    QCoreApplication::processEvents();
  else
    SwitchToFiber(runner->m_mainFiber);
  return !g_stopRequested;
}

void ScriptRunner::timerEvent(QTimerEvent* event) {
  if (event->timerId() == m_giveUpTimer && m_giveUpTimer != 0) return GiveUpCall();
  if (event->timerId() != m_timer || m_inScript || m_finished) return;
  if (m_timer != 0) killTimer(m_timer);
  m_timer = 0;
  Resume();
}

void ScriptRunner::Resume() {
  m_inScript = true;
  ScriptRunner* outer = g_current == this ? nullptr : g_current;
  g_current = this;
  g_waiting = nullptr;
  if (!EnterScript()) return;
  g_current = outer;
  m_inScript = false;
  g_waiting = m_finished ? nullptr : this;
  if (!m_finished) {
    m_timer = startTimer(kResumeIntervalMs);
    return;
  }
  DeleteFiber(m_fiber);
  m_fiber = nullptr;
  if (m_convertedThread) ConvertFiberToThread();
  m_convertedThread = false;
  if (m_done) m_done(m_succeeded);
}

}  // namespace kwscript
