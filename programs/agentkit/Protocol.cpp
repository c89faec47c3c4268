#include "agentkit/Protocol.h"

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <utility>

namespace kwagentkit {

namespace {

const std::pair<Job, const char*> kJobNames[] = {
    {Job::Run, "run"}, {Job::Tree, "tree"}, {Job::Publish, "publish"}, {Job::Session, "session"}};

const std::pair<MessageType, const char*> kTypeNames[] = {
    {MessageType::Refused, "refused"}, {MessageType::Out, "out"},         {MessageType::Err, "err"},
    {MessageType::Beat, "beat"},       {MessageType::Checks, "checks"},   {MessageType::End, "end"},
    {MessageType::Pub, "pub"},         {MessageType::Stop, "stop"},       {MessageType::Exit, "exit"},
    {MessageType::Crash, "crash"},     {MessageType::Ready, "ready"},     {MessageType::Command, "command"},
    {MessageType::Answer, "answer"},   {MessageType::Quit, "quit"},
};

const char* JobName(Job job) {
  for (const auto& [value, name] : kJobNames)
    if (value == job) return name;
  return "run";
}

Json Parsed(const std::string& bytes) {
  Json parsed = Json::parse(bytes.begin(), bytes.end(), nullptr, false);
  return parsed.is_object() ? parsed : Json();
}

// The field `key` of `object` when it has the JSON type `type`, else `fallback`.
template <typename T>
T Field(const Json& object, const char* key, Json::value_t type, T fallback) {
  auto found = object.find(key);
  return found != object.end() && found->type() == type ? found->get<T>() : fallback;
}

int IntField(const Json& object, const char* key) {
  auto found = object.find(key);
  return found != object.end() && found->is_number_integer() ? found->get<int>() : 0;
}

std::string StringField(const Json& object, const char* key) {
  return Field<std::string>(object, key, Json::value_t::string, std::string());
}

std::string OfType(const char* type) { return Serialized({{"type", type}}); }

}  // namespace

std::string Serialized(const Json& message) {
  return message.dump(-1, ' ', false, Json::error_handler_t::replace);
}

std::string OpeningMessage(const Opening& opening) {
  Json message = {{"v", kProtocolVersion}, {"type", JobName(opening.job)}};
  switch (opening.job) {
    case Job::Run:
      message["script"] = opening.script;
      message["path"] = opening.path;
      message["folder"] = opening.folder;
      message["timeout"] = opening.timeoutSeconds;
      break;
    case Job::Tree:
      message["json"] = opening.json;
      message["maxItems"] = opening.maxItems;
      break;
    case Job::Session:
      message["maxItems"] = opening.maxItems;
      if (!opening.promptBehavior.empty()) message["promptBehavior"] = opening.promptBehavior;
      break;
    case Job::Publish:
      break;
  }
  return Serialized(message);
}

std::string ParseOpening(const std::string& bytes, Opening* opening) {
  const Json message = Parsed(bytes);
  if (!message.is_object()) return "the loader's opening is not a JSON object";
  auto version = message.find("v");
  if (version == message.end() || !version->is_number_integer())
    return "the loader's opening has no protocol version: the agent speaks version " +
           std::to_string(kProtocolVersion);
  opening->version = version->get<int>();
  if (opening->version != kProtocolVersion)
    return "the loader speaks protocol version " + std::to_string(opening->version) + ", this agent version " +
           std::to_string(kProtocolVersion) + ": use a kwagent.dll of the loader's own build";
  const std::string type = StringField(message, "type");
  const auto* job = std::find_if(std::begin(kJobNames), std::end(kJobNames),
                                 [&](const auto& entry) { return type == entry.second; });
  if (job == std::end(kJobNames)) return "the agent has no job \"" + type + "\"";
  opening->job = job->first;
  opening->script = StringField(message, "script");
  opening->path = StringField(message, "path");
  opening->folder = StringField(message, "folder");
  opening->timeoutSeconds = IntField(message, "timeout");
  opening->json = Field<bool>(message, "json", Json::value_t::boolean, false);
  opening->maxItems = IntField(message, "maxItems");
  opening->promptBehavior = StringField(message, "promptBehavior");
  if (opening->timeoutSeconds < 0 || opening->maxItems < 0) return "the loader's opening has a negative limit";
  return std::string();
}

bool ParseMessage(const std::string& bytes, Message* message) {
  *message = Message();
  message->body = Parsed(bytes);
  auto type = message->body.find("type");
  if (!message->body.is_object() || type == message->body.end() || !type->is_string()) return false;
  for (const auto& [value, name] : kTypeNames)
    if (*type == name) message->type = value;
  switch (message->type) {
    case MessageType::Out:
    case MessageType::Err:
      message->text = StringField(message->body, "line");
      break;
    case MessageType::Refused:
      message->text = StringField(message->body, "message");
      message->status = IntField(message->body, "status");
      break;
    case MessageType::Crash:
      message->text = StringField(message->body, "report");
      break;
    case MessageType::End:
      message->status = IntField(message->body, "status");
      break;
    default:
      break;
  }
  return true;
}

std::string RefusedMessage(int status, const std::string& message) {
  return Serialized({{"type", "refused"}, {"status", status}, {"message", message}});
}
std::string OutMessage(const std::string& line) { return Serialized({{"type", "out"}, {"line", line}}); }
std::string ErrMessage(const std::string& line) { return Serialized({{"type", "err"}, {"line", line}}); }
std::string BeatMessage() { return OfType("beat"); }

std::string ChecksMessage(const Json& checks) {
  Json message = checks.is_object() ? checks : Json::object();
  message["type"] = "checks";
  return Serialized(message);
}

std::string EndMessage(int status) { return Serialized({{"type", "end"}, {"status", status}}); }
std::string PubMessage() { return OfType("pub"); }
std::string StopMessage() { return OfType("stop"); }
std::string ExitMessage() { return OfType("exit"); }
std::string CrashMessage(const std::string& report) { return Serialized({{"type", "crash"}, {"report", report}}); }
std::string ReadyMessage(DWORD pid, HWND window, uintptr_t wake) {
  Json ready = {{"type", "ready"}, {"pid", pid}, {"window", reinterpret_cast<uintptr_t>(window)}};
  if (wake != 0) ready["wake"] = wake;
  return Serialized(ready);
}

namespace {

uintptr_t AddressField(const Message& message, const char* name) {
  const Json value = message.body.value(name, Json());
  return value.is_number_unsigned() ? value.get<uintptr_t>() : 0;
}

}  // namespace

HWND ReadyWindow(const Message& ready) { return reinterpret_cast<HWND>(AddressField(ready, "window")); }

uintptr_t ReadyWake(const Message& ready) { return AddressField(ready, "wake"); }

std::string CommandMessage(const Json& id, const std::string& name, const Json& params) {
  return Serialized({{"type", "command"}, {"id", id}, {"name", name}, {"params", params}});
}

std::string AnswerMessage(const Json& id, const Json& value) {
  return Serialized({{"type", "answer"}, {"id", id}, {"value", value}});
}

std::string FailedAnswerMessage(const Json& id, const std::string& error, const std::string& message) {
  return Serialized({{"type", "answer"}, {"id", id}, {"error", error}, {"message", message}});
}

std::string QuitMessage() { return OfType("quit"); }

}  // namespace kwagentkit
