// The server's logic without an application: routes, capabilities, errors
// and their statuses, sessions over a fake agent, all as a WebDriver client
// would see them (HTTP status, error code, value).
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <sstream>
#include <thread>

#include "FakeAgent.h"
#include "webdriver/Atoms.h"
#include "webdriver/Capabilities.h"
#include "webdriver/Driver.h"
#include "webdriver/Routes.h"

namespace kwdriver {
namespace {

using nlohmann::json;
using testing::FakeApp;
using testing::FakeStarter;
using std::chrono::milliseconds;

const char kElement[] = "element-6066-11e4-a52e-4f735466cecf";

TEST(Errors, EachCodeHasItsStatus) {
  const std::pair<const char*, int> table[] = {
      {"element click intercepted", 400}, {"element not interactable", 400}, {"invalid argument", 400},
      {"invalid element state", 400},     {"invalid selector", 400},         {"invalid session id", 404},
      {"javascript error", 500},          {"move target out of bounds", 500}, {"no such alert", 404},
      {"no such element", 404},           {"no such window", 404},           {"script timeout", 500},
      {"session not created", 500},       {"stale element reference", 404},  {"timeout", 500},
      {"unable to capture screen", 500},  {"unexpected alert open", 500},    {"unknown command", 404},
      {"unknown error", 500},             {"unknown method", 405},           {"unsupported operation", 500},
      {"no such shadow root", 404},       {"detached shadow root", 404},     {"no such frame", 404},
  };
  for (const auto& [error, status] : table) {
    EXPECT_EQ(HttpStatusOf(error), status) << error;
    EXPECT_TRUE(IsKnownError(error)) << error;
  }
  EXPECT_FALSE(IsKnownError("no such thing"));
  EXPECT_EQ(HttpStatusOf("no such thing"), 500);
  const json body = ErrorBody("no such element", "gone");
  EXPECT_EQ(body, json::parse(R"({"value":{"error":"no such element","message":"gone","stacktrace":""}})"));
}

TEST(Routes, MethodAndPathNameACommandOrAnError) {
  struct Case {
    const char* method;
    const char* path;
    const char* command;  // or the error
    const char* parameter;
    const char* value;
  };
  const Case table[] = {
      {"GET", "/status", "status", nullptr, nullptr},
      {"HEAD", "/status", "status", nullptr, nullptr},
      {"GET", "/wd/hub/status", "status", nullptr, nullptr},
      {"GET", "/status/", "status", nullptr, nullptr},
      {"POST", "/session", "newSession", nullptr, nullptr},
      {"DELETE", "/session/s1", "deleteSession", "sessionId", "s1"},
      {"GET", "/session/s1", "unknown method", nullptr, nullptr},
      {"PUT", "/status", "unknown method", nullptr, nullptr},
      {"POST", "/status", "unknown method", nullptr, nullptr},
      {"GET", "/nothing", "unknown command", nullptr, nullptr},
      {"GET", "//status", "unknown command", nullptr, nullptr},
      {"GET", "", "unknown command", nullptr, nullptr},
      {"GET", "/session/s1/element/e1/attribute/objectName", "getElementAttribute", "name", "objectName"},
      {"GET", "/session/s1/element/e1/property/text", "getElementProperty", "elementId", "e1"},
      {"GET", "/session/s1/element/e1/css/color", "getElementCssValue", "propertyName", "color"},
      {"GET", "/session/s1/element/active", "getActiveElement", "sessionId", "s1"},
      {"POST", "/session/s1/element/active", "unknown method", nullptr, nullptr},
      {"GET", "/session/s1/element/e1/displayed", "isElementDisplayed", "elementId", "e1"},
      {"DELETE", "/session/s1/window", "closeWindow", nullptr, nullptr},
      {"DELETE", "/session/s1/actions", "releaseActions", nullptr, nullptr},
      {"POST", "/session/s1/execute/sync", "executeScript", nullptr, nullptr},
      {"POST", "/session/s1/url", "navigateTo", nullptr, nullptr},
      {"POST", "/session/s1/element/e1/value", "elementSendKeys", "elementId", "e1"},
      {"GET", "/session/s1/element/e1/nothing", "unknown command", nullptr, nullptr},
  };
  for (const Case& c : table) {
    const RouteMatch match = MatchRoute(c.method, c.path);
    const std::string got = match.route != nullptr ? match.route->command : match.failure.error;
    EXPECT_EQ(got, c.command) << c.method << " " << c.path;
    if (c.parameter != nullptr && match.route != nullptr) {
      EXPECT_EQ(match.parameters.at(c.parameter), c.value) << c.method << " " << c.path;
    }
  }
  // Every endpoint is reached by its own path: none hides another.
  size_t count = 0;
  const Route* routes = Routes(&count);
  EXPECT_GE(count, 60u);
  for (size_t i = 0; i < count; ++i) {
    std::string path = routes[i].path;
    for (const char* name : {"{sessionId}", "{elementId}", "{name}", "{propertyName}", "{shadowId}"})
      for (size_t at; (at = path.find(name)) != std::string::npos;) path.replace(at, std::strlen(name), "x1");
    const RouteMatch match = MatchRoute(routes[i].method, path);
    EXPECT_EQ(match.route, &routes[i]) << routes[i].method << " " << path;
  }
}

TEST(Capabilities, MergedAndMatchedAsTheSpecSays) {
  struct Case {
    const char* body;
    const char* error;  // "" when a session is to be made
    const char* app;    // the program, or the attach target after "attach:"
  };
  const Case table[] = {
      {R"({"capabilities":{"alwaysMatch":{"kw:app":"C:\\a.exe"}}})", "", "C:\\a.exe"},
      {R"({"capabilities":{"alwaysMatch":{"kw:app":"/opt/qt/a.exe"}}})", "", "Z:\\opt\\qt\\a.exe"},
      {R"({"capabilities":{"alwaysMatch":{"appium:app":"C:\\b.exe","platformName":"WINDOWS"}}})", "", "C:\\b.exe"},
      {R"({"capabilities":{"firstMatch":[{"platformName":"Windows","kw:app":"C:\\grid.exe","se:x":1}]}})", "",
       "C:\\grid.exe"},
      {R"({"capabilities":{"alwaysMatch":{"kw:app":"C:\\a.exe"},"firstMatch":[{"platformName":"mac"},{"platformName":"windows"}]}})",
       "", "C:\\a.exe"},
      {R"({"capabilities":{"alwaysMatch":{"kw:attach":1234}}})", "", "attach:1234"},
      {R"({"capabilities":{"alwaysMatch":{"kw:attach":"calculator.exe","unknownThing":[1]}}})", "",
       "attach:calculator.exe"},
      {R"({"desiredCapabilities":{"kw:app":"C:\\old.exe"}})", "", "C:\\old.exe"},
      {R"({})", "invalid argument", ""},
      {R"({"capabilities":[]})", "invalid argument", ""},
      {R"({"capabilities":{"alwaysMatch":[]}})", "invalid argument", ""},
      {R"({"capabilities":{"firstMatch":[]}})", "invalid argument", ""},
      {R"({"capabilities":{"firstMatch":[1]}})", "invalid argument", ""},
      {R"({"capabilities":{"alwaysMatch":{"kw:app":"C:\\a.exe"},"firstMatch":[{"kw:app":"C:\\b.exe"}]}})",
       "invalid argument", ""},
      {R"({"capabilities":{"alwaysMatch":{"kw:app":"C:\\a.exe","kw:args":"x"}}})", "invalid argument", ""},
      {R"({"capabilities":{"alwaysMatch":{"kw:app":7}}})", "invalid argument", ""},
      {R"({"capabilities":{"alwaysMatch":{"kw:app":"C:\\a.exe","platformName":3}}})", "invalid argument", ""},
      {R"({"capabilities":{"alwaysMatch":{"kw:app":"C:\\a.exe","timeouts":{"implicit":-1}}}})", "invalid argument", ""},
      {R"({"capabilities":{"alwaysMatch":{"kw:app":"C:\\a.exe","pageLoadStrategy":"fast"}}})", "invalid argument", ""},
      {R"({"capabilities":{"alwaysMatch":{"kw:app":"C:\\a.exe","unhandledPromptBehavior":"close"}}})", "invalid argument", ""},
      {R"({"capabilities":{"alwaysMatch":{"kw:app":"C:\\a.exe","unhandledPromptBehavior":{"alert":1}}}})", "invalid argument", ""},
      {R"({"capabilities":{"alwaysMatch":{"kw:app":"C:\\a.exe","appium:app":"C:\\b.exe"}}})", "invalid argument", ""},
      {R"({"capabilities":{"alwaysMatch":{"kw:app":"C:\\a.exe","kw:newCommandTimeout":-5}}})", "invalid argument", ""},
      {R"({"capabilities":{"alwaysMatch":{"kw:app":"C:\\a.exe","platformName":"linux"}}})", "session not created", ""},
      {R"({"capabilities":{"alwaysMatch":{"kw:app":"C:\\a.exe","browserName":"chrome"}}})", "session not created", ""},
      {R"({"capabilities":{"alwaysMatch":{"platformName":"windows"}}})", "session not created", ""},
      {R"({"capabilities":{"alwaysMatch":{"kw:app":"C:\\a.exe","kw:attach":"x.exe"}}})", "session not created", ""},
  };
  for (const Case& c : table) {
    SessionRequest request;
    Failure failure;
    const bool made = ProcessCapabilities(json::parse(c.body), &request, &failure);
    EXPECT_EQ(made ? std::string() : failure.error, c.error) << c.body << " -> " << failure.message;
    if (!made) continue;
    const std::string got = request.attach.empty() ? request.app : "attach:" + request.attach;
    EXPECT_EQ(got, c.app) << c.body;
  }

  SessionRequest request;
  Failure failure;
  ASSERT_TRUE(ProcessCapabilities(json::parse(R"({"capabilities":{"alwaysMatch":{
      "appium:app":"C:\\a.exe","appium:appArguments":"-x \"two words\"","appium:appWorkingDir":"/tmp",
      "appium:newCommandTimeout":5,"kw:maxItems":20,"timeouts":{"implicit":1500,"script":null}}}})"),
                                  &request, &failure));
  EXPECT_EQ(request.arguments, (std::vector<std::string>{"-x", "two words"}));
  EXPECT_EQ(request.workingDir, "Z:\\tmp");
  EXPECT_EQ(request.newCommandTimeout, 5);
  EXPECT_EQ(request.maxItems, 20);
  EXPECT_EQ(request.timeouts.implicit, 1500);
  EXPECT_FALSE(request.timeouts.script.has_value());
  EXPECT_EQ(request.promptBehavior, "dismiss and notify");  // by default

  // unhandledPromptBehavior: as a string, or by prompt type, where an alert's is
  // the "alert" entry, else the "default" one.
  const std::pair<const char*, const char*> behaviors[] = {
      {R"("accept")", "accept"},
      {R"("ignore")", "ignore"},
      {R"({"alert": "accept and notify", "default": "dismiss"})", "accept and notify"},
      {R"({"default": "dismiss"})", "dismiss"},
      {R"({"beforeUnload": "accept"})", "dismiss and notify"},
  };
  for (const auto& [given, taken] : behaviors) {
    const json body = {{"capabilities", {{"alwaysMatch", {{"kw:app", "C:\\a.exe"},
                                                          {"unhandledPromptBehavior", json::parse(given)}}}}}};
    ASSERT_TRUE(ProcessCapabilities(body, &request, &failure)) << given << " -> " << failure.message;
    EXPECT_EQ(request.promptBehavior, taken) << given;
    EXPECT_EQ(SessionCapabilities(request, 1)["unhandledPromptBehavior"], taken) << given;
  }
}

// Selenium's own atoms, read from python3-selenium where it is installed:
// recognised without the comment its bindings put before them too.
TEST(Atoms, SeleniumsAtomsAreRecognised) {
  EXPECT_EQ(RecogniseAtom("/* isDisplayed */return (function(){}).apply(null, arguments);"), Atom::kIsDisplayed);
  EXPECT_EQ(RecogniseAtom("/* getAttribute */return (function(){}).apply(null, arguments);"), Atom::kGetAttribute);
  EXPECT_EQ(RecogniseAtom("return arguments[0].isDisplayed()"), Atom::kNone);
  // WebdriverIO 9's, as its execute() sends them.
  EXPECT_EQ(RecogniseAtom("return (function checkVisibility(elem, params) {\n  if (typeof elem.checkVisibility === "
                          "\"function\") {\n return elem.checkVisibility(params); }\n return null;\n}).apply(null, arguments)"),
            Atom::kIsDisplayed);
  EXPECT_EQ(RecogniseAtom("return (function isElementDisplayed(element) { return true; }).apply(null, arguments)"),
            Atom::kIsDisplayed);
  EXPECT_EQ(RecogniseAtom(std::string(5000, ' ') + "return this._.apply(null, arguments);"), Atom::kNone);
  // The questions WebDriver has no command for, as WebdriverIO 9 and
  // Selenium's Python and Java bindings send them; and look-alikes that are not.
  const std::pair<const char*, Atom> questions[] = {
      {"return (function isFocused(elem) {\n  return elem === document.activeElement;\n}).apply(null, arguments)",
       Atom::kIsFocused},
      {"return (function isElementClickable(elem) {\n  if (!elem.getBoundingClientRect || !elem.scrollIntoView) "
       "{\n    return false;\n  }\n}).apply(null, arguments)",
       Atom::kIsClickable},
      {"arguments[0].scrollIntoView(true); return arguments[0].getBoundingClientRect()", Atom::kScrollIntoView},
      {"var e = arguments[0]; e.scrollIntoView({behavior: 'instant', block: 'end', inline: 'nearest'}); "
       "var rect = e.getBoundingClientRect(); return {'x': rect.left, 'y': rect.top};",
       Atom::kScrollIntoView},
      {"return (function isFocused(elem) { return elem.hasFocus; }).apply(null, arguments)", Atom::kNone},
      {"return arguments[0].getBoundingClientRect()", Atom::kNone},
  };
  for (const auto& [script, atom] : questions) EXPECT_EQ(RecogniseAtom(script), atom) << script;
  const std::pair<const char*, Atom> files[] = {
      {"Z:\\usr\\lib\\python3\\dist-packages\\selenium\\webdriver\\remote\\isDisplayed.js", Atom::kIsDisplayed},
      {"Z:\\usr\\lib\\python3\\dist-packages\\selenium\\webdriver\\remote\\getAttribute.js", Atom::kGetAttribute},
  };
  for (const auto& [file, atom] : files) {
    std::ifstream in(file, std::ios::binary);
    if (!in) {
      std::printf("(no %s: python3-selenium is not installed)\n", file);
      continue;
    }
    std::stringstream text;
    text << in.rdbuf();
    EXPECT_EQ(RecogniseAtom("return (" + text.str() + ").apply(null, arguments);"), atom) << file;
  }
}

DriverOptions Fast() {
  DriverOptions options;
  options.limits.command = milliseconds(300);
  options.limits.scriptGrace = milliseconds(100);
  options.limits.implicitStep = milliseconds(10);
  options.reapInterval = milliseconds(20);
  return options;
}

struct Answer {
  int status;
  json body;
  std::string Error() const { return body["value"].is_object() ? body["value"].value("error", "") : ""; }
  std::string Message() const { return body["value"].is_object() ? body["value"].value("message", "") : ""; }
};

class DriverTest : public ::testing::Test {
 protected:
  void Make(DriverOptions options = Fast()) {
    driver = std::make_unique<Driver>(std::make_unique<FakeStarter>(shared), options);
  }
  void SetUp() override { Make(); }

  Answer Do(const std::string& method, const std::string& path, const std::string& body = "") {
    const HttpAnswer answer = driver->Handle(method, path, body);
    json parsed = json::parse(answer.body, nullptr, false);
    EXPECT_FALSE(parsed.is_discarded()) << answer.body;
    return {answer.status, parsed};
  }
  Answer DoJson(const std::string& method, const std::string& path, const json& body) {
    return Do(method, path, body.dump());
  }
  std::string NewSession(json always = {{"kw:app", "C:\\app.exe"}}) {
    const Answer answer = DoJson("POST", "/session", json{{"capabilities", {{"alwaysMatch", always}}}});
    EXPECT_EQ(answer.status, 200) << answer.body;
    return answer.body["value"].value("sessionId", "");
  }
  FakeApp& App(size_t i) {
    std::lock_guard<std::mutex> hold(shared->lock);
    return *shared->apps.at(i);
  }

  std::shared_ptr<FakeStarter::Shared> shared = std::make_shared<FakeStarter::Shared>();
  std::unique_ptr<Driver> driver;
};

Reply Value(json value) { return Reply{Reply::Kind::kValue, std::move(value), {}}; }
Reply Err(const std::string& error, const std::string& message = "") {
  return Reply{Reply::Kind::kError, nullptr, {error, message}};
}

TEST_F(DriverTest, NewSessionAnswersItsIdAndCapabilities) {
  const Answer status = Do("GET", "/status");
  EXPECT_EQ(status.status, 200);
  EXPECT_EQ(status.body["value"]["ready"], true);
  EXPECT_TRUE(status.body["value"]["message"].is_string());

  const Answer answer = DoJson("POST", "/session", json::parse(R"({"capabilities":{"firstMatch":[
      {"platformName":"windows","kw:app":"/apps/calc.exe","kw:args":["-a"],"timeouts":{"implicit":250}}]}})"));
  ASSERT_EQ(answer.status, 200);
  const json& value = answer.body["value"];
  EXPECT_EQ(value["sessionId"].get<std::string>().size(), 32u);
  EXPECT_EQ(value["capabilities"]["platformName"], "windows");
  EXPECT_EQ(value["capabilities"]["browserName"], "");
  EXPECT_EQ(value["capabilities"]["kw:pid"], 4242);
  EXPECT_EQ(value["capabilities"]["timeouts"]["implicit"], 250);
  EXPECT_EQ(shared->requests.at(0).app, "Z:\\apps\\calc.exe");
  EXPECT_EQ(shared->requests.at(0).arguments, std::vector<std::string>{"-a"});
  const std::string id = value["sessionId"];
  EXPECT_EQ(Do("GET", "/session/" + id + "/timeouts").body["value"],
            json::parse(R"({"implicit":250,"pageLoad":300000,"script":30000})"));

  const Answer missing = DoJson("POST", "/session", json{{"capabilities", {{"alwaysMatch", {{"kw:app", "C:\\missing.exe"}}}}}});
  EXPECT_EQ(missing.status, 500);
  EXPECT_EQ(missing.Error(), "session not created");
  EXPECT_NE(missing.Message().find("no program"), std::string::npos) << missing.Message();
}

TEST_F(DriverTest, RequestsThatAreWrongGetTheirErrors) {
  const std::string id = NewSession();
  const std::string s = "/session/" + id;
  struct Case {
    const char* method;
    std::string path;
    std::string body;
    int status;
    const char* error;
  };
  const Case table[] = {
      {"GET", "/nowhere", "", 404, "unknown command"},
      {"GET", s, "", 405, "unknown method"},
      {"GET", "/session/nosuch/title", "", 404, "invalid session id"},
      {"POST", "/session/nosuch/url", "{}", 404, "invalid session id"},
      {"POST", "/session/nosuch/element", "{bad json", 404, "invalid session id"},
      {"POST", s + "/url", R"({"url":"http://x"})", 500, "unsupported operation"},
      {"GET", s + "/cookie", "", 500, "unsupported operation"},
      {"POST", s + "/frame", R"({"id":null})", 500, "unsupported operation"},
      {"POST", s + "/print", "{}", 500, "unsupported operation"},
      {"POST", s + "/element", "{bad json", 400, "invalid argument"},
      {"POST", s + "/element", "[1,2]", 400, "invalid argument"},
      {"POST", s + "/element", std::string(300, '[') + std::string(300, ']'), 400, "invalid argument"},
      {"POST", s + "/element", "\"\xff\xfe\"", 400, "invalid argument"},
      {"POST", s + "/element", R"({"using":"css selector"})", 400, "invalid argument"},
      {"POST", s + "/element", R"({"using":1,"value":"x"})", 400, "invalid argument"},
      {"POST", s + "/element/e1/value", R"({"text":["a"]})", 400, "invalid argument"},
      {"POST", s + "/execute/sync", R"({"script":"return 1"})", 400, "invalid argument"},
      {"POST", s + "/execute/sync", R"({"script":5,"args":[]})", 400, "invalid argument"},
      {"POST", s + "/window/rect", R"({"width":-1})", 400, "invalid argument"},
      {"POST", s + "/window/rect", R"({"x":1.5})", 400, "invalid argument"},
      {"POST", s + "/window", R"({"name":"x"})", 400, "invalid argument"},
      {"POST", s + "/actions", R"({"actions":{}})", 400, "invalid argument"},
      {"POST", s + "/timeouts", R"({"implicit":"5"})", 400, "invalid argument"},
      {"POST", s + "/timeouts", R"({"script":-1})", 400, "invalid argument"},
  };
  for (const Case& c : table) {
    const Answer answer = Do(c.method, c.path, c.body);
    EXPECT_EQ(answer.status, c.status) << c.method << " " << c.path << " " << c.body;
    EXPECT_EQ(answer.Error(), c.error) << c.method << " " << c.path << " " << c.body;
  }
  EXPECT_TRUE(App(0).CallNames().empty()) << "a refused request reached the agent";
}

TEST_F(DriverTest, CommandsReachTheAgentAndItsErrorsTheClient) {
  const std::string id = NewSession();
  const std::string s = "/session/" + id;
  App(0).answer = [](const std::string& name, const json& params) {
    if (name == "getElementText") return Value("text of " + params.value("elementId", ""));
    if (name == "elementClick") return Err("element not interactable", "hidden");
    if (name == "getTitle") return Err("no such thing", "odd");
    return Value(params);
  };
  Answer answer = Do("GET", s + "/element/e7/text");
  EXPECT_EQ(answer.status, 200);
  EXPECT_EQ(answer.body, json::parse(R"({"value":"text of e7"})"));

  answer = Do("GET", s + "/element/e7/attribute/objectName");
  EXPECT_EQ(answer.body["value"], json::parse(R"({"elementId":"e7","name":"objectName"})"));
  answer = Do("GET", s + "/element/e7/css/color");
  EXPECT_EQ(answer.body["value"], json::parse(R"({"elementId":"e7","propertyName":"color"})"));
  answer = Do("POST", s + "/element/e7/value", R"({"text":"abc","sessionId":"old"})");
  EXPECT_EQ(answer.body["value"], json::parse(R"({"elementId":"e7","text":"abc"})"));

  answer = Do("POST", s + "/element/e7/click", "");
  EXPECT_EQ(answer.status, 400);
  EXPECT_EQ(answer.Error(), "element not interactable");
  EXPECT_EQ(answer.Message(), "hidden");
  answer = Do("GET", s + "/title");
  EXPECT_EQ(answer.status, 500);
  EXPECT_EQ(answer.Error(), "unknown error");

  answer = Do("POST", s + "/execute/sync", R"({"script":"return 1","args":[2]})");
  EXPECT_EQ(answer.body["value"], json::parse(R"({"script":"return 1","args":[2],"timeoutMs":30000})"));
  EXPECT_EQ(App(0).CallNames().back(), "executeScript");
}

TEST_F(DriverTest, SeleniumsAtomsBecomeTheCommandsTheyStandFor) {
  const std::string s = "/session/" + NewSession();
  App(0).answer = [](const std::string&, const json& params) { return Value(params); };
  json element = {{kElement, "e3"}};
  Answer answer = DoJson("POST", s + "/execute/sync",
                     json{{"script", "/* isDisplayed */return (function(){}).apply(null, arguments);"},
                          {"args", {element}}});
  EXPECT_EQ(answer.status, 200);
  EXPECT_EQ(App(0).CallNames().back(), "isElementDisplayed");
  EXPECT_EQ(answer.body["value"], json::parse(R"({"elementId":"e3"})"));
  answer = DoJson("POST", s + "/execute/sync",
              json{{"script", "/* getAttribute */return (function(){}).apply(null, arguments);"},
                   {"args", {element, "enabled"}}});
  EXPECT_EQ(App(0).CallNames().back(), "getElementAttribute");
  EXPECT_EQ(answer.body["value"], json::parse(R"({"elementId":"e3","name":"enabled"})"));
  // Without an element the atom is left a script.
  DoJson("POST", s + "/execute/sync",
     json{{"script", "/* isDisplayed */return (function(){}).apply(null, arguments);"}, {"args", {1}}});
  EXPECT_EQ(App(0).CallNames().back(), "executeScript");
  // WebdriverIO's and Selenium's questions WebDriver has no command for.
  const std::pair<const char*, const char*> questions[] = {
      {"return (function isFocused(elem) { return elem === document.activeElement; }).apply(null, arguments)",
       "isElementFocused"},
      {"return (function isElementClickable(elem) { return true; }).apply(null, arguments)", "isElementClickable"},
      {"arguments[0].scrollIntoView(true); return arguments[0].getBoundingClientRect()", "scrollElementIntoView"},
  };
  for (const auto& [script, command] : questions) {
    answer = DoJson("POST", s + "/execute/sync", json{{"script", script}, {"args", json::array({element})}});
    EXPECT_EQ(App(0).CallNames().back(), command);
    EXPECT_EQ(answer.body["value"], json::parse(R"({"elementId":"e3"})")) << command;
  }
}

TEST_F(DriverTest, FindsRepeatUntilTheImplicitWaitIsOver) {
  const std::string s = "/session/" + NewSession();
  std::atomic<int> tries{0};
  App(0).answer = [&](const std::string& name, const json&) {
    if (++tries < 4) return name == "findElements" ? Value(json::array()) : Err("no such element", "none yet");
    return name == "findElements" ? Value(json::array({{{kElement, "e1"}}})) : Value({{kElement, "e1"}});
  };
  const json find = {{"using", "css selector"}, {"value", "#x"}};
  // No implicit wait: one try.
  Answer answer = DoJson("POST", s + "/element", find);
  EXPECT_EQ(answer.status, 404);
  EXPECT_EQ(answer.Error(), "no such element");
  EXPECT_EQ(tries, 1);

  ASSERT_EQ(Do("POST", s + "/timeouts", R"({"implicit":2000})").status, 200);
  answer = DoJson("POST", s + "/element", find);
  EXPECT_EQ(answer.status, 200);
  EXPECT_EQ(answer.body["value"][kElement], "e1");
  EXPECT_EQ(tries, 4);

  tries = 0;
  answer = DoJson("POST", s + "/elements", find);
  EXPECT_EQ(answer.body["value"].size(), 1u);
  EXPECT_EQ(tries, 4);

  // A short wait runs out: the last answer stands.
  tries = -1000;
  ASSERT_EQ(Do("POST", s + "/timeouts", R"({"type":"implicit","ms":100})").status, 200);
  const auto start = std::chrono::steady_clock::now();
  answer = DoJson("POST", s + "/element/e1/element", find);
  const auto took = std::chrono::steady_clock::now() - start;
  EXPECT_EQ(answer.Error(), "no such element");
  EXPECT_GE(took, milliseconds(80));
  EXPECT_LT(took, milliseconds(1000));
}

TEST_F(DriverTest, ACommandWithoutAnswerTimesOutAndTheSessionGoesOn) {
  const std::string s = "/session/" + NewSession();
  std::atomic<bool> hang{true};
  App(0).answer = [&](const std::string&, const json&) {
    return hang ? Reply{Reply::Kind::kTimeout, nullptr, {}} : Value("fine");
  };
  Answer answer = Do("GET", s + "/title");
  EXPECT_EQ(answer.status, 500);
  EXPECT_EQ(answer.Error(), "timeout");
  ASSERT_EQ(Do("POST", s + "/timeouts", R"({"script":50})").status, 200);
  answer = Do("POST", s + "/execute/sync", R"({"script":"while(1);","args":[]})");
  EXPECT_EQ(answer.Error(), "script timeout");
  hang = false;
  answer = Do("GET", s + "/title");
  EXPECT_EQ(answer.status, 200);
  EXPECT_EQ(answer.body["value"], "fine");
}

TEST_F(DriverTest, AHungApplicationHoldsUpItsOwnSessionOnly) {
  DriverOptions options = Fast();
  options.limits.command = milliseconds(3000);
  Make(options);
  const std::string hung = "/session/" + NewSession();
  const std::string other = "/session/" + NewSession();
  App(0).answer = [](const std::string&, const json&) { return Reply{Reply::Kind::kTimeout, nullptr, {}}; };
  App(1).answer = [](const std::string&, const json&) { return Value("quick"); };
  std::thread waiting([&] { Do("GET", hung + "/title"); });
  std::this_thread::sleep_for(milliseconds(100));
  const auto start = std::chrono::steady_clock::now();
  for (int i = 0; i < 5; ++i) EXPECT_EQ(Do("GET", other + "/title").body["value"], "quick");
  EXPECT_EQ(Do("GET", "/status").status, 200);
  EXPECT_LT(std::chrono::steady_clock::now() - start, milliseconds(1000));
  // Deleting the hung session cancels its command at once.
  const auto deleting = std::chrono::steady_clock::now();
  EXPECT_EQ(Do("DELETE", hung).status, 200);
  waiting.join();
  EXPECT_LT(std::chrono::steady_clock::now() - deleting, milliseconds(2000));
  EXPECT_EQ(App(0).ended, 1);
  EXPECT_EQ(App(1).ended, 0);
}

TEST_F(DriverTest, AnApplicationThatEndsEndsItsSessionWithItsLastWords) {
  const std::string first = NewSession();
  const std::string second = NewSession();
  App(0).answer = [](const std::string&, const json&) {
    return Reply{Reply::Kind::kGone, nullptr, {"", "the application ended (exit code 0xC0000005): access violation"}};
  };
  App(1).answer = [](const std::string&, const json&) { return Value(1); };
  Answer answer = Do("GET", "/session/" + first + "/title");
  EXPECT_EQ(answer.status, 404);
  EXPECT_EQ(answer.Error(), "invalid session id");
  EXPECT_NE(answer.Message().find("access violation"), std::string::npos) << answer.Message();
  answer = Do("GET", "/session/" + first + "/window");
  EXPECT_EQ(answer.Error(), "invalid session id");
  EXPECT_NE(answer.Message().find("access violation"), std::string::npos) << answer.Message();
  EXPECT_EQ(App(0).ended, 1);
  EXPECT_EQ(Do("GET", "/session/" + second + "/title").status, 200);

  // Between commands: the reaper notices.
  App(1).lastWords = "crashed in QWidget::show";
  App(1).alive = false;
  std::this_thread::sleep_for(milliseconds(200));
  answer = Do("GET", "/session/" + second + "/title");
  EXPECT_EQ(answer.Error(), "invalid session id");
  EXPECT_NE(answer.Message().find("QWidget::show"), std::string::npos) << answer.Message();
  EXPECT_EQ(App(1).ended, 1);
  EXPECT_EQ(driver->SessionCount(), 0u);
}

TEST_F(DriverTest, SessionsEndByDeleteIdlenessLastWindowAndShutdown) {
  const std::string deleted = NewSession();
  EXPECT_EQ(Do("DELETE", "/session/" + deleted).status, 200);
  EXPECT_EQ(App(0).ended, 1);
  EXPECT_EQ(Do("DELETE", "/session/" + deleted).Error(), "invalid session id");

  const std::string idle = NewSession({{"kw:app", "C:\\a.exe"}, {"kw:newCommandTimeout", 0.2}});
  EXPECT_EQ(Do("GET", "/session/" + idle + "/title").status, 200);
  std::this_thread::sleep_for(milliseconds(500));
  const Answer answer = Do("GET", "/session/" + idle + "/title");
  EXPECT_EQ(answer.Error(), "invalid session id");
  EXPECT_NE(answer.Message().find("newCommandTimeout"), std::string::npos) << answer.Message();
  EXPECT_EQ(App(1).ended, 1);

  const std::string closing = NewSession({{"kw:attach", "app.exe"}});
  App(2).answer = [](const std::string&, const json&) { return Value(json::array()); };
  EXPECT_EQ(Do("DELETE", "/session/" + closing + "/window").status, 200);
  EXPECT_EQ(Do("GET", "/session/" + closing + "/title").Error(), "invalid session id");
  EXPECT_EQ(App(2).ended, 1);

  NewSession();
  NewSession();
  driver->EndAll();
  EXPECT_EQ(App(3).ended, 1);
  EXPECT_EQ(App(4).ended, 1);
  EXPECT_EQ(Do("GET", "/status").body["value"]["ready"], false);
  EXPECT_EQ(DoJson("POST", "/session", json{{"capabilities", {{"alwaysMatch", {{"kw:app", "C:\\a.exe"}}}}}}).Error(),
            "session not created");
}

TEST_F(DriverTest, MaxSessionsIsKept) {
  DriverOptions options = Fast();
  options.maxSessions = 2;
  Make(options);
  const std::string first = NewSession();
  NewSession();
  EXPECT_EQ(Do("GET", "/status").body["value"]["ready"], false);
  const Answer refused = DoJson("POST", "/session", json{{"capabilities", {{"alwaysMatch", {{"kw:app", "C:\\a.exe"}}}}}});
  EXPECT_EQ(refused.status, 500);
  EXPECT_EQ(refused.Error(), "session not created");
  Do("DELETE", "/session/" + first);
  EXPECT_EQ(Do("GET", "/status").body["value"]["ready"], true);
  NewSession();
}

}  // namespace
}  // namespace kwdriver
