// The pipe between a loader (kwscript, kwdriver) and its agent inside an
// application: messages of any length, each sent as frames of a 4-byte
// length (little-endian; its top bit set when another frame of the message
// follows) and that many bytes, at most 16 MB a frame. What the messages
// say is Protocol.h's (and Protocol.md's).
#pragma once

#include <windows.h>

#include <atomic>
#include <string>

namespace kwagentkit {

// Writes one message; false when the pipe is broken.
bool WriteMessage(HANDLE pipe, const std::string& message);

// The name of an object of the session on the pipe `pipeName`: the pipe's
// own name in the session's namespace, and `suffix`.
std::wstring PipeObjectName(const std::wstring& pipeName, const std::wstring& suffix);

// The name of the event an agent sets after each message it writes to the
// pipe of that name, so that its loader can wait for messages rather than
// look for them now and then. The loader makes it (before the agent opens
// the pipe); an agent without it just writes.
std::wstring WrittenEventName(const std::wstring& pipeName);

// Reads one message; false when the pipe is broken or closed. `heard`,
// when given, receives the tick count whenever bytes of it arrive, so that
// a long message in transit counts as a sign of life.
bool ReadMessage(HANDLE pipe, std::string* message, std::atomic<DWORD>* heard = nullptr);

}  // namespace kwagentkit
