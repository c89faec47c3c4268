// Tests that report: app.check(condition [, message]) and
// app.checkEqual(actual, expected [, message]) record a check and let the
// script go on; a failed one prints
//   FILE:LINE: check failed: MESSAGE: expected E, got A
// at once. The run ends with the line "N passed, M failed", exit status 1
// when a check failed, and with --junit FILE a JUnit XML report: one test
// case per check and one for the error that ended the script, if any.
//
// The line of each call: before the script is parsed, every "app.check" and
// "app.checkEqual" of its text gets its line in its member name
// ("app.check__L12"); the app object takes the line back out of the name,
// and the error report takes the inserted characters back out of its
// column.
//
// The log is kept where the script runs; an agent sends it to kwscript in
// its "checks" message (ToJson), and kwscript prints the summary and writes the
// report.
#pragma once

#include <windows.h>
#include <oaidl.h>

#include <QtCore/QByteArray>
#include <QtCore/QList>
#include <QtCore/QString>

#include <string>
#include <vector>

#include "agentkit/Protocol.h"

namespace kwscript {

struct CheckRecord {
  bool passed = false;
  QString message;  // the script's own words
  QString detail;   // checkEqual's "expected E, got A"
  int line = 0;     // from 1; 0 unknown
};

struct CheckLog {
  QString script;          // the script's path, as error reports name it
  bool checking = false;   // its text calls app.check or app.checkEqual
  QList<CheckRecord> records;
  QString scriptError;     // what the error that ended the script said, if any

  int Passed() const;
  int Failed() const;
  // As the agent's "checks" message carries it (agentkit/Protocol.md).
  kwagentkit::Json ToJson() const;
  static CheckLog FromJson(const kwagentkit::Json& json);
};

// The log of the script run in this process (or, in kwscript, the one its
// agent sent).
CheckLog& CurrentChecks();

// Where the script host inserted a line into a member name: 0-based line
// and column in the marked text, and how many characters.
struct CheckCallMark {
  int line;
  int column;
  int length;
};

// The script's text with the line in the name of every check call, outside
// string literals and comments; `marks` says where.
std::wstring MarkCheckCalls(const std::wstring& code, bool vbscript, std::vector<CheckCallMark>* marks);

// The column (0-based) in the script's own text of a place the engine
// reports in the marked text; a place inside added text is where it was added.
int OriginalColumn(const std::vector<CheckCallMark>& marks, int line, int column);

// The app object's check members: a DISPID for "check", "checkEqual" and
// their marked names; whether a DISPID is one; the call.
bool CheckMemberId(const wchar_t* name, DISPID* id);
bool IsCheckMember(DISPID id);
HRESULT InvokeCheck(DISPID id, const DISPPARAMS* params, VARIANT* result, EXCEPINFO* exception);

// The end of a run in kwscript, given its exit status: prints the summary
// when the script checks anything, writes the JUnit report to `junitPath`
// (unless empty); the exit status, 1 when a check failed.
int FinishChecks(int status, const QString& junitPath);

}  // namespace kwscript
