// The protocol between a loader and its agent: every opening a loader
// writes reads back the same, what an agent refuses and why, and the
// messages either side sends, texts kept byte for byte.
#include <gtest/gtest.h>

#include "agentkit/Protocol.h"

namespace {

using namespace kwagentkit;

TEST(Opening, EachJobReadsBackAsWritten) {
  Opening run;
  run.job = Job::Run;
  run.script = "app.echo(\"h\\u00e9\")\n// \xc3\xa9";
  run.path = "C:\\scripts\\a.js";
  run.folder = "C:\\work";
  run.timeoutSeconds = 30;
  Opening tree;
  tree.job = Job::Tree;
  tree.json = true;
  tree.maxItems = 7;
  Opening publish;
  publish.job = Job::Publish;
  Opening session;
  session.job = Job::Session;
  session.maxItems = 1000;
  for (const Opening& sent : {run, tree, publish, session}) {
    Opening read;
    read.version = 0;
    EXPECT_EQ(ParseOpening(OpeningMessage(sent), &read), "");
    EXPECT_EQ(read.version, kProtocolVersion);
    EXPECT_EQ(read.job, sent.job);
    EXPECT_EQ(read.script, sent.script);
    EXPECT_EQ(read.path, sent.path);
    EXPECT_EQ(read.folder, sent.folder);
    EXPECT_EQ(read.timeoutSeconds, sent.timeoutSeconds);
    EXPECT_EQ(read.json, sent.json);
    EXPECT_EQ(read.maxItems, sent.maxItems);
  }
}

TEST(Opening, TheWireFormIsTheDocumentedOne) {
  Opening session;
  session.job = Job::Session;
  session.maxItems = 5;
  EXPECT_EQ(Json::parse(OpeningMessage(session)),
            Json::parse(R"({"v": 2, "type": "session", "maxItems": 5})"));
}

struct Refusal {
  const char* opening;
  const char* why;
};

TEST(Opening, WhatTheAgentCannotServeIsRefusedWithAReason) {
  const Refusal rows[] = {
      {"run", "the loader's opening is not a JSON object"},
      {"[1]", "the loader's opening is not a JSON object"},
      {R"({"type": "run"})", "the loader's opening has no protocol version: the agent speaks version 2"},
      {R"({"v": "1", "type": "run"})", "the loader's opening has no protocol version: the agent speaks version 2"},
      {R"({"v": 1, "type": "run"})",
       "the loader speaks protocol version 1, this agent version 2: use a kwagent.dll of the loader's own build"},
      {R"({"v": 3, "type": "tree"})",
       "the loader speaks protocol version 3, this agent version 2: use a kwagent.dll of the loader's own build"},
      {R"({"v": 2, "type": "format"})", "the agent has no job \"format\""},
      {R"({"v": 2})", "the agent has no job \"\""},
      {R"({"v": 2, "type": "tree", "maxItems": -1})", "the loader's opening has a negative limit"},
  };
  for (const Refusal& row : rows) {
    SCOPED_TRACE(row.opening);
    Opening opening;
    EXPECT_EQ(ParseOpening(row.opening, &opening), row.why);
  }
}

TEST(Opening, FieldsOfTheWrongTypeReadAsAbsent) {
  Opening opening;
  EXPECT_EQ(ParseOpening(R"({"v": 2, "type": "run", "script": 5, "timeout": "30", "json": 1})", &opening), "");
  EXPECT_EQ(opening.script, "");
  EXPECT_EQ(opening.timeoutSeconds, 0);
  EXPECT_FALSE(opening.json);
}

struct Sent {
  std::string bytes;
  MessageType type;
  std::string text;
  int status;
};

TEST(Messages, EachReadsBackWithItsFields) {
  const std::string withNul("one\0two", 7);
  const Sent rows[] = {
      {RefusedMessage(3, "another script is attached"), MessageType::Refused, "another script is attached", 3},
      {OutMessage(withNul), MessageType::Out, withNul, 0},
      {ErrMessage("x.js:1:1: script error"), MessageType::Err, "x.js:1:1: script error", 0},
      {BeatMessage(), MessageType::Beat, "", 0},
      {EndMessage(4), MessageType::End, "", 4},
      {PubMessage(), MessageType::Pub, "", 0},
      {StopMessage(), MessageType::Stop, "", 0},
      {ExitMessage(), MessageType::Exit, "", 0},
      {CrashMessage("exception 0xc0000005"), MessageType::Crash, "exception 0xc0000005", 0},
      {ReadyMessage(42, nullptr), MessageType::Ready, "", 0},
      {QuitMessage(), MessageType::Quit, "", 0},
      {R"({"type": "later"})", MessageType::Unknown, "", 0},
  };
  for (const Sent& row : rows) {
    SCOPED_TRACE(row.bytes);
    Message message;
    ASSERT_TRUE(ParseMessage(row.bytes, &message));
    EXPECT_EQ(message.type, row.type);
    EXPECT_EQ(message.text, row.text);
    EXPECT_EQ(message.status, row.status);
  }
}

TEST(Messages, WhatIsNoMessageIsNotRead) {
  for (const char* bytes : {"", "out hello", "{}", R"({"type": 1})", "[]"}) {
    SCOPED_TRACE(bytes);
    Message message;
    EXPECT_FALSE(ParseMessage(bytes, &message));
  }
}

TEST(Messages, ChecksAndCommandsCarryTheirBody) {
  Message message;
  ASSERT_TRUE(ParseMessage(ChecksMessage({{"script", "a.js"}, {"records", Json::array({{{"passed", true}}})}}), &message));
  EXPECT_EQ(message.type, MessageType::Checks);
  EXPECT_EQ(message.body["script"], "a.js");
  EXPECT_EQ(message.body["records"][0]["passed"], true);
  ASSERT_TRUE(ParseMessage(CommandMessage(7, "findElement", {{"using", "css selector"}}), &message));
  EXPECT_EQ(message.type, MessageType::Command);
  EXPECT_EQ(message.body["id"], 7);
  EXPECT_EQ(message.body["name"], "findElement");
  EXPECT_EQ(message.body["params"]["using"], "css selector");
  HWND window = reinterpret_cast<HWND>(static_cast<uintptr_t>(0x1234567890ull));
  ASSERT_TRUE(ParseMessage(ReadyMessage(42, window), &message));
  EXPECT_EQ(message.body["pid"], 42);
  EXPECT_EQ(ReadyWindow(message), window);
  EXPECT_EQ(ReadyWake(message), 0u);  // an agent without the routine: the window's message alone
  ASSERT_TRUE(ParseMessage(ReadyMessage(42, window, 0xFEDCBA9876543210ull), &message));
  EXPECT_EQ(ReadyWake(message), 0xFEDCBA9876543210ull);
  ASSERT_TRUE(ParseMessage(R"({"type": "ready", "pid": 1, "window": "1234", "wake": -5})", &message));
  EXPECT_EQ(ReadyWindow(message), nullptr);
  EXPECT_EQ(ReadyWake(message), 0u);
}

TEST(Messages, InvalidUtf8IsReplacedNotLost) {
  Message message;
  ASSERT_TRUE(ParseMessage(OutMessage("a\xff" "b"), &message));
  EXPECT_EQ(message.text, "a\xef\xbf\xbd" "b");
}

}  // namespace
