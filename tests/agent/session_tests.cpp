// A driver session served in the test's own process, as the agent serves
// one inside an application: a client thread opens the session on its pipe
// and puts the commands in its channel, waking the agent's window, as the
// driver does; the main thread runs Qt's event
// loop (and the modal dialogs the commands open). Scripts, alerts and
// actions are checked by what the widgets show afterwards.
#include <windows.h>

#include <gtest/gtest.h>

#include <QtCore/QPointer>
#include <QtGui/QApplication>
#include <QtGui/QInputDialog>
#include <QtGui/QKeyEvent>
#include <QtGui/QLabel>
#include <QtGui/QLineEdit>
#include <QtGui/QListWidget>
#include <QtGui/QMessageBox>
#include <QtGui/QPushButton>
#include <QtGui/QScrollArea>
#include <QtGui/QSlider>
#include <QtGui/QVBoxLayout>
#include <QtGui/QWidget>

#include <functional>
#include <thread>

#include "agent/DriverSession.h"
#include "agentkit/AgentPipe.h"
#include "agentkit/CommandChannel.h"
#include "agentkit/Protocol.h"

namespace {

using kwagent::Json;

QApplication* Application() {
  static int argc = 1;
  static char name[] = "agent_session_tests";
  static char* argv[] = {name, nullptr};
  static QApplication* application = new QApplication(argc, argv);
  return application;
}

// The client's end of a session served on a thread of its own.
class Client {
 public:
  Client() {
    static int sessions = 0;
    const std::wstring name =
        L"\\\\.\\pipe\\kwagent-test-" + std::to_wstring(GetCurrentProcessId()) + L"-" + std::to_wstring(++sessions);
    m_server = CreateNamedPipeW(name.c_str(), PIPE_ACCESS_DUPLEX, PIPE_TYPE_BYTE | PIPE_WAIT, 1, 1 << 16, 1 << 16, 0,
                                nullptr);
    m_client = CreateFileW(name.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    EXPECT_TRUE(m_channel.Create(name));
    m_agent = std::thread([this, name] {
      kwagent::ServeDriverSession(m_server, name, kwagentkit::Opening(), [this](const std::string& message) {
        return kwagentkit::WriteMessage(m_server, message);
      });
    });
    Json ready;
    Read(&ready);
    const Json window = ready.value("window", Json());
    m_window = window.is_number_unsigned() ? reinterpret_cast<HWND>(window.get<uintptr_t>()) : nullptr;
    EXPECT_NE(m_window, nullptr) << ready.dump();
    const Json wake = ready.value("wake", Json());
    if (wake.is_number_unsigned()) m_wake = reinterpret_cast<PAPCFUNC>(wake.get<uintptr_t>());
    m_gui = OpenThread(THREAD_SET_CONTEXT, FALSE, GetWindowThreadProcessId(m_window, nullptr));
  }
  ~Client() {
    kwagentkit::WriteMessage(m_client, "{\"type\":\"quit\"}");
    m_agent.join();
    for (HANDLE handle : {m_client, m_server, m_gui}) CloseHandle(handle);
  }

  // How the command wakes the agent: its window's message, as the driver
  // does when the GUI thread is busy; the agent's APC alone once the
  // channel says the thread waits in Qt's loop, as the driver does then;
  // the APC alone at once, wherever the thread is.
  enum class Wake { kMessage, kApcInQtWait, kApcNow };

  // The command's answer: its value, or {"error": code, "message": ...}.
  Json Command(const char* name, const Json& params = Json::object(), Wake wake = Wake::kMessage) {
    if (!m_channel.PutCommand(kwagentkit::CommandMessage(++m_id, name, params)) || !Wake(wake))
      return {{"error", "the command could not be put"}};
    std::string bytes;
    while (!m_channel.TakeAnswer(&bytes))
      if (WaitForSingleObject(m_channel.Answered(), 60000) != WAIT_OBJECT_0) return {{"error", "no answer"}};
    const Json answer = Json::parse(bytes);
    if (answer.contains("error")) return {{"error", answer["error"]}, {"message", answer["message"]}};
    return answer["value"];
  }

  Json Script(const std::string& script, const Json& args = Json::array(), double timeoutMs = 5000) {
    return Command("executeScript", {{"script", script}, {"args", args}, {"timeoutMs", timeoutMs}});
  }

  // Whether the agent has answered the command under way.
  bool Answered() const { return m_channel.LoaderTurn(); }

 private:
  bool Wake(Wake wake) {
    if (wake == Wake::kMessage) return PostMessageW(m_window, kwagentkit::kCommandWaiting, 0, 0);
    if (m_wake == nullptr) return false;
    for (int slept = 0; wake == Wake::kApcInQtWait && !m_channel.AgentWaits() && slept < 5000; ++slept) Sleep(1);
    return QueueUserAPC(m_wake, m_gui, reinterpret_cast<ULONG_PTR>(m_window));
  }

  bool Read(Json* message) {
    std::string bytes;
    if (!kwagentkit::ReadMessage(m_client, &bytes)) return false;
    *message = Json::parse(bytes);
    return true;
  }

  HANDLE m_server = nullptr, m_client = nullptr;
  kwagentkit::CommandChannel m_channel;
  HWND m_window = nullptr;
  PAPCFUNC m_wake = nullptr;
  HANDLE m_gui = nullptr;
  std::thread m_agent;
  int m_id = 0;
};

// Runs `scenario` on a client thread while the event loop runs here.
void Serve(const std::function<void(Client&)>& scenario) {
  QApplication* application = Application();
  std::thread client([&] {
    {
      Client session;
      scenario(session);
    }
    QMetaObject::invokeMethod(application, "quit", Qt::QueuedConnection);
  });
  application->exec();
  client.join();
  QApplication::processEvents();  // the session's end
}

std::string ErrorOf(const Json& answer) {
  return answer.is_object() && answer.contains("error") ? answer["error"].get<std::string>() : "";
}

// Records which keys the application received, as the widgets got them.
class KeyLog : public QObject {
 public:
  QObject* target = nullptr;
  QStringList events;
  bool eventFilter(QObject* watched, QEvent* event) override {
    if (watched == target && (event->type() == QEvent::KeyPress || event->type() == QEvent::KeyRelease)) {
      auto* key = static_cast<QKeyEvent*>(event);
      if (!key->isAutoRepeat())
        events << QString("%1 %2").arg(event->type() == QEvent::KeyPress ? "down" : "up").arg(key->key(), 0, 16);
    }
    return false;
  }
};

// Made first, so that the application exists before any widget.
struct WithApplication {
  WithApplication() { Application(); }
};

class Form : WithApplication {
 public:
  Form() {
    window.setObjectName("form");
    auto* layout = new QVBoxLayout(&window);
    edit = new QLineEdit;
    edit->setObjectName("edit");
    slider = new QSlider(Qt::Horizontal);
    slider->setObjectName("slider");
    slider->setRange(0, 100);
    slider->setFixedWidth(300);
    ask = new QPushButton("Ask");
    ask->setObjectName("ask");
    layout->addWidget(edit);
    layout->addWidget(slider);
    layout->addWidget(ask);
    window.show();
    window.activateWindow();
    QApplication::setActiveWindow(&window);
    QApplication::processEvents();
  }
  QWidget window;
  QLineEdit* edit;
  QSlider* slider;
  QPushButton* ask;
};

// A handler of the application's own that sleeps alertably (as some code
// does): an APC queued meanwhile runs inside it, where no command may run.
class AlertableSleeper : public QObject {
 public:
  static const QEvent::Type kType = static_cast<QEvent::Type>(QEvent::User + 0x4B70);
  HANDLE sleeping = CreateEventW(nullptr, TRUE, FALSE, nullptr);
  std::function<void()> afterwards;
  ~AlertableSleeper() override { CloseHandle(sleeping); }
  bool event(QEvent* event) override {
    if (event->type() != kType) return QObject::event(event);
    SetEvent(sleeping);
    SleepEx(300, TRUE);
    afterwards();
    return true;
  }
};

TEST(AgentSession, CommandsWokenByTheApcAloneRunInQtsWaitOnly) {
  Form form;
  form.window.setWindowTitle("Woken");
  AlertableSleeper sleeper;
  std::vector<Json> titles;
  Json slept;
  bool answeredInTheSleep = true;
  Serve([&](Client& session) {
    for (int i = 0; i < 10; ++i) titles.push_back(session.Command("getTitle", Json::object(), Client::Wake::kApcInQtWait));
    sleeper.afterwards = [&] { answeredInTheSleep = session.Answered(); };
    QCoreApplication::postEvent(&sleeper, new QEvent(AlertableSleeper::kType));
    WaitForSingleObject(sleeper.sleeping, 5000);
    slept = session.Command("getTitle", Json::object(), Client::Wake::kApcNow);
  });
  ASSERT_EQ(titles.size(), 10u);
  for (const Json& title : titles) EXPECT_EQ(title, "Woken");
  // Taken once the handler had returned, from a message the agent posted itself.
  EXPECT_EQ(slept, "Woken");
  EXPECT_FALSE(answeredInTheSleep);
}

TEST(AgentScripts, RunWithTheAppObjectAndElementsBothWays) {
  Form form;
  form.slider->setValue(10);
  Json slider, value, set, sum, list, variant, thrown, missing;
  Serve([&](Client& session) {
    slider = session.Script("return app.find('slider');");
    value = session.Script("return arguments[0].value;", Json::array({slider}));
    set = session.Script("arguments[0].setValue(arguments[1]); return [arguments[0], arguments[0].value];", Json::array({slider, 33}));
    sum = session.Script("var s = 0; for (var i = 0; i < arguments[0].length; i++) s += arguments[0][i].n; return {sum: s};",
                         Json::array({Json::array({{{"n", 1}}, {{"n", 2.5}}})}));
    list = session.Script("return app.queryAll('QSlider');");
    variant = session.Script("return [arguments[0].property('value'), arguments[0].property('noSuchProperty')];",
                             Json::array({slider}));
    thrown = session.Script("var a = 1;\nthrow new Error('no way');");
    missing = session.Script("return arguments[0];", Json::array({{{kwagent::kElementKey, "nowhere"}}}));
  });
  ASSERT_TRUE(slider.is_object()) << slider;
  EXPECT_TRUE(slider.contains(kwagent::kElementKey)) << slider;
  EXPECT_EQ(value, 10);
  EXPECT_EQ(set, Json::array({slider, 33}));
  EXPECT_EQ(form.slider->value(), 33);
  EXPECT_EQ(sum, Json({{"sum", 3.5}}));
  EXPECT_EQ(list, Json::array({slider}));  // a list of the app object is an array
  EXPECT_EQ(variant, Json::array({33, nullptr}));  // a QVariant is its value
  EXPECT_EQ(ErrorOf(thrown), "javascript error") << thrown;
  EXPECT_NE(thrown.value("message", "").find("no way"), std::string::npos) << thrown;
  EXPECT_NE(thrown.value("message", "").find(":2:"), std::string::npos) << thrown;
  EXPECT_EQ(ErrorOf(missing), "no such element") << missing;
}

// What the clients' browser functions ask (focus, clickability, scrolling
// into view), the value of a field, and a script in a later JavaScript.
TEST(AgentElements, QuestionsWebDriverHasNoCommandForAreAnsweredFromTheWidgets) {
  Form form;
  auto* layout = form.window.layout();
  auto* off = new QPushButton("Off");
  off->setObjectName("off");
  off->setEnabled(false);
  auto* under = new QPushButton("Under");
  under->setObjectName("under");
  auto* area = new QScrollArea;
  area->setFixedHeight(80);
  auto* tall = new QWidget;
  tall->setFixedSize(200, 1000);
  auto* deep = new QPushButton("Deep", tall);
  deep->setObjectName("deep");
  deep->move(10, 900);
  area->setWidget(tall);
  layout->addWidget(off);
  layout->addWidget(under);
  layout->addWidget(area);
  form.edit->setText("typed");
  form.slider->setValue(10);
  for (int i = 0; i < 3; ++i) QApplication::processEvents();
  QLabel cover("cover", &form.window);  // raised over "under"
  cover.setGeometry(under->geometry());
  cover.setAutoFillBackground(true);
  cover.show();
  cover.raise();
  form.edit->setFocus();
  QApplication::processEvents();

  Json focused, clickable, deepBefore, deepAfter, scrolled, deepRect, deepClickable, values, arrow, plainError;
  Serve([&](Client& session) {
    auto find = [&](const char* id) {
      return session.Command("findElement", {{"using", "css selector"}, {"value", std::string("#") + id}});
    };
    auto ask = [&](const char* command, const Json& element, const char* name = nullptr) {
      Json params = {{"elementId", element.value(kwagent::kElementKey, "")}};
      if (name != nullptr) params["name"] = name;
      return session.Command(command, params);
    };
    const Json edit = find("edit"), button = find("ask"), slider = find("slider"), deepOne = find("deep");
    focused = {ask("isElementFocused", edit), ask("isElementFocused", button)};
    clickable = {ask("isElementClickable", button), ask("isElementClickable", find("off")),
                 ask("isElementClickable", find("under"))};
    deepBefore = ask("isElementDisplayed", deepOne);
    scrolled = ask("scrollElementIntoView", deepOne);
    deepAfter = ask("isElementDisplayed", deepOne);
    deepRect = ask("getElementRect", deepOne);
    deepClickable = ask("isElementClickable", deepOne);
    values = {ask("getElementProperty", edit, "value"), ask("getElementAttribute", edit, "value"),
              ask("getElementProperty", slider, "value"), ask("getElementAttribute", slider, "value"),
              ask("getElementProperty", button, "value")};
    arrow = session.Script("return [1, 2].map((x) => x * 2);");
    plainError = session.Script("return (1;");
  });
  EXPECT_EQ(focused, Json::array({true, false}));
  EXPECT_EQ(clickable, Json::array({true, false, false}));  // ask; disabled; covered
  EXPECT_EQ(deepBefore, false);
  EXPECT_EQ(deepAfter, true);
  ASSERT_TRUE(scrolled.is_object()) << scrolled;
  for (const char* key : {"x", "y", "width", "height"}) EXPECT_EQ(scrolled[key], deepRect[key]) << key;
  EXPECT_EQ(scrolled["left"], deepRect["x"]);
  EXPECT_EQ(scrolled["bottom"], deepRect["y"].get<int>() + deepRect["height"].get<int>());
  EXPECT_EQ(deepClickable, true);
  // A field's text; a slider keeps its own value property; a button has none.
  EXPECT_EQ(values, Json::array({"typed", "typed", 10, "10", nullptr}));
  EXPECT_EQ(ErrorOf(arrow), "javascript error") << arrow;
  EXPECT_NE(arrow.value("message", "").find("arrow function"), std::string::npos) << arrow;
  EXPECT_EQ(ErrorOf(plainError), "javascript error") << plainError;
  EXPECT_EQ(plainError.value("message", "").find("arrow function"), std::string::npos) << plainError;
}

TEST(AgentScripts, AsynchronousScriptsAnswerThroughTheirCallbackOrTimeOut) {
  Form form;
  Json now, later, never, endless;
  Serve([&](Client& session) {
    now = session.Command("executeAsyncScript",
                          {{"script", "arguments[arguments.length - 1](arguments[0] + 1);"}, {"args", {41}}, {"timeoutMs", 5000}});
    later = session.Command("executeAsyncScript",
                            {{"script", "var done = arguments[0]; setTimeout(function () { done(app.find('edit')); }, 200);"},
                             {"args", Json::array()},
                             {"timeoutMs", 5000}});
    never = session.Command("executeAsyncScript", {{"script", "var x = 1;"}, {"args", Json::array()}, {"timeoutMs", 300}});
    endless = session.Script("for (;;) app.processEvents();", Json::array(), 300);
  });
  EXPECT_EQ(now, 42);
  EXPECT_TRUE(later.is_object() && later.contains(kwagent::kElementKey)) << later;
  EXPECT_EQ(ErrorOf(never), "script timeout") << never;
  EXPECT_EQ(ErrorOf(endless), "script timeout") << endless;
}

// Opens the dialogs the alert commands answer, and keeps what they gave.
class Asker : public QObject {
 public:
  QString kind;
  QString answer;
  bool eventFilter(QObject*, QEvent* event) override {
    if (event->type() != QEvent::User) return false;
    bool ok = false;
    if (kind == "question")
      answer = QMessageBox::question(nullptr, "Question", "Proceed?", QMessageBox::Yes | QMessageBox::No) ==
                       QMessageBox::Yes
                   ? "yes"
                   : "no";
    else if (kind == "text")
      answer = QInputDialog::getText(nullptr, "Text", "Your name:", QLineEdit::Normal, "old", &ok);
    else if (kind == "int")
      answer = QString::number(QInputDialog::getInt(nullptr, "Number", "Percentage:", 25, 0, 100, 1, &ok));
    if (kind != "question" && !ok) answer += " (cancelled)";
    return true;
  }
};

TEST(AgentAlerts, MessageBoxesAndInputDialogsAreAnswered) {
  Form form;
  Asker asker;
  form.ask->installEventFilter(&asker);
  const struct {
    const char* kind;
    const char* text;   // sent, or null
    bool accept;
    const char* label;  // the alert's text
    const char* answer;
  } kCases[] = {
      {"question", nullptr, true, "Proceed?", "yes"},
      {"question", nullptr, false, "Proceed?", "no"},
      {"text", "Ada", true, "Your name:", "Ada"},
      {"text", "Ada", false, "Your name:", " (cancelled)"},
      {"int", "42", true, "Percentage:", "42"},
  };
  for (const auto& test : kCases) {
    asker.kind = test.kind;
    asker.answer.clear();
    Json none, label, sent, answered, after;
    Serve([&](Client& session) {
      none = session.Command("getAlertText");
      QCoreApplication::postEvent(form.ask, new QEvent(QEvent::User));
      for (int i = 0; i < 100 && ErrorOf(label = session.Command("getAlertText")) == "no such alert"; ++i) Sleep(50);
      if (test.text != nullptr) sent = session.Command("sendAlertText", {{"text", test.text}});
      if (test.kind == std::string("question")) sent = session.Command("sendAlertText", {{"text", "x"}});
      answered = session.Command(test.accept ? "acceptAlert" : "dismissAlert");
      after = session.Command("getAlertText");
    });
    EXPECT_EQ(ErrorOf(none), "no such alert") << test.kind;
    EXPECT_EQ(label, test.label) << test.kind;
    if (test.text != nullptr) EXPECT_EQ(sent, nullptr) << test.kind << sent;
    if (test.text == nullptr) EXPECT_EQ(ErrorOf(sent), "element not interactable") << sent;
    EXPECT_EQ(answered, nullptr) << test.kind << answered;
    EXPECT_EQ(asker.answer.toStdString(), test.answer) << test.kind;
    EXPECT_EQ(ErrorOf(after), "no such alert") << test.kind;
  }
}

Json Move(const Json& origin, int x, int y, int duration = 0) {
  return {{"type", "pointerMove"}, {"origin", origin}, {"x", x}, {"y", y}, {"duration", duration}};
}

TEST(AgentActions, PointerKeysAndWheelReachTheWidgets) {
  Form form;
  KeyLog log;
  log.target = form.edit;
  Json drag, keys, held, wheel, released;
  int afterDrag = -1;
  QString typed;
  Serve([&](Client& session) {
    const Json slider = session.Script("return app.find('slider');");
    const Json edit = session.Script("return app.find('edit');");
    // The handle from the slider's left end to its right end.
    drag = session.Command(
        "performActions",
        {{"actions",
          {{{"type", "pointer"},
            {"id", "mouse"},
            {"actions",
             {Move(slider, -145, 0), {{"type", "pointerDown"}, {"button", 0}}, Move(slider, 145, 0, 200),
              {{"type", "pointerUp"}, {"button", 0}}}}}}}});
    const Json value = session.Script("return arguments[0].value;", Json::array({slider}));
    afterDrag = value.is_number_integer() ? value.get<int>() : -1;
    // A click into the line edit, then Shift+a, b typed by keys.
    const Json press = {{"type", "pointerDown"}, {"button", 0}}, release = {{"type", "pointerUp"}, {"button", 0}};
    const Json pause = {{"type", "pause"}};
    auto key = [](const char* type, const char* value) { return Json{{"type", type}, {"value", value}}; };
    QCoreApplication::instance()->installEventFilter(&log);
    keys = session.Command(
        "performActions",
        {{"actions",
          {{{"type", "pointer"}, {"id", "mouse"}, {"actions", {Move(edit, 0, 0), press, release, pause, pause, pause, pause}}},
           {{"type", "key"},
            {"id", "keyboard"},
            {"actions",
             {pause, pause, pause, key("keyDown", "\xee\x80\x88"), key("keyDown", "a"), key("keyUp", "a"),
              key("keyUp", "\xee\x80\x88")}}}}}});
    // b and Shift left held, for releaseActions to let go of.
    held = session.Command("performActions",
                           {{"actions",
                             {{{"type", "key"},
                               {"id", "keyboard"},
                               {"actions", {key("keyDown", "b"), key("keyDown", "\xee\x80\x88")}}}}}});
    released = session.Command("releaseActions");
    QCoreApplication::instance()->removeEventFilter(&log);
    typed = QString::fromStdString(session.Script("return app.find('edit').text;").dump());
    // The wheel turned down (towards the user) over the slider moves it back.
    wheel = session.Command(
        "performActions",
        {{"actions",
          {{{"type", "wheel"},
            {"id", "wheel"},
            {"actions", {{{"type", "scroll"}, {"origin", slider}, {"x", 0}, {"y", 0}, {"deltaX", 0}, {"deltaY", 100}}}}}}}});
  });
  EXPECT_EQ(drag, nullptr) << drag;
  EXPECT_GT(afterDrag, 90);
  EXPECT_EQ(keys, nullptr) << keys;
  EXPECT_EQ(held, nullptr) << held;
  EXPECT_EQ(released, nullptr) << released;
  EXPECT_EQ(typed.toStdString(), "\"Ab\"");
  // Shift held from the first sequence was let go by releaseActions.
  EXPECT_EQ(log.events.filter(QString("up %1").arg(Qt::Key_Shift, 0, 16)).size(), 2) << log.events.join(", ").toStdString();
  EXPECT_EQ(wheel, nullptr) << wheel;
  EXPECT_LT(form.slider->value(), afterDrag);
}

// Qt's drag and drop of an item (the system's drag loop in Qt) goes with
// the pointer's moves and drops at its release.
TEST(AgentActions, APointerDragMovesAnItemOfAList) {
  WithApplication application;
  QListWidget list;
  list.addItems(QStringList() << "one" << "two" << "three");
  list.setDragDropMode(QAbstractItemView::InternalMove);
  list.show();
  list.activateWindow();
  QApplication::setActiveWindow(&list);
  QApplication::processEvents();
  Json dragged;
  Serve([&](Client& session) {
    auto item = [&](const char* text) {
      return session.Command("findElement", {{"using", "xpath"}, {"value", std::string("//Item[@text='") + text + "']"}});
    };
    const Json one = item("one"), three = item("three");
    // From "one" to the lower half of "three": below it.
    dragged = session.Command(
        "performActions",
        {{"actions",
          {{{"type", "pointer"},
            {"id", "mouse"},
            {"actions",
             {Move(one, 0, 0), {{"type", "pointerDown"}, {"button", 0}}, Move(three, 0, 5, 200),
              {{"type", "pointerUp"}, {"button", 0}}}}}}}});
  });
  EXPECT_EQ(dragged, nullptr) << dragged;
  QStringList order;
  for (int row = 0; row < list.count(); ++row) order << list.item(row)->text();
  EXPECT_EQ(order.join(" ").toStdString(), "two three one");
}

TEST(AgentActions, TargetsOutsideTheScreenAreRefused) {
  Form form;
  Json distant;
  Serve([&](Client& session) {
    distant = session.Command("performActions",
                          {{"actions", {{{"type", "pointer"}, {"id", "mouse"}, {"actions", {Move("viewport", -5000, 0)}}}}}});
  });
  EXPECT_EQ(ErrorOf(distant), "move target out of bounds") << distant;
}

}  // namespace
