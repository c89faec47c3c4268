// What kwscript says when the application it drives crashes, instead of
// Wine's crash debugger holding the process until someone kills it: the
// exception code, the module it happened in and the call the script was
// making, then the process ends with a status.
#pragma once

#include <QtCore/QString>

namespace kwscript {

// From now on an exception nothing else handles is reported through
// `report` (a line of text), after which the process ends with the
// exception code as its exit code. Before that, `giveToScript` (when given)
// may let a waiting script fail on the crash, so that its error report
// names the script's line.
void ReportUnhandledExceptions(void (*report)(const QString& line),
                               bool (*giveToScript)(const QString& reason) = nullptr);

// The call the script is making now, named in a crash report; a call
// clears it with a null name when it returns. The name must outlive it.
void NoteCall(const char* name);

}  // namespace kwscript
