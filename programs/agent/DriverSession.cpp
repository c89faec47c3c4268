#include "agent/DriverSession.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QEvent>
#include <QtGui/QAbstractItemView>

#include <atomic>
#include <memory>

#include "agentkit/AgentPipe.h"
#include "agentkit/Protocol.h"
#include "automation/FiberRunner.h"

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

constexpr DWORD kHeartbeatMs = 1000;

std::atomic<HANDLE> g_guiThread{nullptr};

QByteArray Serialized(const Json& message) {
  return QByteArray(message.dump(-1, ' ', false, Json::error_handler_t::replace).c_str());
}

// One command under way: what the GUI thread answers, and when.
struct Command {
  Json id;
  std::string name;
  Json params;
  Json answer;
  HANDLE answered = CreateEventW(nullptr, TRUE, FALSE, nullptr);
  ~Command() { CloseHandle(answered); }
};

// Lives on the GUI thread for the session's length: the session's state
// and the commands' handlers.
class SessionHost : public QObject {
 public:
  static const QEvent::Type kCommand = static_cast<QEvent::Type>(QEvent::User + 0x4B50);

  struct CommandEvent : QEvent {
    explicit CommandEvent(std::shared_ptr<Command> command) : QEvent(kCommand), command(std::move(command)) {}
    std::shared_ptr<Command> command;
  };

  explicit SessionHost(const kwagentkit::Opening& opening) {
    if (opening.maxItems > 0) m_state.maxItems = opening.maxItems;
    if (!opening.promptBehavior.empty()) m_state.promptBehavior = opening.promptBehavior;
    AddElementCommands(m_commands);
    AddScriptCommands(m_commands);
  }

  bool event(QEvent* event) override {
    if (event->type() != kCommand) return QObject::event(event);
    NoteGuiThread();
    Start(static_cast<CommandEvent*>(event)->command);
    return true;
  }

 private:
  // Runs the command's handler on a fiber, so that its waits let the
  // application's event loop (and a modal dialog's) run meanwhile.
  void Start(std::shared_ptr<Command> command) {
    auto* runner = new kwauto::FiberRunner(
        [this, command] {
          command->answer = Answer(*command);
          return true;
        },
        [command](bool) { SetEvent(command->answered); });
    runner->setParent(this);
    runner->Start(true);  // from this command's event: no turn of the event loop first
    m_finished.append(runner);
    // Runners of answered commands go once a later command starts.
    for (int i = 0; i + 1 < m_finished.size();) {
      m_finished[i]->deleteLater();
      m_finished.removeAt(i);
    }
  }

  Json Answer(const Command& command) {
    Json answer = {{"type", "answer"}, {"id", command.id}};
    CommandHandler handler = m_commands.Find(command.name);
    try {
      if (handler == nullptr) Fail("unknown command", QString("the agent has no command \"%1\"")
                                                          .arg(QString::fromStdString(command.name)));
      MeetOpenAlert(command.name, m_state);
      answer["value"] = handler(command.params, m_state);
    } catch (const CommandError& error) {
      answer["error"] = error.code;
      answer["message"] = Utf8(error.message);
    } catch (const std::exception& error) {
      answer["error"] = "invalid argument";
      answer["message"] = error.what();
    }
    return answer;
  }

  SessionState m_state;
  CommandTable m_commands;
  QList<QObject*> m_finished;
};

Json ParsedMessage(const QByteArray& message) {
  Json parsed = Json::parse(message.constData(), message.constData() + message.size(), nullptr, false);
  return parsed.is_object() ? parsed : Json();
}

}  // namespace

void NoteGuiThread() {
  if (g_guiThread == nullptr) g_guiThread = OpenThread(SYNCHRONIZE, FALSE, GetCurrentThreadId());
}

HANDLE GuiThread() { return g_guiThread; }

int ServeDriverSession(HANDLE pipe, const kwagentkit::Opening& opening, const SendMessage& send) {
  QCoreApplication* application = QCoreApplication::instance();
  auto* host = new SessionHost(opening);
  host->moveToThread(application->thread());
  send(kwagentkit::ReadyMessage(GetCurrentProcessId()));
  int status = 0;
  for (QByteArray message; status == 0 && kwagentkit::ReadMessage(pipe, &message);) {
    const Json request = ParsedMessage(message);
    const std::string type = request.is_object() ? request.value("type", "") : "";
    if (type == "quit") break;
    if (type != "command") {
      send(Serialized({{"type", "answer"}, {"id", nullptr}, {"error", "invalid argument"},
                       {"message", "the agent expects a command or quit"}}));
      continue;
    }
    auto command = std::make_shared<Command>();
    command->id = request.value("id", Json());
    command->name = request.value("name", "");
    command->params = request.value("params", Json::object());
    QCoreApplication::postEvent(host, new SessionHost::CommandEvent(command));
    // A script's time limit: asked to stop once it has run that long.
    // A script's time limit (null: none, as a driver's "script": null says).
    const Json limit = command->params.is_object() ? command->params.value("timeoutMs", Json()) : Json();
    const double timeoutMs = limit.is_number() ? limit.get<double>() : 0.0;
    const DWORD start = GetTickCount();
    bool stopAsked = false;
    for (;;) {
      HANDLE gui = g_guiThread;
      HANDLE waits[2] = {command->answered, gui};
      const DWORD woke = WaitForMultipleObjects(gui != nullptr ? 2 : 1, waits, FALSE, kHeartbeatMs);
      if (woke == WAIT_OBJECT_0) break;
      if (woke == WAIT_OBJECT_0 + 1) {  // the GUI thread ended: the application is going
        status = 4;
        break;
      }
      if (timeoutMs > 0 && !stopAsked && GetTickCount() - start >= timeoutMs) {
        kwauto::FiberRunner::RequestStop("script timeout");
        stopAsked = true;
      }
      if (!send(kwagentkit::BeatMessage())) {
        status = 4;
        break;
      }
    }
    if (status == 0 && !send(Serialized(command->answer))) break;
  }
  host->deleteLater();
  return status;
}

}  // namespace kwagent
