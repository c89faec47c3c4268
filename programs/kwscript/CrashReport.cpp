#include "kwscript/CrashReport.h"

#include <windows.h>

#include <QtCore/QFileInfo>

namespace kwscript {

namespace {

void (*g_report)(const QString&) = nullptr;
bool (*g_giveToScript)(const QString&) = nullptr;
const char* volatile g_call = nullptr;

LONG WINAPI Report(EXCEPTION_POINTERS* pointers) {
  const EXCEPTION_RECORD* record = pointers->ExceptionRecord;
  HMODULE module = nullptr;
  wchar_t path[MAX_PATH] = L"an unknown module";
  if (GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                         static_cast<LPCWSTR>(record->ExceptionAddress), &module))
    GetModuleFileNameW(module, path, MAX_PATH);
  const quintptr offset = reinterpret_cast<quintptr>(record->ExceptionAddress) - reinterpret_cast<quintptr>(module);
  const QString crash = QString("the application crashed: exception 0x%1 in %2+0x%3")
                            .arg(static_cast<qulonglong>(record->ExceptionCode), 8, 16, QChar('0'))
                            .arg(QFileInfo(QString::fromWCharArray(path)).fileName())
                            .arg(static_cast<qulonglong>(offset), 0, 16);
  QString line = "kwscript: " + crash;
  const char* call = g_call;
  if (call != nullptr) line += QString(", while the script was in %1").arg(call);
  // Once: a second fault while the script reports the first ends here.
  bool (*giveToScript)(const QString&) = g_giveToScript;
  g_giveToScript = nullptr;
  if (giveToScript != nullptr) giveToScript(crash);
  g_report(line);
  TerminateProcess(GetCurrentProcess(), record->ExceptionCode);
  return EXCEPTION_EXECUTE_HANDLER;
}

}  // namespace

void ReportUnhandledExceptions(void (*report)(const QString& line), bool (*giveToScript)(const QString& reason)) {
  g_report = report;
  g_giveToScript = giveToScript;
  SetUnhandledExceptionFilter(&Report);
}

void NoteCall(const char* name) { g_call = name; }

}  // namespace kwscript
