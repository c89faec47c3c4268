// The value a JScript `throw` threw, for the report of one nothing caught.
// Wine's JScript reports `throw 42` or `throw "text"` as error 5022
// ("exception thrown and not caught") and keeps the value to itself, so
// every throw statement of a script notes its value first: `throw X`
// becomes `throw kwscriptThrown.L<line> = X`, which throws the same value.
#pragma once

#include <windows.h>
#include <oaidl.h>

#include <QtCore/QString>

#include <string>
#include <vector>

#include "kwscript/Checks.h"

namespace kwscript {

// The named item whose properties the throw statements set.
extern const wchar_t kThrownItem[];

// `code` (JScript) with each throw statement noting its value; `marks`
// receives where text was added. A text it cannot read with certainty (an
// unterminated string, comment or regular expression) is left as it is.
std::wstring NoteThrows(const std::wstring& code, std::vector<CheckCallMark>* marks);

// The object behind kThrownItem (static; never freed).
IDispatch* ThrownValues();

// Forgets the value noted last (a script starts).
void ForgetThrownValue();

// The value a throw statement on `line` (from 1) noted last, as the
// script's language writes it (a string quoted); false when none did.
bool ThrownValueOn(int line, QString* text);

}  // namespace kwscript
