// The messages between a loader (kwscript, kwdriver) and its agent, typed
// (Protocol.md is the contract): the loader's opening, then what each side
// sends. Every message is one JSON object in UTF-8 with a "type"; the
// opening alone carries the protocol's version ("v"), which the agent
// refuses when it is not its own.
#pragma once

#include <windows.h>

#include <nlohmann/json.hpp>

#include <string>

namespace kwagentkit {

using Json = nlohmann::json;

constexpr int kProtocolVersion = 2;

// The job an opening asks for.
enum class Job { Run, Tree, Publish, Session };

struct Opening {
  Job job = Job::Run;
  int version = kProtocolVersion;  // as sent; OpeningMessage writes kProtocolVersion
  // run: the script's text, its file name (its ending chooses the engine;
  // error reports show it), the folder the loader runs in, and its time
  // limit in seconds (0: none).
  std::string script, path, folder;
  int timeoutSeconds = 0;
  // tree: JSON lines instead of indented text.
  bool json = false;
  // tree, session: the most items listed per item view (0: the agent's default).
  int maxItems = 0;
  // session: what a command does about an open alert, as WebDriver's
  // unhandledPromptBehavior says ("dismiss", "accept", "dismiss and notify",
  // "accept and notify", "ignore"; empty: "dismiss and notify").
  std::string promptBehavior;
};

std::string OpeningMessage(const Opening& opening);

// Reads an opening: empty when the agent can serve it, else why not (not
// JSON, another version, no such job): the message of its refusal.
// `opening` is filled as far as it could be read.
std::string ParseOpening(const std::string& bytes, Opening* opening);

// Every message after the opening, either way.
enum class MessageType {
  Unknown,
  Refused,  // agent: the opening cannot be served (status, text); the end
  Out,      // agent: a line for standard output (text)
  Err,      // agent: a line for standard error (text)
  Beat,     // agent: still alive, once a second while a job runs
  Checks,   // agent: a script's checks (body: script, checking, scriptError, records)
  End,      // agent: the job's exit status (status); the end
  Pub,      // agent: the app object is published until "stop"
  Stop,     // loader: stop publishing
  Exit,     // agent: the process is exiting by itself
  Crash,    // agent: the application crashed during a session (text: the report)
  Ready,    // agent: a session is open (body: pid, window)
  Command,  // loader: a session's command (body: id, name, params), through the CommandChannel
  Answer,   // agent: a command's answer (body: id, value or error and message), the same way
  Quit,     // loader: the session ends
};

struct Message {
  MessageType type = MessageType::Unknown;
  std::string text;  // out, err: the line; refused: the message; crash: the report
  int status = 0;    // end, refused
  Json body;         // the whole message as sent
};

// False when `bytes` is no JSON object with a string "type"; a type this
// side does not know is MessageType::Unknown, to be ignored.
bool ParseMessage(const std::string& bytes, Message* message);

// A message as sent: compact JSON, any invalid UTF-8 replaced.
std::string Serialized(const Json& message);

std::string RefusedMessage(int status, const std::string& message);
std::string OutMessage(const std::string& line);
std::string ErrMessage(const std::string& line);
std::string BeatMessage();
// `checks`: an object whose fields the message carries besides "type".
std::string ChecksMessage(const Json& checks);
std::string EndMessage(int status);
std::string PubMessage();
std::string StopMessage();
std::string ExitMessage();
std::string CrashMessage(const std::string& report);
// `window`: the agent's window, which the loader wakes for each command;
// `wake` (0: none): the agent's routine that the loader may also queue to
// the window's thread as an APC, with the window as its argument.
std::string ReadyMessage(DWORD pid, HWND window, uintptr_t wake = 0);
HWND ReadyWindow(const Message& ready);
uintptr_t ReadyWake(const Message& ready);
std::string CommandMessage(const Json& id, const std::string& name, const Json& params);
// A command's answer: its value, or the W3C error code and the message it
// failed with.
std::string AnswerMessage(const Json& id, const Json& value);
std::string FailedAnswerMessage(const Json& id, const std::string& error, const std::string& message);
std::string QuitMessage();

}  // namespace kwagentkit
