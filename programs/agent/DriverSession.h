// The agent's side of a driver session (agentkit/Protocol.md): commands
// taken from the session's channel (agentkit/CommandChannel.h) one at a
// time on the GUI thread, which the driver wakes through the agent's window,
// carried out there and answered through the channel.
#pragma once

#include <windows.h>

#include <functional>
#include <string>

#include "agent/Session.h"
#include "agentkit/Protocol.h"

namespace kwagent {

// Writes one message to the driver; false once the pipe is broken.
using SendMessage = std::function<bool(const std::string& message)>;

// Serves the session opened by `opening` on the pipe `pipeName` (open as
// `pipe`) until the driver says "quit", the pipe breaks or the GUI thread
// ends; on the agent's thread. Returns the status to end with: 0; 2 when
// the session could not begin (refused); 4 when the GUI thread ended.
int ServeDriverSession(HANDLE pipe, const std::wstring& pipeName, const kwagentkit::Opening& opening,
                       const SendMessage& send);

// The GUI thread, for the agent's thread to notice that it ended: noted by
// the GUI thread itself when a request or command first reaches it (before
// a script can end the thread), its handle kept open; null until then.
void NoteGuiThread();
HANDLE GuiThread();

}  // namespace kwagent
