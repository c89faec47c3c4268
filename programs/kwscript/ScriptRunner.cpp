#include "kwscript/ScriptRunner.h"

#include "kwscript/Output.h"
#include "kwscript/ScriptHost.h"

namespace kwscript {

ScriptRunner::ScriptRunner(std::wstring path, std::wstring code, IDispatch* app, Done done)
    : FiberRunner([path = std::move(path), code = std::move(code), app] { return RunScript(path, code, app); },
                  std::move(done)) {}

void ScriptRunner::Start() {
  const QString why = FiberRunner::Start();
  if (!why.isEmpty()) PrintLine("kwscript: " + why);
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

}  // namespace kwscript
