// Runs a JScript (.js) or VBScript (.vbs) file through the platform's Active
// Scripting engine, with the named item "app", and reports script errors
// with the file, line and column, the HRESULT, its name and what it means;
// an error the script raised itself (JScript's throw, VBScript's Err.Raise)
// with the file, line and column and its message alone. The report of the
// error is also kept as the run's script error (Checks.h).
#pragma once

#include <windows.h>
#include <oaidl.h>
#include <activscp.h>

#include <string>
#include <vector>

#include <QtCore/QByteArray>
#include <QtCore/QString>

namespace kwscript {

// The text of a script file's bytes (UTF-8). False, with `error` saying
// where ("FILE:LINE:COLUMN: ..."), when the file holds a NUL byte: the
// engines would take the text to end there and run only what comes before.
bool ScriptText(const QString& path, const QByteArray& bytes, QString* text, QString* error);

// The name and meaning of an HRESULT scripts meet, or null for another.
const char* HResultName(HRESULT hr);
const char* HResultMeaning(HRESULT hr);

// Runs the script in `path` with `app` as the named item "app". Returns
// false (after reporting it) when the script fails or cannot be run.
bool RunScriptFile(const std::wstring& path, IDispatch* app);

// Runs `code` as the script `path` (its ending chooses the engine: .vbs
// VBScript, anything else JScript; errors name it).
bool RunScript(const std::wstring& path, const std::wstring& code, IDispatch* app);

// A JScript engine kept for many calls (a driver session's scripts), with
// the named item "app" (which may be null when no script reaches for it).
// Each call runs a function body with arguments and gives back what it
// returns; the engine's globals live as long as it does. Besides JScript's
// own, its scripts have setTimeout(f, ms) and clearTimeout(id), whose
// functions run from RunDueTimers. On the thread that made it.
class ScriptFunctions {
 public:
  explicit ScriptFunctions(IDispatch* app);
  ~ScriptFunctions();
  ScriptFunctions(const ScriptFunctions&) = delete;
  ScriptFunctions& operator=(const ScriptFunctions&) = delete;

  // Why the engine could not be made, or empty when it is ready.
  const QString& failure() const { return m_failure; }

  // Runs `body` as the body of a function called with `args` (first
  // first); error reports name the text `name` ("NAME:LINE:COLUMN: ...",
  // lines and columns of the body). True with the returned value in
  // `result` (the caller clears it); false with the report in `error`.
  bool Call(const std::wstring& name, const std::wstring& body, const std::vector<VARIANT>& args, VARIANT* result,
            QString* error);

  // The engine's own values for what the host hands its scripts: a new
  // array or object, `value` put into one under `key` (an index of an
  // array, a name of an object), whether an object is an array.
  IDispatch* NewArray();
  IDispatch* NewObject();
  bool Put(IDispatch* container, const VARIANT& key, const VARIANT& value);
  bool IsArray(IDispatch* object);

  // A new function for a script to call with its answer; only the first
  // call of the last one made counts. Answered says whether that call came,
  // and gives the value it was called with.
  IDispatch* NewCallback();
  bool Answered(VARIANT* value);

  // Runs the timer functions that are due. False with the report in
  // `error` when one of them failed; `pending` says whether timers remain.
  bool RunDueTimers(bool* pending, QString* error);

  class Site;

 private:
  bool CallGlobal(const wchar_t* function, std::vector<VARIANT> args, VARIANT* result, QString* error);

  QString m_failure;
  Site* m_site = nullptr;
  IDispatch* m_app;
  IActiveScript* m_engine = nullptr;
  IActiveScriptParse* m_parser = nullptr;
  IDispatch* m_global = nullptr;
};

}  // namespace kwscript
