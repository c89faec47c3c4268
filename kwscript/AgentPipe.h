// The conversation between kwscript and its agent inside an application,
// over a named pipe: messages of a 4-byte length (little-endian) and that
// many bytes of UTF-8.
//   kwscript -> agent: the command ("run", "tree" or "tree-json"), the
//                      script's file name, then its text
//   agent -> kwscript: "out " and a line of output, any number of times,
//                      then "end " and the exit status
#pragma once

#include <windows.h>

#include <QtCore/QByteArray>

namespace kwscript {

// Writes one message; false when the pipe is broken.
bool WriteMessage(HANDLE pipe, const QByteArray& message);

// Reads one message; false when the pipe is broken or closed.
bool ReadMessage(HANDLE pipe, QByteArray* message);

}  // namespace kwscript
