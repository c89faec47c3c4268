// Runs a script on a fiber of the GUI thread. Whenever the script waits
// (app.processEvents, app.waitFor) it hands the thread back to the event
// loop, which resumes it on a timer, so the application goes on working
// while the script waits: a modal dialog opened by a call the script posted
// runs its own event loop, and the script, resumed from there, can find it
// and close it.
#pragma once

#include <windows.h>
#include <oaidl.h>

#include <QtCore/QObject>
#include <QtCore/QString>

#include <functional>
#include <string>

namespace kwscript {

class ScriptRunner : public QObject {
 public:
  // Called on the GUI thread once the script has ended, with its outcome.
  using Done = std::function<void(bool succeeded)>;

  ScriptRunner(std::wstring path, std::wstring code, IDispatch* app, Done done);
  ~ScriptRunner() override;

  // Starts the script from the event loop of the calling (GUI) thread.
  void Start();

  // From the script: lets the event loop run, then comes back. Outside a
  // script fiber it processes the pending events instead. False when the
  // script is to stop (see RequestStop): its loops end there.
  static bool YieldToEventLoop();

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

 private:
  static void CALLBACK FiberMain(void* runner);

  std::wstring m_path, m_code;
  IDispatch* m_app;
  Done m_done;
  void* m_fiber = nullptr;
  void* m_mainFiber = nullptr;
  bool m_convertedThread = false;
  bool m_inScript = false;
  bool m_finished = false;
  DWORD m_thread = 0;
  bool m_succeeded = false;
  int m_timer = 0;
};

}  // namespace kwscript
