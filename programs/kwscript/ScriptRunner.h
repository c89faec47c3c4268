// Runs a script (or another job) on a fiber of the GUI thread. Whenever the script waits
// (app.processEvents, app.waitFor) it hands the thread back to the event
// loop, which resumes it on a timer, so the application goes on working
// while the script waits: a modal dialog opened by a call the script posted
// runs its own event loop, and the script, resumed from there, can find it
// and close it.
#pragma once

#include <windows.h>
#include <oaidl.h>

#include <QtCore/QObject>
#include <QtCore/QPointer>
#include <QtCore/QString>

#include <functional>
#include <string>

class QWidget;

namespace kwscript {

// A call the script makes on an object of the application, made on the
// GUI thread's own fiber (ScriptRunner::CallOffScript). It owns what the
// call needs: when it is given up it outlives the script's call.
class FiberCall {
 public:
  virtual ~FiberCall() = default;
  // Makes the call; on the main fiber.
  virtual void Make() = 0;
  // The modal window or popup the call opened and waits in, once shown.
  QPointer<QWidget> window;
  bool givenUp = false;
};

class ScriptRunner : public QObject {
 public:
  // Called on the GUI thread once the script has ended, with its outcome.
  using Done = std::function<void(bool succeeded)>;

  ScriptRunner(std::wstring path, std::wstring code, IDispatch* app, Done done);
  // Runs `job` on the fiber instead of a script (a driver's command): its
  // waits and calls are served as a script's are; it returns whether it
  // succeeded.
  ScriptRunner(std::function<bool()> job, Done done);
  ~ScriptRunner() override;

  // Starts the script from the event loop of the calling (GUI) thread.
  void Start();

  // From the script: lets the event loop run, then comes back. Outside a
  // script fiber it processes the pending events instead. False when the
  // script is to stop (see RequestStop): its loops end there.
  static bool YieldToEventLoop();

  // From the script: makes `call` on the main fiber and returns true once
  // it has returned. When a modal window or a popup shows while it runs,
  // the call is given up instead: false at once, `call->window` that
  // window, which stays open; the call waits in the window's loop, the
  // script goes on (and may answer the window), and the runner deletes
  // `call` when it returns. Outside a script fiber the call is made in place.
  static bool CallOffScript(FiberCall* call);
  // Calls given up that have not returned yet.
  static int CallsGivenUp();

  // Asks the running script to stop, from any thread: every call it makes
  // from then on (on app or on an object) fails with `reason`, which the
  // error report shows with the script's line. Cleared when a script starts.
  static void RequestStop(const QString& reason);
  // Whether a stop was asked for, and why.
  static bool StopRequested(QString* reason);

  // From a thread other than the script's: waits for `done` at most
  // `seconds` (0: without limit), then asks the script to stop and gives it
  // 10 s more to make the call that fails. True once `done` is set; false
  // when the script does not stop, and `why` says so.
  static bool AwaitOrStop(HANDLE done, int seconds, QString* why);

  // For a crash report, on the GUI thread while the script waits for the
  // event loop (the usual case: the application's own handlers crash on
  // the events a script's call posted): stops the script with `reason` and
  // lets it run until its call has failed, so that the script error names
  // the line, and until it ends or waits again. False when no script waits.
  static bool GiveCrashToScript(const QString& reason);

 protected:
  void timerEvent(QTimerEvent* event) override;
  bool eventFilter(QObject* watched, QEvent* event) override;

 private:
  static void CALLBACK FiberMain(void* runner);
  // On the main fiber: lets the script run until it waits or ends, making
  // the calls it asks for meanwhile.
  void Resume();
  // Runs the script fiber and serves its calls; false when a call given up
  // returned here after the script had gone on without it (the script's
  // state is then no business of this frame any more).
  bool EnterScript();
  void GiveUpCall();

  std::function<bool()> m_job;
  Done m_done;
  void* m_fiber = nullptr;
  void* m_mainFiber = nullptr;
  bool m_convertedThread = false;
  bool m_inScript = false;
  bool m_finished = false;
  DWORD m_thread = 0;
  bool m_succeeded = false;
  int m_timer = 0;
  FiberCall* m_request = nullptr;   // asked for by the script, not yet made
  FiberCall* m_underway = nullptr;  // being made on the main fiber
  int m_giveUpTimer = 0;
};

}  // namespace kwscript
