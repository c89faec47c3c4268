#include "agent/DriverSession.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QEvent>
#include <QtGui/QAbstractItemView>

#include <atomic>
#include <memory>
#include <string>

#include "agentkit/AgentPipe.h"
#include "agentkit/CommandChannel.h"
#include "agent/QtWaitWatch.h"
#include "agentkit/Protocol.h"
#include "agentkit/QtText.h"
#include "automation/FiberRunner.h"
#include "kwscript/ScriptRunner.h"

namespace kwagent {

void Fail(const char* code, const QString& message) { throw CommandError{code, message}; }

QString TextOf(const Json& value) { return kwagentkit::FromUtf8(value.get_ref<const std::string&>()); }

Json JsonOf(const QString& text) { return Json(Utf8(text)); }

QString StringParam(const Json& params, const char* key) {
  auto found = params.find(key);
  if (found == params.end() || !found->is_string())
    Fail("invalid argument", QString("\"%1\" must be a string").arg(key));
  return TextOf(*found);
}

QWidget* Element::Widget() const {
  QObject* target = object.data();
  return target != nullptr && target->isWidgetType() ? static_cast<QWidget*>(target) : nullptr;
}

namespace {

// How long a new session waits for the GUI thread to make its window.
constexpr DWORD kSetUpLimitMs = 20000;
// How often the agent's thread looks for "quit" while a session runs.
constexpr DWORD kQuitSliceMs = 50;
constexpr int kCannotServe = 2;
constexpr int kGuiThreadEnded = 4;

const wchar_t kWindowClass[] = L"kwagentSessionWindow";

std::atomic<HANDLE> g_guiThread{nullptr};

// One command under way, and its answer once it has one.
struct Command {
  Json id;
  std::string name;
  Json params;
  std::string answer;
  kwauto::FiberRunner* runner = nullptr;
};

// Scripts under way, for the agent's thread at the session's end.
std::atomic<int> g_scriptsUnderWay{0};

bool IsScript(const std::string& command) { return command == "executeScript" || command == "executeAsyncScript"; }

void CALLBACK StopScript(void*, BOOLEAN) { kwauto::FiberRunner::RequestStop("script timeout"); }
void CALLBACK CutOffScript(void*, BOOLEAN) { kwscript::ScriptRunner::CutOffStuckScript(); }

// At the session's end, from the agent's thread: a script still running
// is asked to stop, and cut off if it runs on in its engine.
void EndScripts() {
  if (g_scriptsUnderWay == 0) return;
  kwauto::FiberRunner::RequestStop("the session ended");
  for (DWORD waited = 0; g_scriptsUnderWay > 0 && waited < kwscript::ScriptRunner::kCutOffGraceMs; waited += 10)
    Sleep(10);
  if (g_scriptsUnderWay > 0) kwscript::ScriptRunner::CutOffStuckScript();
}

// Lives on the GUI thread for the session's length: the session's state,
// the commands' handlers, and the window the driver wakes for each command
// it puts in the channel.
class SessionHost : public QObject {
 public:
  static const QEvent::Type kSetUp = static_cast<QEvent::Type>(QEvent::User + 0x4B50);
  static const QEvent::Type kEnd = static_cast<QEvent::Type>(QEvent::User + 0x4B51);

  SessionHost(const kwagentkit::Opening& opening, std::unique_ptr<kwagentkit::CommandChannel> channel)
      : m_channel(std::move(channel)) {
    if (opening.maxItems > 0) m_state.maxItems = opening.maxItems;
    if (!opening.promptBehavior.empty()) m_state.promptBehavior = opening.promptBehavior;
    AddElementCommands(m_commands);
    AddScriptCommands(m_commands);
  }

  ~SessionHost() override {
    StopScriptTimers();
    for (kwauto::FiberRunner* runner : m_finished) {
      runner->setParent(nullptr);
      runner->Dispose();
    }
    if (m_window != nullptr) DestroyWindow(m_window);
    CloseHandle(m_setUp);
  }

  // Set once the GUI thread has made the window (null if it could not).
  HANDLE SetUp() const { return m_setUp; }
  HWND Window() const { return m_window; }

  bool event(QEvent* event) override {
    if (event->type() == kEnd) {
      End();
      return true;
    }
    if (event->type() != kSetUp) return QObject::event(event);
    NoteGuiThread();
    new QtWaitWatch(this, m_channel.get());
    m_window = MakeWindow();
    SetEvent(m_setUp);
    return true;
  }

  // The driver queues this APC to the GUI thread in place of its message
  // when the channel says the thread waits in Qt's event loop: the command
  // starts there at once, which spares the loop's taking of a message
  // (about half of a command's time in the application). In any other
  // alertable wait (the thread woke meanwhile) it leaves the command to a
  // message of its own.
  static void CALLBACK WakeForCommand(ULONG_PTR window) {
    const HWND handle = reinterpret_cast<HWND>(window);
    // A session's window that is gone has no procedure any more.
    if (GetWindowLongPtrW(handle, GWLP_WNDPROC) != reinterpret_cast<LONG_PTR>(&SessionHost::WindowProc)) return;
    auto* host = reinterpret_cast<SessionHost*>(GetWindowLongPtrW(handle, GWLP_USERDATA));
    if (host == nullptr) return;
    if (!host->m_channel->AgentWaits()) {
      PostMessageW(handle, kwagentkit::kCommandWaiting, 0, 0);
      return;
    }
    host->m_channel->NoteAgentWaits(false);  // the wait is left: its work starts here
    host->TakeCommand();
  }

 private:
  HWND MakeWindow() {
    WNDCLASSEXW windowClass = {};
    windowClass.cbSize = sizeof windowClass;
    windowClass.lpfnWndProc = &SessionHost::WindowProc;
    windowClass.hInstance = GetModuleHandleW(nullptr);
    windowClass.lpszClassName = kWindowClass;
    RegisterClassExW(&windowClass);  // fails harmlessly for a later session: the class stays
    HWND window = CreateWindowExW(0, kWindowClass, L"", 0, 0, 0, 0, 0, HWND_MESSAGE, nullptr,
                                  GetModuleHandleW(nullptr), nullptr);
    if (window != nullptr) SetWindowLongPtrW(window, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(this));
    return window;
  }

  // Whatever message loop runs (Qt's, a modal dialog's, a native one)
  // delivers the driver's wake-up here.
  static LRESULT CALLBACK WindowProc(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
    if (message != kwagentkit::kCommandWaiting) return DefWindowProcW(window, message, wParam, lParam);
    auto* host = reinterpret_cast<SessionHost*>(GetWindowLongPtrW(window, GWLP_USERDATA));
    if (host != nullptr) host->TakeCommand();
    return 0;
  }

  void TakeCommand() {
    std::string text;
    if (!m_channel->TakeCommand(&text)) return;  // no command waits: a stray wake-up
    kwagentkit::Message request;
    if (!kwagentkit::ParseMessage(text, &request) || request.type != kwagentkit::MessageType::Command) {
      m_channel->PutAnswer(kwagentkit::FailedAnswerMessage(nullptr, "invalid argument", "the agent expects a command"));
      return;
    }
    auto command = std::make_shared<Command>();
    command->id = request.body.value("id", Json());
    command->name = request.body.value("name", "");
    command->params = request.body.value("params", Json::object());
    Start(command);
  }

  // Runs the command's handler on a fiber, so that its waits let the
  // application's event loop (and a modal dialog's) run meanwhile.
  void Start(std::shared_ptr<Command> command) {
    const bool script = IsScript(command->name);
    if (script) {
      ++g_scriptsUnderWay;
      StartScriptTimers(command->params);
    }
    ++m_running;
    auto* runner = new kwauto::FiberRunner(
        [this, command] {
          command->answer = Answer(*command);
          return true;
        },
        [this, command, script](bool) {
          if (script) {
            StopScriptTimers();
            --g_scriptsUnderWay;
          }
          if (command->runner->WasCutOff()) {
            ForgetCutOffScripts(m_state);
            command->answer = kwagentkit::FailedAnswerMessage(
                command->id, "script timeout",
                "the script did not finish in time and makes no call that could stop it: it was cut off where it "
                "ran, in the script engine; the session's next script starts afresh");
          } else if (command->answer.empty()) {
            command->answer = kwagentkit::FailedAnswerMessage(command->id, "unknown error",
                                                              "the command could not start on the GUI thread");
          }
          m_channel->PutAnswer(command->answer);
          if (--m_running == 0 && m_ending) deleteLater();
        });
    command->runner = runner;
    runner->setParent(this);
    runner->Start(true);  // from the wake-up: no turn of the event loop first
    m_finished.append(runner);
    // Runners of answered commands go once a later command starts (one
    // whose given-up call still waits in a modal window's loop, once that
    // returns).
    while (m_finished.size() > 1) m_finished.takeFirst()->Dispose();
  }

  // The session's end. A command still under way waits on its fiber, with
  // objects of its own posted to the event loop: it is asked to stop, and
  // the host (its runners and their fibers) goes once it has ended.
  void End() {
    m_ending = true;
    if (m_running == 0) {
      deleteLater();
      return;
    }
    kwauto::FiberRunner::RequestStop("the session ended");
  }

  // A script's time limit (null: none, as a driver's "script": null says):
  // asked to stop once it has run that long, and cut off a second later
  // if it runs on in its engine, from threads of the pool, since a script
  // busy on the GUI thread lets no timer of it run.
  void StartScriptTimers(const Json& params) {
    const Json limit = params.is_object() ? params.value("timeoutMs", Json()) : Json();
    const double ms = limit.is_number() ? limit.get<double>() : 0.0;
    if (ms <= 0) return;
    const DWORD due = ms >= 4e9 ? 4000000000u : static_cast<DWORD>(ms);
    if (!CreateTimerQueueTimer(&m_stopTimer, nullptr, &StopScript, nullptr, due, 0, WT_EXECUTEONLYONCE))
      m_stopTimer = nullptr;
    if (!CreateTimerQueueTimer(&m_cutOffTimer, nullptr, &CutOffScript, nullptr,
                               due + kwscript::ScriptRunner::kCutOffGraceMs, 0,
                               WT_EXECUTEONLYONCE | WT_EXECUTELONGFUNCTION))
      m_cutOffTimer = nullptr;
  }

  // Waits for a stop or cut-off under way, so that none reaches the next
  // command.
  void StopScriptTimers() {
    for (HANDLE* timer : {&m_stopTimer, &m_cutOffTimer}) {
      if (*timer != nullptr) DeleteTimerQueueTimer(nullptr, *timer, INVALID_HANDLE_VALUE);
      *timer = nullptr;
    }
  }

  std::string Answer(const Command& command) {
    CommandHandler handler = m_commands.Find(command.name);
    try {
      if (handler == nullptr) Fail("unknown command", QString("the agent has no command \"%1\"")
                                                          .arg(QString::fromStdString(command.name)));
      MeetOpenAlert(command.name, m_state);
      return kwagentkit::AnswerMessage(command.id, handler(command.params, m_state));
    } catch (const CommandError& error) {
      return kwagentkit::FailedAnswerMessage(command.id, error.code, Utf8(error.message));
    } catch (const std::exception& error) {
      return kwagentkit::FailedAnswerMessage(command.id, "invalid argument", error.what());
    }
  }

  std::unique_ptr<kwagentkit::CommandChannel> m_channel;
  HANDLE m_setUp = CreateEventW(nullptr, TRUE, FALSE, nullptr);
  HWND m_window = nullptr;
  HANDLE m_stopTimer = nullptr;
  HANDLE m_cutOffTimer = nullptr;
  SessionState m_state;
  CommandTable m_commands;
  QList<kwauto::FiberRunner*> m_finished;
  int m_running = 0;  // commands started and not answered yet
  bool m_ending = false;
};

// Whether the driver said "quit" (or went away) before the slice ended.
bool QuitSaid(HANDLE pipe) {
  DWORD available = 0;
  if (!PeekNamedPipe(pipe, nullptr, 0, nullptr, &available, nullptr)) return true;
  for (std::string bytes; available > 0;) {
    if (!kwagentkit::ReadMessage(pipe, &bytes)) return true;
    kwagentkit::Message message;
    if (kwagentkit::ParseMessage(bytes, &message) && message.type == kwagentkit::MessageType::Quit) return true;
    if (!PeekNamedPipe(pipe, nullptr, 0, nullptr, &available, nullptr)) return true;
  }
  return false;
}

}  // namespace

void NoteGuiThread() {
  if (g_guiThread == nullptr) g_guiThread = OpenThread(SYNCHRONIZE, FALSE, GetCurrentThreadId());
}

HANDLE GuiThread() { return g_guiThread; }

int ServeDriverSession(HANDLE pipe, const std::wstring& pipeName, const kwagentkit::Opening& opening,
                       const SendMessage& send) {
  auto channel = std::make_unique<kwagentkit::CommandChannel>();
  if (!channel->Open(pipeName)) {
    send(kwagentkit::RefusedMessage(kCannotServe, "the driver's command channel cannot be opened (error " +
                                                      std::to_string(GetLastError()) + ")"));
    return kCannotServe;
  }
  auto* host = new SessionHost(opening, std::move(channel));
  host->moveToThread(QCoreApplication::instance()->thread());
  QCoreApplication::postEvent(host, new QEvent(SessionHost::kSetUp));
  const bool setUp = WaitForSingleObject(host->SetUp(), kSetUpLimitMs) == WAIT_OBJECT_0;
  if (!setUp || host->Window() == nullptr) {
    send(kwagentkit::RefusedMessage(kCannotServe, setUp ? "the agent could not make its window"
                                                        : "the application's GUI thread did not answer within 20 s"));
    host->deleteLater();  // after the window, whenever the GUI thread gets there
    return kCannotServe;
  }
  send(kwagentkit::ReadyMessage(GetCurrentProcessId(), host->Window(),
                                 reinterpret_cast<uintptr_t>(&SessionHost::WakeForCommand)));
  // The commands go to the GUI thread without this thread; it waits for
  // "quit", a broken pipe or the GUI thread's end.
  // The GUI thread noted itself in setting up the window.
  const HANDLE gui = GuiThread();
  int status = 0;
  for (;;) {
    if (gui == nullptr) Sleep(kQuitSliceMs);
    else if (WaitForSingleObject(gui, kQuitSliceMs) == WAIT_OBJECT_0) status = kGuiThreadEnded;
    if (status != 0 || QuitSaid(pipe)) break;
  }
  QCoreApplication::postEvent(host, new QEvent(SessionHost::kEnd));
  if (status == 0) EndScripts();
  return status;
}

}  // namespace kwagent
