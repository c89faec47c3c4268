// The pipe between a loader (kwscript, kwdriver) and its agent inside an
// application: messages of any length, each sent as frames of a 4-byte
// length (little-endian; its top bit set when another frame of the message
// follows) and that many bytes, at most 16 MB a frame. What the messages
// say is Protocol.h's (and Protocol.md's).
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
