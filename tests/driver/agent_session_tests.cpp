// Driver sessions inside Qt's example applications, as kwdriver holds them:
// the application launched with the agent, commands sent over the pipe and
// the answers checked as a WebDriver client would get them; what a command
// did is read back through another command (a text, a property, the page
// source).
#include <windows.h>

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include <memory>
#include <string>

#include "agentkit/AgentPipe.h"
#include "agentkit/Launcher.h"

namespace {

using Json = nlohmann::json;

constexpr const char* kElementKey = "element-6066-11e4-a07e-4f161e5d2ab1";

std::wstring AppPath(const char* exe) {
  std::wstring path = L"Z:";
  for (const char* c = KW_QT_APPS; *c != 0; ++c) path += *c == '/' ? L'\\' : static_cast<wchar_t>(*c);
  path += L'\\';
  for (const char* c = exe; *c != 0; ++c) path += static_cast<wchar_t>(*c);
  return path;
}

// A session with an application launched for it.
class Session {
 public:
  explicit Session(const char* exe) {
    kwagentkit::LaunchRequest request;
    request.program = AppPath(exe);
    failure = kwagentkit::LaunchWithAgent(request, &m_connection);
    if (!failure.empty()) return;
    // The agent's opening as Agent.cpp reads it today: the job, a path, its
    // argument (here the items listed per view), a folder and a time limit.
    for (const char* part : {"session", "", "100", "", "0"})
      if (!kwagentkit::WriteMessage(m_connection.pipe, QByteArray(part))) failure = "the agent's pipe broke";
    const Json ready = Receive();
    if (ready.value("type", "") != "ready") failure = "the agent answered " + ready.dump();
  }
  ~Session() {
    // (An application whose last window closed has ended: nobody reads it.)
    if (m_connection.pipe != nullptr) Send({{"type", "quit"}});
    kwagentkit::CloseConnection(&m_connection);
  }

  // The answer to one command: {"value": ...} or {"error": ..., "message": ...}.
  Json Call(const std::string& name, const Json& params = Json::object()) {
    const int id = ++m_id;
    if (!Send({{"type", "command"}, {"id", id}, {"name", name}, {"params", params}})) return Json{{"type", "gone"}};
    for (;;) {
      Json answer = Receive();
      if (answer.value("type", "") == "beat") continue;
      if (answer.value("type", "") == "gone") return answer;  // the application ended
      EXPECT_EQ(id, answer.value("id", -1)) << answer.dump();
      return answer;
    }
  }
  // The value of a command that must succeed.
  Json Value(const std::string& name, const Json& params = Json::object()) {
    const Json answer = Call(name, params);
    EXPECT_FALSE(answer.contains("error")) << name << " " << params.dump() << ": " << answer.dump();
    return answer.value("value", Json());
  }
  // The error code of a command that must fail.
  std::string Error(const std::string& name, const Json& params = Json::object()) {
    const Json answer = Call(name, params);
    EXPECT_TRUE(answer.contains("error")) << name << " " << params.dump() << ": " << answer.dump();
    return answer.value("error", std::string());
  }

  // An element's reference string, found by one strategy.
  std::string Find(const std::string& strategy, const std::string& value) {
    return Value("findElement", {{"using", strategy}, {"value", value}}).value(kElementKey, std::string());
  }
  Json On(const std::string& element, Json params = Json::object()) {
    params["elementId"] = element;
    return params;
  }

  std::string failure;

 private:
  bool Send(const Json& message) {
    const std::string text = message.dump();
    return kwagentkit::WriteMessage(m_connection.pipe, QByteArray(text.c_str()));
  }
  Json Receive() {
    QByteArray message;
    if (!kwagentkit::ReadMessage(m_connection.pipe, &message)) return Json{{"type", "gone"}};
    Json parsed = Json::parse(message.constData(), message.constData() + message.size(), nullptr, false);
    // The agent's last word when the application exits is "exit", no JSON.
    return parsed.is_object() ? parsed : Json{{"type", "gone"}, {"said", message.constData()}};
  }

  kwagentkit::AgentConnection m_connection;
  int m_id = 0;
};

// One application for the tests of a suite.
template <const char* kExe>
class AppTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() { session.reset(new Session(kExe)); }
  static void TearDownTestSuite() { session.reset(); }
  void SetUp() override { ASSERT_TRUE(session->failure.empty()) << session->failure; }
  static std::unique_ptr<Session> session;
};
template <const char* kExe>
std::unique_ptr<Session> AppTest<kExe>::session;

constexpr char kCalculator[] = "calculator.exe";
constexpr char kStandardDialogs[] = "standarddialogs.exe";
constexpr char kConfigDialog[] = "configdialog.exe";
constexpr char kLineEdits[] = "lineedits.exe";
constexpr char kApplication[] = "application.exe";

using CalculatorTest = AppTest<kCalculator>;
using StandardDialogsTest = AppTest<kStandardDialogs>;
using ConfigDialogTest = AppTest<kConfigDialog>;
using LineEditsTest = AppTest<kLineEdits>;
using ApplicationTest = AppTest<kApplication>;

TEST_F(CalculatorTest, EachStrategyFindsWhatAUserSees) {
  const struct {
    const char* strategy;
    const char* value;
    size_t count;
  } cases[] = {
      {"css selector", "Button", 27},
      {"css selector", "Calculator > QLineEdit", 1},
      {"xpath", "//Button[@text='7']", 1},
      {"xpath", "/Calculator/Button", 27},
      {"link text", "Clear", 1},
      {"partial link text", "Clear", 2},
      {"class name", "QToolButton", 27},
      {"tag name", "Button", 27},
      {"tag name", "QToolButton", 0},  // the object's own class only
      {"name", "Backspace", 1},
      {"id", "noSuchName", 0},
  };
  for (const auto& c : cases)
    EXPECT_EQ(c.count, session->Value("findElements", {{"using", c.strategy}, {"value", c.value}}).size())
        << c.strategy << " " << c.value;
}

TEST_F(CalculatorTest, MistakesGetTheirErrorCodes) {
  const struct {
    const char* name;
    Json params;
    const char* error;
  } cases[] = {
      {"findElement", {{"using", "css selector"}, {"value", "Button["}}, "invalid selector"},
      {"findElement", {{"using", "xpath"}, {"value", "//Button["}}, "invalid selector"},
      {"findElement", {{"using", "xpath"}, {"value", "count(//Button)"}}, "invalid selector"},
      {"findElement", {{"using", "xpath"}, {"value", "//Button/@text"}}, "invalid selector"},
      {"findElement", {{"using", "magic"}, {"value", "x"}}, "invalid argument"},
      {"findElement", {{"using", "link text"}, {"value", "no such button"}}, "no such element"},
      {"getElementText", {{"elementId", "kw999999"}}, "no such element"},
      {"switchToWindow", {{"handle", "kw999999"}}, "no such window"},
  };
  for (const auto& c : cases) EXPECT_EQ(c.error, session->Error(c.name, c.params)) << c.name << " " << c.params.dump();
  const Json answer = session->Call("findElement", {{"using", "css selector"}, {"value", "Button["}});
  EXPECT_NE(std::string::npos, answer.value("message", "").find("character 8")) << answer.dump();
}

TEST_F(CalculatorTest, ClicksComputeAndTheDisplayShowsIt) {
  Session& s = *session;
  for (const char* key : {"Clear All", "1", "2", "\xc3\x97", "7", "="}) s.Value("elementClick", s.On(s.Find("link text", key)));
  const std::string display = s.Find("css selector", "Calculator > QLineEdit");
  EXPECT_EQ(display, s.Find("class name", "QLineEdit"));  // one object, one reference
  EXPECT_EQ("84", s.Value("getElementText", s.On(display)));
  EXPECT_EQ("84", s.Value("getElementProperty", s.On(display, {{"name", "text"}})));
  EXPECT_EQ(true, s.Value("getElementProperty", s.On(display, {{"name", "readOnly"}})));
  EXPECT_EQ("true", s.Value("getElementAttribute", s.On(display, {{"name", "readOnly"}})));
  EXPECT_EQ(nullptr, s.Value("getElementAttribute", s.On(display, {{"name", "noSuchThing"}})));
  EXPECT_EQ("QLineEdit", s.Value("getElementTagName", s.On(display)));
  EXPECT_EQ(true, s.Value("isElementDisplayed", s.On(display)));
  EXPECT_EQ(true, s.Value("isElementEnabled", s.On(display)));
  const Json rect = s.Value("getElementRect", s.On(display));
  EXPECT_GT(rect.value("width", 0), 0);
  EXPECT_GT(rect.value("height", 0), 0);
  // The page source shows the same.
  const std::string source = s.Value("getPageSource");
  EXPECT_NE(std::string::npos, source.find("<Calculator ")) << source.substr(0, 300);
  EXPECT_NE(std::string::npos, source.find("text=\"84\"")) << source.substr(0, 300);
  // Keys into a read-only display are refused by it, not by the driver.
  EXPECT_EQ("invalid element state", s.Error("elementClear", s.On(s.Find("link text", "7"))));
}

TEST_F(CalculatorTest, TheWindowIsTheSessionsWindow) {
  Session& s = *session;
  const Json handles = s.Value("getWindowHandles");
  ASSERT_EQ(1u, handles.size());
  EXPECT_EQ(handles[0], s.Value("getWindowHandle"));
  EXPECT_EQ("Calculator", s.Value("getTitle"));
  s.Value("switchToWindow", {{"handle", handles[0]}});
  // The calculator's layout keeps its size fixed: moved, not resized.
  const Json before = s.Value("getWindowRect");
  const Json after = s.Value("setWindowRect", {{"x", 30}, {"y", 40}, {"width", before["width"].get<int>() + 50}});
  EXPECT_EQ(before["width"], after["width"]) << after.dump();
  EXPECT_EQ(30, after["x"].get<int>()) << after.dump();
  EXPECT_EQ(40, after["y"].get<int>()) << after.dump();
  EXPECT_EQ(after, s.Value("getWindowRect"));
  EXPECT_EQ("invalid argument", s.Error("setWindowRect", {{"width", -5}}));
  // Pictures are PNG.
  EXPECT_EQ(0u, s.Value("takeScreenshot").get<std::string>().find("iVBORw0KGgo"));
  EXPECT_EQ(0u, s.Value("takeElementScreenshot", s.On(s.Find("link text", "5"))).get<std::string>().find("iVBORw0KGgo"));
}

TEST_F(StandardDialogsTest, AModalDialogBlocksTheWindowBehindIt) {
  Session& s = *session;
  const std::string main = s.Value("getWindowHandle");
  // The click returns while the dialog it opened waits for an answer.
  s.Value("elementClick", s.On(s.Find("link text", "QInputDialog::getText()")));
  const Json handles = s.Value("getWindowHandles");
  ASSERT_EQ(2u, handles.size()) << handles.dump();
  EXPECT_EQ("unexpected alert open", s.Error("elementClick", s.On(s.Find("link text", "QInputDialog::getInt()"))));
  // Found without switching: the dialog is searched as every window is.
  const std::string field = s.Find("css selector", "QInputDialog QLineEdit");
  s.Value("elementClear", s.On(field));
  s.Value("elementSendKeys", s.On(field, {{"text", "Qt rocks\xee\x80\x87"}}));  // and Enter
  EXPECT_EQ(Json::array({main}), s.Value("getWindowHandles"));
  EXPECT_EQ(1u, s.Value("findElements", {{"using", "xpath"}, {"value", "//QLabel[@text='Qt rocks']"}}).size());
  // The dialog was a local of the application's: its field is gone.
  EXPECT_EQ("stale element reference", s.Error("getElementText", s.On(field)));
}

TEST_F(ConfigDialogTest, ItemsOfAListAreElements) {
  Session& s = *session;
  const std::string update = s.Find("link text", "Update");
  EXPECT_EQ("Item", s.Value("getElementTagName", s.On(update)));
  EXPECT_EQ(1, s.Value("getElementProperty", s.On(update, {{"name", "row"}})));
  EXPECT_EQ(update, s.Find("xpath", "//QListWidget/Item[@row='1']"));
  EXPECT_EQ(false, s.Value("isElementSelected", s.On(update)));
  EXPECT_GT(s.Value("getElementRect", s.On(update)).value("width", 0), 0);
  s.Value("elementClick", s.On(update));
  EXPECT_EQ(true, s.Value("isElementSelected", s.On(update)));
  EXPECT_EQ("true", s.Value("getElementAttribute", s.On(update, {{"name", "selected"}})));
  EXPECT_EQ(1, s.Value("getElementProperty", s.On(s.Find("css selector", "QStackedWidget"), {{"name", "currentIndex"}})));
  // From the list, its items only.
  const std::string list = s.Find("css selector", "QListWidget");
  EXPECT_EQ(3u, s.Value("findElementsFromElement", s.On(list, {{"using", "tag name"}, {"value", "Item"}})).size());
  EXPECT_EQ(3u, s.Value("findElementsFromElement", s.On(list, {{"using", "xpath"}, {"value", "./Item"}})).size());
}

TEST_F(LineEditsTest, TheWindowTakesTheSizeAskedFor) {
  Session& s = *session;
  const Json before = s.Value("getWindowRect");
  const int width = before["width"].get<int>() + 60;
  const Json after = s.Value("setWindowRect", {{"width", width}, {"height", nullptr}, {"x", nullptr}});
  EXPECT_EQ(width, after["width"].get<int>()) << after.dump();
  EXPECT_EQ(before["height"], after["height"]) << after.dump();
  EXPECT_EQ(before["x"], after["x"]) << after.dump();
  EXPECT_EQ(after, s.Value("getWindowRect"));
}

// A minimized window's widgets are not displayed and take no clicks; the
// window shown again, they are and do.
TEST_F(LineEditsTest, MinimizedWindowsHideTheirWidgets) {
  Session& s = *session;
  const std::string field = s.Find("css selector", "QLineEdit");
  const Json normal = s.Value("getWindowRect");
  s.Value("minimizeWindow");
  EXPECT_EQ(false, s.Value("isElementDisplayed", s.On(field)));
  EXPECT_EQ("element not interactable", s.Error("elementClick", s.On(field)));
  const Json maximized = s.Value("maximizeWindow");
  EXPECT_EQ(true, s.Value("isElementDisplayed", s.On(field)));
  EXPECT_GE(maximized["width"].get<int>(), normal["width"].get<int>()) << maximized.dump();
  s.Value("elementClick", s.On(field));
  EXPECT_EQ(normal, s.Value("setWindowRect", normal));  // back to normal, where it was
}

TEST_F(LineEditsTest, KeysTypeAndClearEmpties) {
  Session& s = *session;
  const std::string field = s.Find("css selector", "QLineEdit");
  s.Value("elementSendKeys", s.On(field, {{"text", "abc"}}));
  EXPECT_EQ("abc", s.Value("getElementProperty", s.On(field, {{"name", "text"}})));
  s.Value("elementSendKeys", s.On(field, {{"text", "\xee\x80\x83\xee\x80\x88" "d"}}));  // Backspace, Shift+d
  EXPECT_EQ("abD", s.Value("getElementProperty", s.On(field, {{"name", "text"}})));
  EXPECT_EQ(field, s.Value("getActiveElement").value(kElementKey, std::string()));
  s.Value("elementClear", s.On(field));
  EXPECT_EQ("", s.Value("getElementProperty", s.On(field, {{"name", "text"}})));
}

// Menu entries are actions: found by their text, clicked where a user sees
// them; an action in a closed menu is not interactable.
TEST_F(ApplicationTest, MenusOpenThroughTheirEntriesAndWindowsClose) {
  Session& s = *session;
  const Json main = s.Value("getWindowHandle");
  EXPECT_NE(std::string::npos, s.Value("getTitle").get<std::string>().find("untitled.txt")) << s.Value("getTitle");
  const std::string help = s.Find("link text", "Help");
  EXPECT_EQ("QAction", s.Value("getElementTagName", s.On(help)));
  const std::string aboutQt = s.Find("link text", "About Qt");
  EXPECT_EQ(false, s.Value("isElementDisplayed", s.On(aboutQt)));
  EXPECT_EQ("element not interactable", s.Error("elementClick", s.On(aboutQt)));
  s.Value("elementClick", s.On(help));
  EXPECT_EQ(true, s.Value("isElementDisplayed", s.On(aboutQt)));
  s.Value("elementClick", s.On(aboutQt));  // a modal box: the click returns while it is open
  const Json handles = s.Value("getWindowHandles");
  ASSERT_EQ(2u, handles.size()) << handles.dump();
  const Json box = handles[0] == main ? handles[1] : handles[0];
  s.Value("switchToWindow", {{"handle", box}});
  EXPECT_EQ("About Qt", s.Value("getTitle"));
  EXPECT_EQ(Json::array({main}), s.Value("closeWindow"));
  EXPECT_EQ("no such window", s.Error("getTitle"));  // the closed window stays current
  s.Value("switchToWindow", {{"handle", main}});
  // The last window: answered before the application ends with it.
  EXPECT_EQ(Json::array(), s.Value("closeWindow"));
  const Json after = s.Call("getWindowHandles");
  // The window is gone; the application ends soon after (or already has).
  EXPECT_TRUE(after.value("type", "") == "gone" || after.value("value", Json()) == Json::array()) << after.dump();
}

}  // namespace
