// Runs a JScript (.js) or VBScript (.vbs) file through the platform's Active
// Scripting engine, with the named item "app", and reports script errors
// with the file, line and column, the HRESULT, its name and what it means;
// an error the script raised itself (JScript's throw, VBScript's Err.Raise)
// with the file, line and column and its message alone. The report of the
// error is also kept as the run's script error (Checks.h).
#pragma once

#include <windows.h>
#include <oaidl.h>

#include <string>

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

}  // namespace kwscript
