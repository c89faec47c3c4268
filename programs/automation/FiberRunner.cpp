#include "automation/FiberRunner.h"

#include <QtCore/QAtomicInt>
#include <QtCore/QCoreApplication>
#include <QtCore/QMutex>
#include <QtCore/QTimerEvent>
#include <QtGui/QApplication>
#include <QtGui/QWidget>

#include <atomic>

#include "automation/EventPump.h"

namespace kwauto {

namespace {

// The runner whose job's fiber is running now, if any.
FiberRunner* g_current = nullptr;
// The runner whose job waits for the event loop, if any.
FiberRunner* g_waiting = nullptr;
// The runner whose job's fiber the thread is on now, for CutOff from
// another thread; and that thread, once a job has started on it.
std::atomic<FiberRunner*> g_onFiber{nullptr};
std::atomic<HANDLE> g_jobThread{nullptr};

// A stop asked for, from any thread.
QMutex g_stopLock;
QString g_stopReason;
QAtomicInt g_stopRequested(0);
// Calls given up (CallOffScript) still under way.
int g_givenUp = 0;
constexpr SIZE_T kScriptStack = 4 * 1024 * 1024;
constexpr int kResumeIntervalMs = 10;
// How far below the stack pointer of a job cut off the thread goes on.
constexpr DWORD64 kCutOffSlack = 64;

// The fiber running now. GetCurrentFiber reads the thread block through gs,
// which GCC's bounds check takes for an access to an empty array.
void* CurrentFiber() {
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Warray-bounds"
  return GetCurrentFiber();
#pragma GCC diagnostic pop
}

// Remembers the thread jobs run on, with the rights CutOff needs.
void NoteJobThread() {
  if (g_jobThread.load() != nullptr) return;
  HANDLE thread = nullptr;
  if (!DuplicateHandle(GetCurrentProcess(), GetCurrentThread(), GetCurrentProcess(), &thread,
                       THREAD_SUSPEND_RESUME | THREAD_GET_CONTEXT | THREAD_SET_CONTEXT, FALSE, 0))
    return;
  g_jobThread = thread;
}

bool Inside(const std::vector<FiberRunner::CodeRange>& ranges, DWORD64 address) {
  for (const FiberRunner::CodeRange& range : ranges)
    if (address >= range.begin && address < range.end) return true;
  return false;
}

// Where the thread of a job cut off goes on: on the job's stack, back to
// the fiber that entered the job, as if the job had switched there.
[[noreturn]] __attribute__((noinline)) void LeaveJobFiber(void* mainFiber) {
  for (;;) SwitchToFiber(mainFiber);
}

}  // namespace

FiberRunner::JobFiber* FiberRunner::s_spareFiber = nullptr;
DWORD FiberRunner::s_spareThread = 0;

FiberRunner::FiberRunner(std::function<bool()> job, Done done) : m_job(std::move(job)), m_done(std::move(done)) {}

FiberRunner::~FiberRunner() {
  if (qApp != nullptr) qApp->removeEventFilter(this);
  if (m_timer != 0) killTimer(m_timer);
  if (m_jobFiber != nullptr) {  // a job that never ended: its frames go with it
    DeleteFiber(m_jobFiber->handle);
    delete m_jobFiber;
  }
  if (g_waiting == this) g_waiting = nullptr;
}

void FiberRunner::RequestStop(const QString& reason) {
  QMutexLocker lock(&g_stopLock);
  g_stopReason = reason;
  g_stopRequested = 1;
}

bool FiberRunner::StopRequested(QString* reason) {
  if (!g_stopRequested) return false;
  QMutexLocker lock(&g_stopLock);
  *reason = g_stopReason;
  return true;
}

bool FiberRunner::GiveCrashToScript(const QString& reason) {
  FiberRunner* runner = g_waiting;
  if (runner == nullptr || runner->m_finished || runner->m_inScript || runner->m_thread != GetCurrentThreadId())
    return false;
  RequestStop(reason);
  g_waiting = nullptr;
  g_current = runner;
  runner->m_inScript = true;
  g_onFiber = runner;
  SwitchToFiber(runner->Fiber());
  g_onFiber = nullptr;
  return true;
}

QString FiberRunner::Start(bool now) {
  g_stopRequested = 0;
  m_thread = GetCurrentThreadId();
  NoteJobThread();
  SetEventPump(&FiberRunner::YieldToEventLoop, &FiberRunner::StopRequested);
  if (IsThreadAFiber()) {
    m_mainFiber = CurrentFiber();
  } else {
    m_mainFiber = ConvertThreadToFiber(nullptr);
    m_convertedThread = m_mainFiber != nullptr;
  }
  if (m_mainFiber == nullptr || !TakeFiber()) {
    const QString why = QString("cannot make the job's fiber (error %1)").arg(GetLastError());
    m_finished = true;
    if (m_done) m_done(false);
    return why;
  }
  qApp->installEventFilter(this);
  if (now)
    Resume();
  else
    m_timer = startTimer(0);
  return QString();
}

bool FiberRunner::CallOffScript(FiberCall* call) {
  FiberRunner* runner = g_current;
  if (runner == nullptr || runner->Fiber() == nullptr || CurrentFiber() != runner->Fiber()) {
    call->Make();
    return true;
  }
  runner->m_request = call;
  SwitchToFiber(runner->m_mainFiber);
  return !call->givenUp;
}

int FiberRunner::CallsGivenUp() { return g_givenUp; }

bool FiberRunner::eventFilter(QObject* watched, QEvent* event) {
  // A modal window or a popup shown while a call of the job is under
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

void FiberRunner::Dispose() {
  if (m_entered == 0)
    delete this;
  else
    m_disposed = true;
}

bool FiberRunner::EnterScript() {
  struct Entered {
    FiberRunner* runner;
    explicit Entered(FiberRunner* r) : runner(r) { ++runner->m_entered; }
    ~Entered() {
      // The event loop deletes it, after the frames that called this one.
      if (--runner->m_entered == 0 && runner->m_disposed) runner->deleteLater();
    }
  } entered(this);
  FiberRunner* const enteredFrom = g_onFiber;
  g_onFiber = this;
  SwitchToFiber(Fiber());
  g_onFiber = enteredFrom;
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
    g_onFiber = this;
    SwitchToFiber(Fiber());
    g_onFiber = enteredFrom;
  }
  return true;
}

bool FiberRunner::CutOff(const std::vector<CodeRange>& ranges, int patienceMs) {
  const HANDLE thread = g_jobThread;
  if (thread == nullptr || ranges.empty()) return false;
  const DWORD start = GetTickCount();
  for (;;) {
    if (g_onFiber.load() == nullptr || !g_stopRequested) return false;
    if (SuspendThread(thread) == static_cast<DWORD>(-1)) return false;
    // Until the thread resumes, nothing here may take a lock: it may hold
    // it (the heap's, the loader's).
    FiberRunner* const runner = g_onFiber;
    CONTEXT context;
    ZeroMemory(&context, sizeof context);
    context.ContextFlags = CONTEXT_CONTROL | CONTEXT_INTEGER;
    bool cut = false;
    if (runner != nullptr && g_stopRequested && !runner->m_cutOff && GetThreadContext(thread, &context) &&
        Inside(ranges, context.Rip)) {
      context.Rsp = ((context.Rsp - kCutOffSlack) & ~static_cast<DWORD64>(15)) - 8;  // as a call leaves it
      context.Rip = reinterpret_cast<DWORD64>(&LeaveJobFiber);
      context.Rcx = reinterpret_cast<DWORD64>(runner->m_mainFiber);
      runner->m_cutOff = true;
      cut = SetThreadContext(thread, &context) != 0;
      if (!cut) runner->m_cutOff = false;
    }
    ResumeThread(thread);
    if (runner == nullptr) return false;
    if (cut) return true;
    if (GetTickCount() - start >= static_cast<DWORD>(patienceMs)) return false;
    Sleep(1);
  }
}

void FiberRunner::GiveUpCall() {
  killTimer(m_giveUpTimer);
  m_giveUpTimer = 0;
  if (m_underway == nullptr || m_finished) return;
  m_underway->givenUp = true;
  m_underway = nullptr;
  ++g_givenUp;
  Resume();
}

bool FiberRunner::TakeFiber() {
  if (s_spareFiber != nullptr && s_spareThread == m_thread) {
    m_jobFiber = s_spareFiber;
    s_spareFiber = nullptr;
  } else {
    auto* fiber = new JobFiber;
    fiber->handle = CreateFiber(kScriptStack, &FiberRunner::FiberMain, fiber);
    if (fiber->handle == nullptr) {
      delete fiber;
      return false;
    }
    m_jobFiber = fiber;
  }
  m_jobFiber->runner = this;
  return true;
}

void FiberRunner::GiveBackFiber() {
  if (s_spareFiber == nullptr) {
    s_spareFiber = m_jobFiber;
    s_spareThread = m_thread;
    return;
  }
  DeleteFiber(m_jobFiber->handle);
  delete m_jobFiber;
}

void CALLBACK FiberRunner::FiberMain(void* parameter) {
  auto* fiber = static_cast<JobFiber*>(parameter);
  for (;;) {
    FiberRunner* runner = fiber->runner;
    runner->m_succeeded = runner->m_job();
    runner->m_finished = true;
    SwitchToFiber(runner->m_mainFiber);  // resumed by the next job given this fiber, if any
  }
}

bool FiberRunner::YieldToEventLoop() {
  FiberRunner* runner = g_current;
  if (runner == nullptr)
    QCoreApplication::processEvents();
  else
    SwitchToFiber(runner->m_mainFiber);
  return !g_stopRequested;
}

void FiberRunner::timerEvent(QTimerEvent* event) {
  if (event->timerId() == m_giveUpTimer && m_giveUpTimer != 0) return GiveUpCall();
  if (event->timerId() != m_timer || m_inScript || m_finished) return;
  if (m_timer != 0) killTimer(m_timer);
  m_timer = 0;
  Resume();
}

void FiberRunner::Resume() {
  m_inScript = true;
  FiberRunner* outer = g_current == this ? nullptr : g_current;
  g_current = this;
  g_waiting = nullptr;
  if (!EnterScript()) return;
  g_current = outer;
  m_inScript = false;
  if (m_cutOff) {
    m_finished = true;
    m_succeeded = false;
  }
  g_waiting = m_finished ? nullptr : this;
  if (!m_finished) {
    m_timer = startTimer(kResumeIntervalMs);
    return;
  }
  Finish();
}

void FiberRunner::Finish() {
  // A job cut off keeps its fiber: its frames never run again, but what
  // they registered (a guarded pointer of Qt's on the stack) may still be
  // written to.
  if (!m_cutOff) GiveBackFiber();
  m_jobFiber = nullptr;
  if (m_convertedThread) ConvertFiberToThread();
  m_convertedThread = false;
  if (m_done) m_done(m_succeeded);
}

}  // namespace kwauto
