// Recursion in a script ends as a script error on its line instead of
// overflowing the stack it runs on, which would end the application's GUI
// thread (the script runs on a fiber of it). JScript's engine limits its
// own recursion ("Out of stack space"); VBScript's recurses on the thread's
// stack without a limit, so every Function, Sub and Property of a VBScript
// first calls kStackItem.Check, which fails the call once the stack runs
// short, and the engine reports the error on the procedure's line.
#pragma once

#include <windows.h>
#include <oaidl.h>

#include <string>
#include <vector>

#include "kwscript/Checks.h"

namespace kwscript {

// The named item whose Check member a guarded procedure calls.
extern const wchar_t kStackItem[];

// `code` (VBScript) with a call of kStackItem.Check at the start of every
// procedure body, on the line of its declaration; `marks` receives where
// the text was added, for the columns of error reports.
std::wstring GuardProcedures(const std::wstring& code, std::vector<CheckCallMark>* marks);

// The object behind kStackItem (static; never freed).
IDispatch* StackGuard();

}  // namespace kwscript
