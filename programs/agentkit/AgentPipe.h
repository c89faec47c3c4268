// The conversation between kwscript and its agent inside an application,
// over a named pipe: messages of UTF-8 of any length, each sent as frames
// of a 4-byte length (little-endian; its top bit set when another frame of
// the message follows) and that many bytes, at most 16 MB a frame.
//   kwscript -> agent: the command ("run", "tree", "tree-json" or
//                      "publish"), the script's file name, its text (for a
//                      tree: the most items listed per item view), the
//                      folder kwscript runs in, then the time limit in
//                      seconds (0: none)
//   agent -> kwscript: "out " and a line of output or "err " and a line
//                      for standard error, any number of times,
//                      after a script "checks " and its checks
//                      (CheckLog::Serialized), then "end " and the exit status
// A publishing agent sends "pub" once its object is registered and waits
// for kwscript's "stop" (or a broken pipe) before it unpublishes and ends.
#pragma once

#include <windows.h>

#include <QtCore/QByteArray>

#include <atomic>

namespace kwagentkit {

// Writes one message; false when the pipe is broken.
bool WriteMessage(HANDLE pipe, const QByteArray& message);

// Reads one message; false when the pipe is broken or closed. `heard`,
// when given, receives the tick count whenever bytes of it arrive, so that
// a long message in transit counts as a sign of life.
bool ReadMessage(HANDLE pipe, QByteArray* message, std::atomic<DWORD>* heard = nullptr);

}  // namespace kwagentkit
