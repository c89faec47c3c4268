#include "kwscript/ScriptRunner.h"

#include <cstdint>
#include <vector>

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

namespace {

// The code of a script engine loaded in the process, whole images.
void AddImageOf(const wchar_t* module, std::vector<kwauto::FiberRunner::CodeRange>* ranges) {
  const auto* base = reinterpret_cast<const BYTE*>(GetModuleHandleW(module));
  if (base == nullptr) return;
  const auto* dos = reinterpret_cast<const IMAGE_DOS_HEADER*>(base);
  const auto* headers = reinterpret_cast<const IMAGE_NT_HEADERS*>(base + dos->e_lfanew);
  const auto begin = reinterpret_cast<std::uintptr_t>(base);
  ranges->push_back({begin, begin + headers->OptionalHeader.SizeOfImage});
}

}  // namespace

bool ScriptRunner::AwaitOrStop(HANDLE done, int seconds, QString* why) {
  if (WaitForSingleObject(done, seconds > 0 ? seconds * 1000u : INFINITE) != WAIT_TIMEOUT) return true;
  const QString late = QString("the script did not finish within %1 s").arg(seconds);
  RequestStop(late);
  const DWORD stopped = GetTickCount();
  if (WaitForSingleObject(done, kCutOffGraceMs) != WAIT_TIMEOUT) return true;
  if (CutOffStuckScript()) PrintError("kwscript: " + CutOffReport(seconds));
  const DWORD spent = GetTickCount() - stopped;
  if (WaitForSingleObject(done, spent < kStopGraceMs ? kStopGraceMs - spent : 0) != WAIT_TIMEOUT) return true;
  *why = late + " and does not stop";
  return false;
}

bool ScriptRunner::CutOffStuckScript(int patienceMs) {
  std::vector<CodeRange> engines;
  AddImageOf(L"jscript.dll", &engines);
  AddImageOf(L"vbscript.dll", &engines);
  return CutOff(engines, patienceMs);
}

QString ScriptRunner::CutOffReport(int seconds) {
  return QString("the script did not finish within %1 s and makes no call that could stop it: "
                 "it was cut off where it ran, in the script engine")
      .arg(seconds);
}

}  // namespace kwscript
