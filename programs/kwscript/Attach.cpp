#include "kwscript/Attach.h"

#include <windows.h>

#include <QtCore/QDir>
#include <QtCore/QRegExp>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <mutex>
#include <string>
#include <thread>

#include "agentkit/AgentPipe.h"
#include "agentkit/Launcher.h"
#include "agentkit/Protocol.h"
#include "agentkit/QtText.h"
#include "kwscript/Checks.h"

namespace kwscript {

using kwagentkit::AgentConnection;
using kwagentkit::MessageType;
using kwagentkit::ReadMessage;
using kwagentkit::WriteMessage;

namespace {

// kwscript's own words go to standard error: standard output carries only
// what the agent sends (a script's output, an object tree in JSON).
void Say(const QString& text) {
  std::fprintf(stderr, "kwscript: %s\n", text.toUtf8().constData());
  std::fflush(stderr);
}

// Closes a Win32 handle when it goes out of scope.
class Handle {
 public:
  explicit Handle(HANDLE handle = nullptr) : m_handle(handle) {}
  ~Handle() {
    if (m_handle != nullptr) CloseHandle(m_handle);
  }
  Handle(const Handle&) = delete;
  Handle& operator=(const Handle&) = delete;
  HANDLE get() const { return m_handle; }

 private:
  HANDLE m_handle;
};

// With KWSCRIPT_TIMING set, the time from starting the application
// (--launch) or from loading the agent (--attach) to the script's first
// output is printed on standard error, for the benchmarks.
std::chrono::steady_clock::time_point g_clockStart;
const char* g_clockFrom = nullptr;  // what the clock runs from: set once the agent is connected
bool g_timed = false;

void ReportFirstOutput() {
  if (g_timed || g_clockFrom == nullptr || qgetenv("KWSCRIPT_TIMING").isEmpty()) return;
  const auto elapsed = std::chrono::steady_clock::now() - g_clockStart;
  std::fprintf(stderr, "kwscript: timing: %lld ms from %s to the script's first output\n",
               static_cast<long long>(std::chrono::duration_cast<std::chrono::milliseconds>(elapsed).count()),
               g_clockFrom);
  g_timed = true;
}

// The agent's opening for the request.
kwagentkit::Opening OpeningOf(const AgentRequestText& request) {
  kwagentkit::Opening opening;
  opening.job = request.command == "publish" ? kwagentkit::Job::Publish
                : request.command == "tree"  ? kwagentkit::Job::Tree
                                             : kwagentkit::Job::Run;
  opening.script = kwagentkit::Utf8(request.scriptText);
  opening.path = kwagentkit::Utf8(request.scriptPath);
  opening.folder = kwagentkit::Utf8(QDir::currentPath());
  opening.timeoutSeconds = request.timeoutSeconds;
  opening.json = request.json;
  opening.maxItems = request.maxItems;
  return opening;
}

// Sets `ended` once kwscript's standard input ends (or breaks), from a
// thread of its own that stays blocked in its read until then.
void SignalWhenInputEnds(HANDLE ended) {
  std::thread([ended] {
    const HANDLE input = GetStdHandle(STD_INPUT_HANDLE);
    char buffer[256];
    DWORD read = 0;
    while (ReadFile(input, buffer, sizeof buffer, &read, nullptr) && read > 0) {
    }
    SetEvent(ended);
  }).detach();
}

QString ExitCode(HANDLE process) {
  DWORD code = 0;
  GetExitCodeProcess(process, &code);
  return QString("exit code 0x%1").arg(code, 0, 16);
}

// The agent's heartbeats come once a second; this long a silence past the
// time limit means that the application stands still (stopped, or every
// thread of it blocked), and kwscript gives up on it.
constexpr DWORD kSilenceMs = 3000;
// The agent itself gives a script that does not stop 10 s past its limit.
constexpr DWORD kAgentGraceMs = 10000;

// The conversation with the agent: the request sent and the agent's
// messages read and printed on a thread of its own, while kwscript's own
// thread keeps the time limit, watches the process and, when publishing,
// its input. Once kwscript gives up, the listener prints nothing more; it
// stays blocked in its read (with the pipe and this object) until kwscript
// ends.
class Conversation {
 public:
  Conversation(HANDLE pipe, const AgentRequestText& request)
      : m_pipe(pipe),
        m_request(request),
        m_listened(CreateEventW(nullptr, TRUE, FALSE, nullptr)),
        m_published(CreateEventW(nullptr, FALSE, FALSE, nullptr)),
        m_unpublish(CreateEventW(nullptr, FALSE, FALSE, nullptr)),
        m_lastHeard(GetTickCount()) {}

  // The exit status, after saying what went wrong.
  int Run(HANDLE process) {
    std::thread listener([this] { Listen(); });
    const DWORD start = GetTickCount();
    const DWORD limitMs = m_request.timeoutSeconds * 1000u;
    HANDLE inputEnded = nullptr;
    for (;;) {
      HANDLE waits[3] = {m_listened.get(), process, inputEnded ? inputEnded : m_published.get()};
      const DWORD woke = WaitForMultipleObjects(3, waits, FALSE, 200);
      if (woke == WAIT_OBJECT_0) {
        listener.join();
        return Outcome(process);
      }
      if (woke == WAIT_OBJECT_0 + 1) {
        // The pipe breaks as the process goes: what the agent sent before
        // is read to its end first (a publishing agent sends nothing more).
        if (inputEnded == nullptr && WaitForSingleObject(m_listened.get(), 2000) == WAIT_OBJECT_0) {
          listener.join();
          return Outcome(process);
        }
        break;
      }
      if (woke == WAIT_OBJECT_0 + 2 && inputEnded == nullptr) {
        inputEnded = CreateEventW(nullptr, TRUE, FALSE, nullptr);
        SignalWhenInputEnds(inputEnded);
        continue;
      }
      if (woke == WAIT_OBJECT_0 + 2) {
        SetEvent(m_unpublish.get());  // the listener asks the agent to stop
        continue;                     // and reads its status
      }
      if (limitMs == 0) continue;
      const DWORD elapsed = GetTickCount() - start, silent = GetTickCount() - m_lastHeard;
      if ((elapsed >= limitMs && silent >= kSilenceMs) || elapsed >= limitMs + kAgentGraceMs + kSilenceMs) {
        StopListening();
        listener.detach();
        const QString why = silent >= kSilenceMs ? QString("the application has said nothing for %1 s").arg(silent / 1000)
                                                 : QString("its agent sent no status");
        Say(QString("the application does not answer: the script did not finish within %1 s and %2")
                .arg(m_request.timeoutSeconds)
                .arg(why));
        return kGivenUp;
      }
    }
    StopListening();
    listener.detach();
    Say(Ended(process));
    return kApplicationEnded;
  }

 private:
  // Sends the request and prints the agent's output until its status, or
  // until the pipe breaks.
  void Listen() {
    if (!WriteMessage(m_pipe, kwagentkit::OpeningMessage(OpeningOf(m_request)))) {
      SetEvent(m_listened.get());
      return;
    }
    kwagentkit::Message message;
    for (std::string bytes; ReadMessage(m_pipe, &bytes, &m_lastHeard);) {
      if (!kwagentkit::ParseMessage(bytes, &message)) continue;
      if (message.type == MessageType::Pub) {  // published until kwscript's thread says
        SetEvent(m_published.get());
        WaitForSingleObject(m_unpublish.get(), INFINITE);
        WriteMessage(m_pipe, kwagentkit::StopMessage());
        continue;
      }
      std::lock_guard<std::mutex> lock(m_printing);
      if (m_stopped) return;
      if (message.type == MessageType::Out) {
        ReportFirstOutput();
        std::fwrite(message.text.data(), 1, message.text.size(), stdout);
        std::fputc('\n', stdout);
        std::fflush(stdout);
      } else if (message.type == MessageType::Err) {
        std::fwrite(message.text.data(), 1, message.text.size(), stderr);
        std::fputc('\n', stderr);
        std::fflush(stderr);
      } else if (message.type == MessageType::Checks) {
        CurrentChecks() = CheckLog::FromJson(message.body);
      } else if (message.type == MessageType::Exit) {
        m_exited = true;
      } else if (message.type == MessageType::Refused) {
        Say(kwagentkit::FromUtf8(message.text));
        m_status = message.status;
        break;
      } else if (message.type == MessageType::End) {
        m_status = message.status;
        break;
      }
    }
    SetEvent(m_listened.get());
  }

  void StopListening() {
    std::lock_guard<std::mutex> lock(m_printing);
    m_stopped = true;
  }

  // The status once the listener is done: the agent's, or the process's end.
  int Outcome(HANDLE process) {
    if (m_status >= 0) return m_status;
    if (WaitForSingleObject(process, 2000) == WAIT_OBJECT_0) {
      Say(Ended(process));
      return kApplicationEnded;
    }
    Say("the agent stopped answering");
    return kAttachFailed;
  }

  // How the process ended: by itself, or killed from outside (no code of
  // it ran to say it exits, and Wine gives such a process no exit code of
  // its own).
  QString Ended(HANDLE process) const {
    const QString during = m_request.command == "publish" ? "while published" : "during the script";
    if (m_exited) return QString("the application ended %1 (%2)").arg(during, ExitCode(process));
    return QString("the application was killed %1: it ended without exiting (%2)").arg(during, ExitCode(process));
  }

  HANDLE m_pipe;
  const AgentRequestText& m_request;
  Handle m_listened, m_published, m_unpublish;
  std::atomic<DWORD> m_lastHeard;
  std::mutex m_printing;
  bool m_stopped = false;
  std::atomic<bool> m_exited{false};
  std::atomic<int> m_status{-1};
};

// Relays the request to the connected agent; the exit status. A
// conversation given up keeps its pipe (its listener may still be blocked
// on it), which is then left open.
int Relay(AgentConnection* connection, const AgentRequestText& request) {
  g_clockStart = connection->began;
  g_clockFrom = connection->launched ? "starting the application" : "loading the agent";
  auto* conversation = new Conversation(connection->pipe, request);
  const int status = conversation->Run(connection->process);
  if (status == kGivenUp)
    connection->pipe = nullptr;
  else
    delete conversation;
  return status;
}

// `text` as one word of a shell command line: quoted when it holds
// anything but plain path characters.
QString ShellWord(const QString& text) {
  if (!text.isEmpty() && !text.contains(QRegExp("[^A-Za-z0-9_./:+=-]"))) return text;
  return '\'' + QString(text).replace("'", "'\\''") + '\'';
}

// What a user needs to reach an application left running: its id, how to
// run another script in it and how to end it, with the display and the Wine
// prefix both need (kwscript runs with the ones the application got).
void SayHowToReach(DWORD pid) {
  const QString display = QString::fromLocal8Bit(qgetenv("DISPLAY"));
  const QString prefix = QString::fromLocal8Bit(qgetenv("WINEPREFIX"));
  const QString inPrefix = prefix.isEmpty() ? QString() : "WINEPREFIX=" + ShellWord(prefix) + ' ';
  const QString onDisplay = display.isEmpty() ? QString() : "DISPLAY=" + ShellWord(display) + ' ';
  Say(QString("the application keeps running as process %1").arg(pid));
  Say(QString("run a script in it: %1%2./scripts/script.sh --attach %3 FILE").arg(onDisplay, inPrefix).arg(pid));
  Say(QString("end it: %1wine taskkill /f /pid %2 (its display ends with the prefix's last program)")
          .arg(inPrefix)
          .arg(pid));
}

}  // namespace

int AttachAndRun(const QString& target, const AgentRequestText& request) {
  AgentConnection connection;
  const std::string failure = kwagentkit::AttachAgent(target.toStdWString(), &connection);
  int status = kAttachFailed;
  if (failure.empty())
    status = Relay(&connection, request);
  else
    Say(QString::fromUtf8(failure.c_str()));
  kwagentkit::CloseConnection(&connection);
  return status;
}

int LaunchAndRun(const QString& program, const QStringList& arguments, bool keep, const AgentRequestText& request) {
  kwagentkit::LaunchRequest launch;
  launch.program = program.toStdWString();
  foreach (const QString& argument, arguments) launch.arguments.push_back(argument.toStdWString());
  launch.keep = keep;
  AgentConnection connection;
  const std::string failure = kwagentkit::LaunchWithAgent(launch, &connection);
  int status = kAttachFailed;
  if (failure.empty())
    status = Relay(&connection, request);
  else
    Say(QString::fromUtf8(failure.c_str()));
  if (keep && connection.pid != 0) SayHowToReach(connection.pid);
  kwagentkit::CloseConnection(&connection);  // ends the application unless kept
  return status;
}

}  // namespace kwscript
