// The loader's side of driving another application: finding or starting the
// process, checking that it is a 64-bit Qt 4.8 application built with this
// project's compiler, loading the agent (kwagent.dll, beside the calling
// program) into it and connecting the agent's pipe. What is said over the
// pipe is the caller's (Protocol.md); kwscript and kwdriver both start here.
#pragma once

#include <windows.h>

#include <chrono>
#include <string>
#include <vector>

namespace kwagentkit {

// An agent connected to the caller, in the process it was loaded into.
struct AgentConnection {
  HANDLE pipe = nullptr;     // connected to the agent's KwAgentRun
  std::wstring pipeName;     // which names the session's other objects (AgentPipe.h)
  HANDLE process = nullptr;  // the application's process (all access)
  DWORD pid = 0;
  bool launched = false;  // started by LaunchWithAgent (not merely attached to)
  bool kept = false;      // launched, and left running by CloseConnection
  // Ends a launched application with its caller, whatever ends the caller,
  // unless the request kept it.
  HANDLE job = nullptr;
  // Set by the agent after each message it writes (AgentPipe.h's WrittenEventName).
  HANDLE written = nullptr;
  // When starting the application (launched) or loading the agent began.
  std::chrono::steady_clock::time_point began{};
};

struct LaunchRequest {
  std::wstring program;  // a Windows path to the .exe
  std::vector<std::wstring> arguments;
  std::wstring workingDir;  // empty: the program's folder
  // Leave the application running after CloseConnection (and after the
  // caller ends); otherwise CloseConnection ends it.
  bool keep = false;
};

// Each returns an empty string on success, else what went wrong, in the
// words kwscript prints after "kwscript: " (the program or process is
// missing, not 64-bit, not Qt 4.8, built with another compiler's ABI; the
// agent could not be loaded or did not answer). On failure the connection
// keeps what was opened so far (the process started, for one):
// CloseConnection releases it either way.

// Starts `request.program` with the caller's folder first on PATH (the
// caller's copies of Qt's DLLs), waits until it shows a window (at most
// 30 s), and loads and connects the agent.
std::string LaunchWithAgent(const LaunchRequest& request, AgentConnection* connection);

// Loads and connects the agent in the running process `target`: a process
// id, or the file name of its image ("calculator.exe"), which one process
// in this Wine prefix must have.
std::string AttachAgent(const std::wstring& target, AgentConnection* connection);

// Closes the pipe and the handles; a launched application not kept is ended
// (and awaited for up to 5 s). Leaves `connection` empty.
void CloseConnection(AgentConnection* connection);

// The folder of the calling program, with its trailing backslash: where
// kwagent.dll and the copies of Qt's DLLs lie.
std::wstring CallerFolder();

// The folder of the module (program or DLL) whose code or data `address`
// is in, with its trailing backslash: the agent's own, inside an application.
std::wstring ModuleFolder(const void* address);

}  // namespace kwagentkit
