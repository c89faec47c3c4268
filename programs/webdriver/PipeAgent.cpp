// The sessions' real agents: an application started (or attached to) by
// programs/agentkit's launcher with kwagent.dll in it, spoken to in the
// protocol of programs/agentkit (Protocol.h, Protocol.md): the opening and
// the end over its pipe, the commands through the session's channel
// (CommandChannel.h), which wakes the application's GUI thread directly.
//
// The pipe is looked at (PeekNamedPipe) whenever the agent says it wrote a
// message, rather than read by a thread of its own: synchronous reads and
// writes on one pipe handle wait for each other on Windows.
#include <windows.h>

#include <algorithm>
#include <chrono>
#include <mutex>

#include "webdriver/Agent.h"

#ifdef KW_DRIVER_LAUNCHER

#include "agentkit/AgentPipe.h"
#include "agentkit/CommandChannel.h"
#include "agentkit/Launcher.h"
#include "agentkit/Protocol.h"
#endif

namespace kwdriver {

using nlohmann::json;

#ifdef KW_DRIVER_LAUNCHER

namespace {

constexpr DWORD kOpenLimitMs = 30000;   // for the agent's "ready"
constexpr DWORD kCloseGraceMs = 3000;   // for a launched application to close its windows
constexpr size_t kLastWordsKept = 8000;
constexpr DWORD kWaitSliceMs = 20;      // between looks at the pipe, cancellation and the deadline

std::wstring Wide(const std::string& text) {
  if (text.empty()) return {};
  const int size = MultiByteToWideChar(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), nullptr, 0);
  std::wstring out(static_cast<size_t>(size), L'\0');
  MultiByteToWideChar(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), out.data(), size);
  return out;
}

BOOL CALLBACK CloseWindowOf(HWND window, LPARAM pid) {
  DWORD owner = 0;
  GetWindowThreadProcessId(window, &owner);
  if (owner == static_cast<DWORD>(pid) && IsWindowVisible(window)) PostMessageW(window, WM_CLOSE, 0, 0);
  return TRUE;
}

class PipeAgent : public AgentChannel {
 public:
  explicit PipeAgent(const kwagentkit::AgentConnection& connection) : m_connection(connection) {}
  ~PipeAgent() override {
    End();
    if (m_guiThread != nullptr) CloseHandle(m_guiThread);
  }

  // The session's opening: "session", answered by "ready" or "refused".
  bool Open(const SessionRequest& request, Failure* failure) {
    kwagentkit::Opening opening;
    opening.job = kwagentkit::Job::Session;
    opening.maxItems = request.maxItems;
    opening.promptBehavior = request.promptBehavior;
    if (!m_channel.Create(m_connection.pipeName)) {
      *failure = {"session not created",
                  "cannot make the session's command channel (error " + std::to_string(GetLastError()) + ")"};
      return false;
    }
    if (!Send(kwagentkit::OpeningMessage(opening))) {
      *failure = {"session not created", "the agent's pipe broke before the session began" + LastWords()};
      return false;
    }
    const DWORD start = GetTickCount();
    while (GetTickCount() - start < kOpenLimitMs) {
      kwagentkit::Message message;
      switch (Poll(&message)) {
        case Got::kBroken:
          *failure = {"session not created", "the application ended before the session began" + LastWords()};
          return false;
        case Got::kNothing:
          WaitForAgent(kWaitSliceMs, false);
          continue;
        case Got::kMessage:
          break;
      }
      if (message.type == kwagentkit::MessageType::Ready) {
        m_window = kwagentkit::ReadyWindow(message);
        if (m_window != nullptr) {
          OpenWake(kwagentkit::ReadyWake(message));
          return true;
        }
        *failure = {"session not created", "the agent named no window for the session's commands"};
        return false;
      }
      if (message.type == kwagentkit::MessageType::Refused) {
        *failure = {"session not created", "the agent refused the session: " + message.text};
        return false;
      }
    }
    *failure = {"session not created", "the agent did not answer the session's opening"};
    return false;
  }

  Reply Call(const std::string& name, const json& params, std::chrono::milliseconds limit,
             const std::atomic<bool>& cancelled) override {
    Reply reply;
    if (m_broken) return Gone();
    const uint64_t id = ++m_lastId;
    const auto deadline = std::chrono::steady_clock::now() + limit;
    // A command given up on (timed out) may still run: this one waits for
    // its answer, which it drops, as the agent takes one command at a time.
    while (!m_channel.LoaderTurn())
      if (!AwaitAnswer(deadline, limit, cancelled, &reply)) return reply;
    std::string text;
    m_channel.TakeAnswer(&text);
    if (!m_channel.PutCommand(kwagentkit::CommandMessage(id, name, params))) {
      reply.kind = Reply::Kind::kError;
      reply.failure = {"unknown error", "the command could not be handed to the application (error " +
                                            std::to_string(GetLastError()) + ")"};
      return reply;
    }
    // The GUI thread waiting in Qt's loop takes an APC sooner than a message.
    bool byApc = m_guiThread != nullptr && m_channel.AgentWaits() &&
                 QueueUserAPC(m_wake, m_guiThread, reinterpret_cast<ULONG_PTR>(m_window));
    if (!byApc && !PostMessageW(m_window, kwagentkit::kCommandWaiting, 0, 0)) return Gone();
    for (;;) {
      if (!m_channel.TakeAnswer(&text)) {
        if (!AwaitAnswer(deadline, limit, cancelled, &reply)) return reply;
        // No answer within a slice: the message as well, in case the thread
        // left Qt's wait for a loop that runs no APC (a native dialog's).
        // A command already taken ignores it.
        if (byApc && !m_channel.LoaderTurn()) PostMessageW(m_window, kwagentkit::kCommandWaiting, 0, 0);
        byApc = false;
        continue;
      }
      kwagentkit::Message message;
      if (!kwagentkit::ParseMessage(text, &message) || message.type != kwagentkit::MessageType::Answer) {
        reply.kind = Reply::Kind::kError;
        reply.failure = {"unknown error", "the agent's answer could not be read"};
        return reply;
      }
      const json& body = message.body;
      if (!body.contains("id") || body["id"] != id) continue;
      if (body.contains("error")) {
        reply.kind = Reply::Kind::kError;
        reply.failure.error = body["error"].is_string() ? body["error"].get<std::string>() : "unknown error";
        reply.failure.message = body.value("message", std::string());
      } else {
        reply.value = body.contains("value") ? body["value"] : json(nullptr);
      }
      return reply;
    }
  }

  bool Alive(std::string* report) override {
    for (;;) {
      kwagentkit::Message message;
      const Got got = Poll(&message);
      if (got == Got::kMessage) continue;  // beats and lines between commands
      if (got == Got::kNothing && !Ended()) return true;
      *report = GoneText();
      return false;
    }
  }

  void End() override {
    if (m_done) return;
    m_done = true;
    if (m_connection.launched) {
      if (m_connection.process != nullptr && !Ended()) {
        EnumWindows(CloseWindowOf, static_cast<LPARAM>(m_connection.pid));
        if (WaitForSingleObject(m_connection.process, kCloseGraceMs) != WAIT_OBJECT_0)
          TerminateProcess(m_connection.process, 1);
      }
    } else if (!m_broken) {
      Send(kwagentkit::QuitMessage());
    }
    kwagentkit::CloseConnection(&m_connection);
  }

  unsigned long Pid() const override { return m_connection.pid; }
  bool Launched() const override { return m_connection.launched; }

 private:
  enum class Got { kMessage, kNothing, kBroken };

  // The agent's APC routine, queued to its window's thread beside each
  // message when the thread can be opened for it (else the message alone).
  void OpenWake(uintptr_t routine) {
    if (routine == 0) return;
    const DWORD thread = GetWindowThreadProcessId(m_window, nullptr);
    if (thread == 0) return;
    m_guiThread = OpenThread(THREAD_SET_CONTEXT, FALSE, thread);
    m_wake = reinterpret_cast<PAPCFUNC>(routine);
  }

  bool Send(const std::string& message) {
    if (m_broken) return false;
    if (!kwagentkit::WriteMessage(m_connection.pipe, message)) m_broken = true;
    return !m_broken;
  }

  // One message if a whole one has begun to arrive; beats and output lines
  // are taken in passing (lines kept as the application's last words).
  Got Poll(kwagentkit::Message* message) {
    if (m_broken) return Got::kBroken;
    DWORD available = 0;
    if (!PeekNamedPipe(m_connection.pipe, nullptr, 0, nullptr, &available, nullptr)) {
      m_broken = true;
      return Got::kBroken;
    }
    if (available == 0) return Got::kNothing;
    std::string text;
    if (!kwagentkit::ReadMessage(m_connection.pipe, &text)) {
      m_broken = true;
      return Got::kBroken;
    }
    if (!kwagentkit::ParseMessage(text, message)) return Got::kNothing;
    const kwagentkit::MessageType type = message->type;
    if ((type == kwagentkit::MessageType::Err || type == kwagentkit::MessageType::Out ||
         type == kwagentkit::MessageType::Crash) &&
        !message->text.empty()) {
      m_lastWords += (m_lastWords.empty() ? "" : "\n") + message->text;
      if (m_lastWords.size() > kLastWordsKept) m_lastWords.erase(0, m_lastWords.size() - kLastWordsKept);
    }
    return Got::kMessage;
  }

  // Waits at most `ms` for a sign of the agent: its answer (with
  // `answers`), a message it wrote to the pipe, or the application's end.
  DWORD WaitForAgent(DWORD ms, bool answers) {
    HANDLE waits[3];
    DWORD count = 0;
    for (HANDLE handle : {answers ? m_channel.Answered() : nullptr, m_connection.process, m_connection.written})
      if (handle != nullptr) waits[count++] = handle;
    if (count == 0) {
      Sleep(ms);
      return WAIT_TIMEOUT;
    }
    return WaitForMultipleObjects(count, waits, FALSE, ms);
  }

  // Waits a slice of time for the agent's answer (false, with `reply`
  // saying why, once the session is cancelled, the deadline has passed or
  // the application has ended without answering), taking what the pipe
  // brings meanwhile (a crash report).
  bool AwaitAnswer(std::chrono::steady_clock::time_point deadline, std::chrono::milliseconds limit,
                   const std::atomic<bool>& cancelled, Reply* reply) {
    if (cancelled) {
      reply->kind = Reply::Kind::kGone;
      reply->failure.message = "the session was ended";
      return false;
    }
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
    if (left.count() <= 0) {
      reply->kind = Reply::Kind::kTimeout;
      reply->failure.message = "no answer within " + std::to_string(limit.count()) + " ms";
      return false;
    }
    const auto slice = static_cast<DWORD>(std::min<long long>(left.count(), kWaitSliceMs));
    if (WaitForAgent(slice, true) == WAIT_OBJECT_0) return true;  // the answer's event comes first
    for (kwagentkit::Message message; Poll(&message) == Got::kMessage;) {
    }
    if (m_channel.LoaderTurn() || (!m_broken && !Ended())) return true;
    *reply = Gone();
    return false;
  }

  bool Ended() const {
    return m_connection.process != nullptr && WaitForSingleObject(m_connection.process, 0) == WAIT_OBJECT_0;
  }

  std::string LastWords() const { return m_lastWords.empty() ? "" : ": " + m_lastWords; }

  std::string GoneText() const {
    std::string text = "the application ended";
    DWORD code = 0;
    if (m_connection.process != nullptr && GetExitCodeProcess(m_connection.process, &code) && code != STILL_ACTIVE) {
      char hex[16];
      std::snprintf(hex, sizeof hex, "0x%08lX", static_cast<unsigned long>(code));
      text += std::string(" (exit code ") + hex + ")";
    } else if (m_connection.process != nullptr) {
      text = "the agent's pipe broke";
    }
    return text + LastWords();
  }

  Reply Gone() {
    Reply reply;
    reply.kind = Reply::Kind::kGone;
    reply.failure.message = GoneText();
    return reply;
  }

  kwagentkit::AgentConnection m_connection;
  kwagentkit::CommandChannel m_channel;
  HWND m_window = nullptr;  // the agent's, woken for each command
  HANDLE m_guiThread = nullptr;  // its thread, for the APC
  PAPCFUNC m_wake = nullptr;
  uint64_t m_lastId = 0;
  bool m_broken = false;
  bool m_done = false;
  std::string m_lastWords;
};

// Launched applications end with kwdriver however it ends: the launcher
// puts them in a job that ends them when its last handle closes.
class PipeAgentStarter : public AgentStarter {
 public:

  std::unique_ptr<AgentChannel> Start(const SessionRequest& request, Failure* failure) override {
    kwagentkit::AgentConnection connection;
    std::string problem;
    if (!request.app.empty()) {
      kwagentkit::LaunchRequest launch;
      launch.program = Wide(request.app);
      for (const std::string& argument : request.arguments) launch.arguments.push_back(Wide(argument));
      launch.workingDir = Wide(request.workingDir);
      problem = kwagentkit::LaunchWithAgent(launch, &connection);
    } else {
      problem = kwagentkit::AttachAgent(Wide(request.attach), &connection);
    }
    if (!problem.empty()) {
      kwagentkit::CloseConnection(&connection);
      *failure = {"session not created", problem};
      return nullptr;
    }
    auto agent = std::make_unique<PipeAgent>(connection);
    if (!agent->Open(request, failure)) return nullptr;  // its destructor ends what it started
    return agent;
  }
};

}  // namespace

std::unique_ptr<AgentStarter> MakePipeAgentStarter() { return std::make_unique<PipeAgentStarter>(); }

#else  // without programs/agentkit's launcher

namespace {
class NoLauncher : public AgentStarter {
 public:
  std::unique_ptr<AgentChannel> Start(const SessionRequest&, Failure* failure) override {
    *failure = {"session not created", "this kwdriver was built without programs/agentkit's launcher"};
    return nullptr;
  }
};
}  // namespace

std::unique_ptr<AgentStarter> MakePipeAgentStarter() { return std::make_unique<NoLauncher>(); }

#endif

}  // namespace kwdriver
