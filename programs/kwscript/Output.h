// Where what a script prints goes: kwscript's standard output by default; an
// agent inside another application sends it back to the kwscript that
// attached it.
#pragma once

#include <QtCore/QString>

#include "automation/ObjectText.h"

namespace kwscript {

using kwauto::Quoted;

// Receives one line of output, without its line end; `error` for
// kwscript's own words about the run (PrintError).
using OutputSink = void (*)(const QString& line, bool error, void* context);

// Sends every later line to `sink` (null: standard output again).
void SetOutputSink(OutputSink sink, void* context);

// Prints one line through the current sink.
void PrintLine(const QString& line);

// Says one line of kwscript's own about the run (what it cannot do) through
// the current sink, which is standard error by default: standard output is
// for what the script prints and what kwscript was asked for.
void PrintError(const QString& line);

// Lines end with LF alone on standard output and standard error when they
// are a pipe or a file (the C runtime's text mode would write CR LF); a
// console keeps its own line ends.
void UseLineFeedsWhenRedirected();

}  // namespace kwscript
