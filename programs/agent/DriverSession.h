// The agent's side of a driver session (agentkit/Protocol.md): commands
// read from the pipe one at a time, carried out on the GUI thread, answered
// through the pipe with heartbeats while they run.
#pragma once

#include <windows.h>

#include <QtCore/QByteArray>

#include <functional>

#include "agent/Session.h"
#include "agentkit/Protocol.h"

namespace kwagent {

// Writes one message to the driver; false once the pipe is broken.
using SendMessage = std::function<bool(const QByteArray& message)>;

// Serves the session opened by `opening` on `pipe` until the driver says
// "quit", the pipe breaks or the GUI thread ends; on the agent's thread.
// Returns the status to end with (0, or 4 when the GUI thread ended).
int ServeDriverSession(HANDLE pipe, const kwagentkit::Opening& opening, const SendMessage& send);

// The GUI thread, for the agent's thread to notice that it ended: noted by
// the GUI thread itself when a request or command first reaches it (before
// a script can end the thread), its handle kept open; null until then.
void NoteGuiThread();
HANDLE GuiThread();

}  // namespace kwagent
