// Runs a script on a fiber of the GUI thread (the automation core's
// FiberRunner): whenever the script waits (app.processEvents, app.waitFor)
// the application's event loop runs, and a modal dialog opened by a call
// the script posted can be found and closed by the script.
#pragma once

#include <windows.h>
#include <oaidl.h>

#include <QtCore/QString>

#include <string>

#include "automation/FiberRunner.h"

namespace kwscript {

using kwauto::FiberCall;

class ScriptRunner : public kwauto::FiberRunner {
 public:
  // `done` is called on the GUI thread once the script has ended.
  ScriptRunner(std::wstring path, std::wstring code, IDispatch* app, Done done);

  // Starts the script; says so when it cannot.
  void Start();

  // From a thread other than the script's: waits for `done` at most
  // `seconds` (0: without limit), then asks the script to stop and gives it
  // 10 s more to make the call that fails; one still running in the
  // script engine after the first second is cut off (CutOffStuckScript).
  // True once `done` is set; false when the script does not stop, and
  // `why` says so.
  static bool AwaitOrStop(HANDLE done, int seconds, QString* why);

  // From a thread other than the script's, for a script that a stop does
  // not reach (a loop that makes no call): takes the GUI thread off it
  // where it runs in the JScript or VBScript engine (FiberRunner::CutOff),
  // and the script ends as failed. Its engine and what the engine holds
  // stay as they are, never to be used or released. It tries for
  // `patienceMs`: a loop that spends most of its time outside the engine
  // (in the system's calls of Date, say) is caught there only now and then.
  // False when no script runs in an engine, or none was caught in time.
  static bool CutOffStuckScript(int patienceMs = kCutOffPatienceMs);
  // What is said of a script cut off once `seconds` had passed.
  static QString CutOffReport(int seconds);
  // How long a script asked to stop is given before it is said not to
  // stop; how long after the stop it is cut off; and how long the cut-off
  // tries at the most, leaving the last second of the grace to its report.
  static constexpr DWORD kStopGraceMs = 10000;
  static constexpr DWORD kCutOffGraceMs = 1000;
  static constexpr int kCutOffPatienceMs = static_cast<int>(kStopGraceMs - kCutOffGraceMs) - 1000;
};

}  // namespace kwscript
