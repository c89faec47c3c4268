// Plays a driver against an application: starts it with the agent loaded
// (agentkit's launcher), opens a driver session and sends the commands of a
// scenario file, one JSON object a line:
//   {"name": "executeScript", "params": {...}, "save": "slider", "expect": 33}
//   {"name": "getAlertText", "expectError": "no such alert"}
//   {"name": "getAlertText", "until": "Proceed?"}     repeated (up to 5 s) until it answers that
//   {"name": "getAlertText", "expectContains": "Message boxes"}
//   {"sleep": 200}
// A string "$name" (or "$name.key") anywhere in params or an expected
// value stands for the value saved under that name (or its member). Each command and its answer are printed; the exit status is 1
// when an answer is not the one expected, 2 when the session cannot start.
//   agent_session_client APP.exe SCENARIO.jsonl [APP ARGS...]
#include <windows.h>

#include <QtCore/QByteArray>
#include <QtCore/QFile>
#include <QtCore/QString>

#include <nlohmann/json.hpp>

#include <cstdio>
#include <map>
#include <string>

#include "agentkit/AgentPipe.h"
#include "agentkit/Launcher.h"
#include "agentkit/Protocol.h"

namespace {

using Json = nlohmann::json;

std::map<std::string, Json> g_saved;

Json Substituted(const Json& value) {
  if (value.is_string()) {
    const std::string& text = value.get_ref<const std::string&>();
    if (text.size() < 2 || text[0] != '$') return value;
    const std::size_t dot = text.find('.');
    const std::string name = text.substr(1, dot == std::string::npos ? std::string::npos : dot - 1);
    if (!g_saved.count(name)) return value;
    if (dot == std::string::npos) return g_saved[name];
    return g_saved[name].value(text.substr(dot + 1), Json());
  }
  if (!value.is_structured()) return value;
  Json out = value;
  for (auto entry = out.begin(); entry != out.end(); ++entry) *entry = Substituted(*entry);
  return out;
}

bool Send(HANDLE pipe, const QByteArray& message) { return kwagentkit::WriteMessage(pipe, message); }

// The answer to one command: {"value": ...} or {"error": ..., "message": ...}.
Json Ask(HANDLE pipe, int id, const std::string& name, const Json& params) {
  const Json command = {{"type", "command"}, {"id", id}, {"name", name}, {"params", params}};
  if (!Send(pipe, QByteArray(command.dump().c_str()))) return {{"error", "the pipe broke"}};
  for (QByteArray bytes; kwagentkit::ReadMessage(pipe, &bytes);) {
    const Json answer = Json::parse(bytes.constData(), bytes.constData() + bytes.size(), nullptr, false);
    if (!answer.is_object() || answer.value("type", "") != "answer") continue;
    if (answer.contains("error")) return {{"error", answer["error"]}, {"message", answer.value("message", "")}};
    return {{"value", answer["value"]}};
  }
  return {{"error", "the pipe broke"}};
}

}  // namespace

int wmain(int argc, wchar_t** argv) {
  if (argc < 3) {
    std::fprintf(stderr, "usage: agent_session_client APP.exe SCENARIO.jsonl [APP ARGS...]\n");
    return 2;
  }
  QFile file(QString::fromWCharArray(argv[2]));
  if (!file.open(QIODevice::ReadOnly)) {
    std::fprintf(stderr, "cannot read the scenario\n");
    return 2;
  }
  kwagentkit::LaunchRequest request;
  request.program = argv[1];
  for (int i = 3; i < argc; ++i) request.arguments.push_back(argv[i]);
  kwagentkit::AgentConnection connection;
  const std::string failure = kwagentkit::LaunchWithAgent(request, &connection);
  if (!failure.empty()) {
    std::fprintf(stderr, "cannot start: %s\n", failure.c_str());
    kwagentkit::CloseConnection(&connection);
    return 2;
  }
  kwagentkit::Opening opening;
  opening.job = kwagentkit::Job::Session;
  Send(connection.pipe, kwagentkit::OpeningMessage(opening));
  QByteArray ready;
  kwagentkit::ReadMessage(connection.pipe, &ready);
  std::printf("%s\n", ready.constData());
  int status = 0, id = 0;
  while (!file.atEnd()) {
    const QByteArray line = file.readLine().trimmed();
    if (line.isEmpty() || line.startsWith("//")) continue;
    const Json step = Json::parse(line.constData(), line.constData() + line.size());
    if (step.contains("sleep")) {
      Sleep(step["sleep"].get<DWORD>());
      continue;
    }
    const std::string name = step["name"];
    const Json params = Substituted(step.value("params", Json::object()));
    Json answer = Ask(connection.pipe, ++id, name, params);
    for (int tries = 0; step.contains("until") && answer.value("value", Json()) != step["until"] && tries < 50; ++tries) {
      Sleep(100);
      answer = Ask(connection.pipe, ++id, name, params);
    }
    std::printf("%s %s\n  -> %s\n", name.c_str(), params.dump().c_str(), answer.dump().c_str());
    if (step.contains("save") && answer.contains("value")) g_saved[step["save"]] = answer["value"];
    bool expected = true;
    if (step.contains("expect")) expected = answer.value("value", Json("(an error)")) == Substituted(step["expect"]);
    if (step.contains("expectContains")) {
      const Json value = answer.value("value", Json());
      expected = value.is_string() && value.get<std::string>().find(step["expectContains"].get<std::string>()) != std::string::npos;
    }
    if (step.contains("until")) expected = expected && answer.value("value", Json()) == step["until"];
    if (step.contains("expectError")) expected = answer.value("error", Json()) == step["expectError"];
    if (!step.contains("expect") && !step.contains("expectError") && !step.contains("until") &&
        !step.contains("expectContains"))
      expected = !answer.contains("error");
    if (!expected) {
      std::printf("  !! not as expected\n");
      status = 1;
    }
    std::fflush(stdout);
  }
  Send(connection.pipe, "{\"type\":\"quit\"}");
  kwagentkit::CloseConnection(&connection);
  std::printf(status == 0 ? "all as expected\n" : "FAILED\n");
  return status;
}
