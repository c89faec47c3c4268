// kwscript's side of driving another application: the process found or
// started and the agent loaded by agentkit's launcher, then the request
// relayed to the agent, its output printed and its exit status returned.
#pragma once

#include <QtCore/QString>
#include <QtCore/QStringList>

namespace kwscript {

// What to do inside the application.
struct AgentRequestText {
  QString command;     // "run", "tree" or "publish"
  QString scriptPath;  // shown in error reports; its ending chooses the engine
  QString scriptText;
  int timeoutSeconds = 0;  // the script is stopped after that long; 0: never
  bool json = false;       // a tree as JSON lines
  int maxItems = 0;        // a tree's most items listed per item view
};

// Exit statuses of the attach modes besides the script's own 0 (succeeded)
// and 1 (failed): the agent could not run it or gave it up, or the
// application does not answer within the time limit (2), another script is
// attached already (3), the application ended during the script (4), no
// matching or no fitting process, or the agent could not be loaded (5).
constexpr int kGivenUp = 2;
constexpr int kAttachFailed = 5;
constexpr int kApplicationEnded = 4;

// Runs the request in the running process `target`: a process id, or the
// file name of its image ("calculator.exe"). Returns the exit status.
int AttachAndRun(const QString& target, const AgentRequestText& request);

// Starts `program` with `arguments` (under the folder of kwscript on the
// DLL search path, for Qt's DLLs), waits until it shows a window, runs the
// request in it and, unless `keep`, ends it afterwards. Returns the exit status.
int LaunchAndRun(const QString& program, const QStringList& arguments, bool keep, const AgentRequestText& request);

}  // namespace kwscript
