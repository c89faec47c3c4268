// A driver session's commands and answers (Protocol.md), beside the pipe:
// a section of memory that the loader and the application both map, with
// one message in it at a time, handed back and forth by a turn word. The
// loader wakes the application's GUI thread with a window message (the
// agent's window, named in its "ready"); the agent wakes the loader with an
// event. No thread of the agent and no pipe lie on a command's way: each
// step the pipe took (a write, a read, a post to the GUI thread, an event
// back to the agent's thread) is a round trip to Wine's server.
//
// A message larger than the shared section travels in a section of its own,
// named after the channel and the message's serial, which its writer keeps
// until it writes again (by then the reader has taken it).
#pragma once

#include <windows.h>

#include <string>

namespace kwagentkit {

// The message the loader posts to the agent's window: a command waits in
// the channel.
constexpr UINT kCommandWaiting = WM_APP + 0x4B57;

class CommandChannel {
 public:
  CommandChannel() = default;
  ~CommandChannel();
  CommandChannel(const CommandChannel&) = delete;
  CommandChannel& operator=(const CommandChannel&) = delete;

  // The loader makes the channel of the agent on `pipeName` (before the
  // opening, for the agent to find); the agent opens it. False when that
  // fails (the reason in GetLastError).
  bool Create(const std::wstring& pipeName);
  bool Open(const std::wstring& pipeName);

  // Set (auto-reset) after each answer the agent puts.
  HANDLE Answered() const { return m_answered; }

  // The loader's: whether no command of it is outstanding; a command,
  // given in its turn, which hands the turn to the agent (false out of
  // turn or when a section for it cannot be made); the answer, once the
  // turn came back with one (taken once; empty when it could not be read).
  bool LoaderTurn() const;
  bool PutCommand(const std::string& message);
  bool TakeAnswer(std::string* message);

  // The agent's: the command, in its turn (taken once, empty when it could
  // not be read); the answer, which
  // hands the turn back and sets the event.
  bool TakeCommand(std::string* message);
  bool PutAnswer(const std::string& message);

  // The agent notes whether its GUI thread waits in Qt's event loop, where
  // an APC reaches it sooner than a message (see kwagent's session); the
  // loader reads it, and so does the agent's APC.
  void NoteAgentWaits(bool waits);
  bool AgentWaits() const;

  // How many bytes a message may have and still lie in the shared section.
  static DWORD InlineLimit();

 private:
  struct Header;
  bool Put(const std::string& message, LONG from, LONG to, wchar_t side);
  bool Take(std::string* message, LONG turn);
  Header* header() const { return static_cast<Header*>(m_view); }

  std::wstring m_base;  // "Local\kwagent-...": the names' common start
  HANDLE m_section = nullptr;
  void* m_view = nullptr;
  HANDLE m_answered = nullptr;
  HANDLE m_outgoing = nullptr;  // the section of the last large message written
  DWORD m_serial = 0;
};

}  // namespace kwagentkit
