// The driver's pieces that need no application: performActions' sequences
// as the agent reads them (what it refuses, what it keeps), and values
// crossing between JSON and a kept JScript engine, both ways.
#include <windows.h>

#include <gtest/gtest.h>

#include "agent/Actions.h"
#include "agentkit/QtText.h"
#include "kwscript/ScriptHost.h"
#include "kwscript/ValueText.h"

namespace {

using kwagent::CommandError;
using kwagent::Json;

// ---- Action sequences

// The error code and message ParseActions gives for `params`, or "" when it takes them.
std::string Refusal(const Json& params, const kwagent::KnownSources& known = {}) {
  kwagent::KnownSources met;
  try {
    kwagent::ParseActions(params, known, &met);
  } catch (const CommandError& error) {
    return error.code + ": " + error.message.toStdString();
  }
  return "";
}

Json OneSource(const char* type, Json actions, Json parameters = nullptr) {
  Json source = {{"type", type}, {"id", "s"}, {"actions", actions}};
  if (!parameters.is_null()) source["parameters"] = parameters;
  return {{"actions", Json::array({source})}};
}

// Qt's texts and the protocol's UTF-8, both ways, NULs and all.
TEST(ProtocolTexts, Utf8RoundTripsNulsAndNonAscii) {
  const QString text = QString::fromUtf8("Zo\xc3\xab") + QChar(0) + "x";
  EXPECT_EQ(kwagentkit::Utf8(text), std::string("Zo\xc3\xab\0x", 6));
  EXPECT_EQ(kwagentkit::FromUtf8(kwagentkit::Utf8(text)), text);
}

TEST(ActionSequences, RefusesWhatIsNoSequence) {
  const struct {
    const char* what;
    Json params;
    const char* says;
  } kCases[] = {
      {"no actions", Json::object(), "\"actions\" must be an array"},
      {"actions not an array", {{"actions", 3}}, "\"actions\" must be an array"},
      {"a source that is no object", {{"actions", {1}}}, "must be an object"},
      {"a source without id", {{"actions", {{{"type", "key"}, {"actions", Json::array()}}}}}, "needs a string \"id\""},
      {"an unknown source type", OneSource("joystick", Json::array()), "\"type\" must be"},
      {"source actions not an array", OneSource("key", Json::object()), "\"actions\" must be an array"},
      {"an action that is no object", OneSource("key", {7}), "must be an object"},
      {"an action without type", OneSource("key", {{{"value", "a"}}}), "needs a \"type\""},
      {"a key action on a pointer", OneSource("pointer", {{{"type", "keyDown"}, {"value", "a"}}}), "has no action"},
      {"a pointer action on a key", OneSource("key", {{{"type", "pointerDown"}, {"button", 0}}}), "has no action"},
      {"anything but pause on none", OneSource("none", {{{"type", "keyUp"}, {"value", "a"}}}), "has no action"},
      {"a scroll on a pointer", OneSource("pointer", {{{"type", "scroll"}}}), "has no action"},
      {"a key of two characters", OneSource("key", {{{"type", "keyDown"}, {"value", "ab"}}}), "must be one key"},
      {"a key that is no string", OneSource("key", {{{"type", "keyDown"}, {"value", 65}}}), "must be a string"},
      {"an empty key", OneSource("key", {{{"type", "keyUp"}, {"value", ""}}}), "must be one key"},
      {"a negative pause", OneSource("none", {{{"type", "pause"}, {"duration", -1}}}), "at least 0"},
      {"a fractional pause", OneSource("none", {{{"type", "pause"}, {"duration", 1.5}}}), "whole number"},
      {"a press without button", OneSource("pointer", {{{"type", "pointerDown"}}}), "needs \"button\""},
      {"a negative button", OneSource("pointer", {{{"type", "pointerUp"}, {"button", -1}}}), "at least 0"},
      {"a move's x as text", OneSource("pointer", {{{"type", "pointerMove"}, {"x", "3"}}}), "\"x\" must be a number"},
      {"a move from nowhere", OneSource("pointer", {{{"type", "pointerMove"}, {"origin", "page"}}}), "\"origin\""},
      {"a scroll from the pointer",
       OneSource("wheel", {{{"type", "scroll"}, {"origin", "pointer"}, {"x", 0}, {"y", 0}, {"deltaX", 0}, {"deltaY", 5}}}),
       "\"origin\""},
      {"a scroll without delta", OneSource("wheel", {{{"type", "scroll"}, {"x", 0}, {"y", 0}, {"deltaX", 0}}}),
       "needs \"deltaY\""},
      {"an unknown pointer type", OneSource("pointer", Json::array(), {{"pointerType", "finger"}}), "pointerType"},
      {"the same id twice",
       {{"actions",
         {{{"type", "key"}, {"id", "a"}, {"actions", Json::array()}},
          {{"type", "none"}, {"id", "a"}, {"actions", Json::array()}}}}},
       "appears twice"},
  };
  for (const auto& test : kCases) {
    const std::string refusal = Refusal(test.params);
    EXPECT_EQ(refusal.rfind("invalid argument: ", 0), 0u) << test.what << ": " << refusal;
    EXPECT_NE(refusal.find(test.says), std::string::npos) << test.what << ": " << refusal;
  }
}

TEST(ActionSequences, ASourceKeepsItsTypeForTheSession) {
  const kwagent::KnownSources known = {{"s", {kwagent::SourceType::kKey, ""}}};
  EXPECT_EQ(Refusal(OneSource("key", Json::array()), known), "");
  EXPECT_NE(Refusal(OneSource("pointer", Json::array()), known).find("another type"), std::string::npos);
  const kwagent::KnownSources mouse = {{"s", {kwagent::SourceType::kPointer, "mouse"}}};
  EXPECT_EQ(Refusal(OneSource("pointer", Json::array()), mouse), "");
  EXPECT_NE(Refusal(OneSource("pointer", Json::array(), {{"pointerType", "pen"}}), mouse).find("another type"),
            std::string::npos);
}

TEST(ActionSequences, KeepsWhatEachActionSays) {
  const Json element = {{kwagent::kElementKey, "o1"}};
  const Json params = {
      {"actions",
       {{{"type", "pointer"},
         {"id", "mouse"},
         {"actions",
          {{{"type", "pointerMove"}, {"origin", element}, {"x", 3.5}, {"y", -2}, {"duration", 100}},
           {{"type", "pointerDown"}, {"button", 2}},
           {{"type", "pause"}}}}},
        {{"type", "key"}, {"id", "keys"}, {"actions", {{{"type", "keyDown"}, {"value", "\xee\x80\x88"}}}}},
        {{"type", "wheel"},
         {"id", "wheel"},
         {"actions", {{{"type", "scroll"}, {"x", 1}, {"y", 2}, {"deltaX", -3}, {"deltaY", 40}}}}}}}};
  kwagent::KnownSources met;
  const auto sources = kwagent::ParseActions(params, {}, &met);
  ASSERT_EQ(sources.size(), 3u);
  ASSERT_EQ(sources[0].actions.size(), 3u);
  const kwagent::Action& move = sources[0].actions[0];
  EXPECT_EQ(move.kind, kwagent::Action::kPointerMove);
  EXPECT_EQ(move.origin, element);
  EXPECT_DOUBLE_EQ(move.x, 3.5);
  EXPECT_DOUBLE_EQ(move.y, -2);
  EXPECT_EQ(move.duration, 100);
  EXPECT_EQ(sources[0].actions[1].button, 2);
  EXPECT_EQ(sources[0].actions[2].duration, -1);
  EXPECT_EQ(sources[1].actions[0].value, QString(QChar(0xE008)));
  const kwagent::Action& scroll = sources[2].actions[0];
  EXPECT_EQ(scroll.origin, "viewport");
  EXPECT_EQ(scroll.deltaX, -3);
  EXPECT_EQ(scroll.deltaY, 40);
  EXPECT_EQ(met.at("mouse").pointerType, "mouse");
  EXPECT_EQ(met.at("wheel").type, kwagent::SourceType::kWheel);
}

// ---- Values between JSON and a kept engine

class ScriptValues : public ::testing::Test {
 protected:
  static void SetUpTestSuite() { CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED); }
  void SetUp() override {
    m_functions.reset(new kwscript::ScriptFunctions(nullptr));
    ASSERT_EQ(m_functions->failure().toStdString(), "");
    kwscript::ScriptFunctions* functions = m_functions.get();
    m_hooks.newContainer = [functions](bool array) { return array ? functions->NewArray() : functions->NewObject(); };
    m_hooks.put = [functions](IDispatch* c, const VARIANT& k, const VARIANT& v) { return functions->Put(c, k, v); };
    m_hooks.isArray = [functions](IDispatch* object) { return functions->IsArray(object); };
  }
  void TearDown() override { m_functions.reset(); }

  // What `body` returns as JSON, given `args`; "error: ..." when it fails.
  Json Run(const std::wstring& body, const Json& args = Json::array()) {
    std::vector<VARIANT> values(args.size());
    for (std::size_t i = 0; i < args.size(); ++i) {
      const QString why = kwscript::VariantOfJson(args[i], m_hooks, &values[i]);
      if (!why.isEmpty()) return "error: " + why.toStdString();
    }
    VARIANT result;
    QString error;
    const bool ran = m_functions->Call(L"script", body, values, &result, &error);
    for (VARIANT& value : values) VariantClear(&value);
    if (!ran) return "error: " + error.toStdString();
    Json json;
    const QString why = kwscript::JsonOfVariant(&result, m_hooks, &json);
    VariantClear(&result);
    return why.isEmpty() ? json : Json("error: " + why.toStdString());
  }

  std::unique_ptr<kwscript::ScriptFunctions> m_functions;
  kwscript::JsonValueHooks m_hooks;
};

TEST_F(ScriptValues, ArgumentsComeBackAsTheyWent) {
  const Json kValues[] = {
      nullptr, true, false, 0, 42, -7, 2147483647, 4294967296LL, 1.5, -0.25, "", "text", "\xc3\xa9\xe2\x82\xac",
      Json::array(), Json::array({1, "two", nullptr, Json::array({3})}), Json::object(),
      Json({{"a", 1}, {"b", {{"c", Json::array({true})}}}}),
  };
  for (const Json& value : kValues) EXPECT_EQ(Run(L"return arguments[0];", Json::array({value})), value) << value;
}

TEST_F(ScriptValues, ScriptValuesBecomeJson) {
  const struct {
    const wchar_t* body;
    Json expected;
  } kCases[] = {
      {L"return 6 * 7;", 42},
      {L"return 0.1 + 0.2;", 0.30000000000000004},
      {L"return 1 / 0;", nullptr},
      {L"return NaN;", nullptr},
      {L"return undefined;", nullptr},
      {L"", nullptr},
      {L"return 'a' + 'b';", "ab"},
      {L"return [1, [2, 3], {x: 'y'}];", Json::array({1, Json::array({2, 3}), {{"x", "y"}}})},
      {L"var a = []; a[2] = 5; return a;", Json::array({nullptr, nullptr, 5})},
      {L"return {n: null, u: undefined, f: false};", {{"n", nullptr}, {"u", nullptr}, {"f", false}}},
      {L"return arguments.length;", 0},
      {L"function twice(x) { return 2 * x; }\nreturn twice(21);", 42},
  };
  for (const auto& test : kCases)
    EXPECT_EQ(Run(test.body), test.expected) << QString::fromWCharArray(test.body).toStdString();
}

TEST_F(ScriptValues, FailuresSayWhatAndWhere) {
  const struct {
    const wchar_t* body;
    const char* says;
  } kCases[] = {
      {L"throw new Error('boom');", "script:1:"},
      {L"var x = 1;\nthrow new Error('boom');", "boom"},
      {L"var x = 1;\n\nnoSuchFunction();", "script:3:"},
      {L"return (;", "script:1:"},
      {L"var o = {}; o.self = o; return o;", "cyclic"},
  };
  for (const auto& test : kCases) {
    const Json outcome = Run(test.body);
    ASSERT_TRUE(outcome.is_string()) << outcome;
    const std::string text = outcome.get<std::string>();
    EXPECT_EQ(text.rfind("error: ", 0), 0u) << text;
    EXPECT_NE(text.find(test.says), std::string::npos) << text;
  }
}

TEST_F(ScriptValues, GlobalsLastBetweenCallsAndCallbacksAnswerOnce) {
  EXPECT_EQ(Run(L"counter = 41;"), nullptr);
  EXPECT_EQ(Run(L"return ++counter;"), 42);
  IDispatch* callback = m_functions->NewCallback();
  ASSERT_NE(callback, nullptr);
  VARIANT arg;
  V_VT(&arg) = VT_DISPATCH;
  V_DISPATCH(&arg) = callback;
  VARIANT result, answer;
  QString error;
  ASSERT_TRUE(m_functions->Call(L"script", L"var done = arguments[0]; setTimeout(function () { done('late'); done('twice'); }, 0);",
                                {arg}, &result, &error))
      << error.toStdString();
  VariantClear(&result);
  EXPECT_FALSE(m_functions->Answered(&answer));
  bool pending = true;
  ASSERT_TRUE(m_functions->RunDueTimers(&pending, &error)) << error.toStdString();
  EXPECT_FALSE(pending);
  ASSERT_TRUE(m_functions->Answered(&answer));
  Json json;
  kwscript::JsonOfVariant(&answer, m_hooks, &json);
  EXPECT_EQ(json, "late");
  VariantClear(&answer);
  VariantClear(&arg);
}

}  // namespace
