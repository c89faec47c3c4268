// The core's waits: a job (a script, a driver's command) run on a fiber of
// the GUI thread. Whenever the job waits (for events to be delivered, for
// an object to appear) it hands the thread back to the event loop, which
// resumes it on a timer, so the application goes on working while the job
// waits: a modal dialog opened by a call the job posted runs its own event
// loop, and the job, resumed from there, can find it and close it. The
// runner is the event pump (EventPump.h) while a job runs.
#pragma once

#include <windows.h>

#include <QtCore/QObject>
#include <QtCore/QPointer>
#include <QtCore/QString>

#include <atomic>
#include <cstdint>
#include <functional>
#include <vector>

class QWidget;

namespace kwauto {

// A call the job makes on an object of the application, made on the
// GUI thread's own fiber (FiberRunner::CallOffScript). It owns what the
// call needs: when it is given up it outlives the job's call.
class FiberCall {
 public:
  virtual ~FiberCall() = default;
  // Makes the call; on the main fiber.
  virtual void Make() = 0;
  // The modal window or popup the call opened and waits in, once shown.
  QPointer<QWidget> window;
  bool givenUp = false;
};

class FiberRunner : public QObject {
 public:
  // Called on the GUI thread once the job has ended, with its outcome.
  using Done = std::function<void(bool succeeded)>;

  // `job` returns whether it succeeded.
  FiberRunner(std::function<bool()> job, Done done);
  ~FiberRunner() override;

  // Starts the job from the event loop of the calling (GUI) thread, or with
  // `now` at once, from the caller (an event handler of that loop), until
  // the job first waits or ends. Empty, or why it could not start (no
  // fiber): `done` has then been called with false.
  QString Start(bool now = false);

  // From the job: lets the event loop run, then comes back. Outside a
  // job's fiber it processes the pending events instead. False when the
  // job is to stop (see RequestStop): its loops end there.
  static bool YieldToEventLoop();

  // From the job: makes `call` on the main fiber and returns true once
  // it has returned. When a modal window or a popup shows while it runs,
  // the call is given up instead: false at once, `call->window` that
  // window, which stays open; the call waits in the window's loop, the
  // job goes on (and may answer the window), and the runner deletes
  // `call` when it returns. Outside a job's fiber the call is made in place.
  static bool CallOffScript(FiberCall* call);
  // Calls given up that have not returned yet.
  static int CallsGivenUp();

  // Asks the running job to stop, from any thread: every wait and call it
  // makes from then on fails with `reason` (a script's error report shows
  // it with the script's line). Cleared when a job starts.
  static void RequestStop(const QString& reason);
  // Whether a stop was asked for, and why.
  static bool StopRequested(QString* reason);

  // Addresses of code (a script engine's) where the job's thread may be
  // taken off the job at any instruction: code that holds no lock of the
  // process and leaves nothing of the thread's half done.
  struct CodeRange {
    std::uintptr_t begin = 0;
    std::uintptr_t end = 0;
  };

  // From another thread, for a job that a stop (RequestStop, asked
  // before) cannot reach (a script's loop that makes no call): once the
  // job's thread is caught running in one of `ranges` on the job's fiber,
  // switches that thread back to the event loop where the job last left
  // it. The job's frames stay as they are and never run again; its fiber
  // is kept, since objects of the application may still point into its
  // stack, and the runner ends the job as failed (WasCutOff). Tries for about `patienceMs`; false when
  // no job asked to stop runs on its fiber (a later job is never cut off
  // for an earlier one's stop) or the thread was never caught in `ranges`.
  static bool CutOff(const std::vector<CodeRange>& ranges, int patienceMs);
  // Whether this runner's job ended by CutOff.
  bool WasCutOff() const { return m_cutOff; }

  // Whether a frame of this runner is still on the thread's stack: a call
  // of its job, given up, waits in a modal window's loop, and returns to
  // the runner once the window closes, though the job may have ended.
  bool InUse() const { return m_entered > 0; }
  // Deletes the runner at once, or when its last frame has left.
  void Dispose();

  // For a crash report, on the GUI thread while the job waits for the
  // event loop (the usual case: the application's own handlers crash on
  // the events a job's call posted): stops the job with `reason` and
  // lets it run until its call has failed, so that a script's error names
  // the line, and until it ends or waits again. False when no job waits.
  static bool GiveCrashToScript(const QString& reason);

 protected:
  void timerEvent(QTimerEvent* event) override;
  bool eventFilter(QObject* watched, QEvent* event) override;

 private:
  // A fiber for jobs: the runner whose job it runs. Once a job has ended
  // on it, it waits for the next job of its thread, since making a fiber
  // and freeing it costs more than a quick command (some 40 µs under Wine).
  struct JobFiber {
    void* handle = nullptr;
    FiberRunner* runner = nullptr;
  };
  static void CALLBACK FiberMain(void* jobFiber);
  // A fiber whose job has ended, for the next job of its thread.
  static JobFiber* s_spareFiber;
  static DWORD s_spareThread;
  // A fiber for this runner's job: the thread's spare one, or a new one;
  // and, once the job has ended, back as the spare one (or freed).
  bool TakeFiber();
  void GiveBackFiber();
  void* Fiber() const { return m_jobFiber != nullptr ? m_jobFiber->handle : nullptr; }
  // On the main fiber: lets the job run until it waits or ends, making
  // the calls it asks for meanwhile.
  void Resume();
  // Runs the job's fiber and serves its calls; false when a call given up
  // returned here after the job had gone on without it (the job's
  // state is then no business of this frame any more).
  bool EnterScript();
  void GiveUpCall();
  // On the main fiber, once the job has ended or was cut off.
  void Finish();

  std::function<bool()> m_job;
  Done m_done;
  JobFiber* m_jobFiber = nullptr;
  void* m_mainFiber = nullptr;
  bool m_convertedThread = false;
  bool m_inScript = false;
  bool m_finished = false;
  DWORD m_thread = 0;
  bool m_succeeded = false;
  int m_timer = 0;
  FiberCall* m_request = nullptr;   // asked for by the job, not yet made
  FiberCall* m_underway = nullptr;  // being made on the main fiber
  int m_giveUpTimer = 0;
  std::atomic<bool> m_cutOff{false};
  int m_entered = 0;        // frames of EnterScript on the stack
  bool m_disposed = false;  // to be deleted once none is
};

}  // namespace kwauto
