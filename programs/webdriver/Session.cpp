#include "webdriver/Session.h"

#include <cstdio>
#include <thread>

#include "webdriver/Atoms.h"

namespace kwdriver {

using nlohmann::json;
using std::chrono::milliseconds;

namespace {

// WebDriver's web element identifier.
constexpr const char* kElementKey = "element-6066-11e4-a52e-4f735466cecf";
constexpr milliseconds kNoLimit{24LL * 3600 * 1000};

int64_t NowMs() {
  return std::chrono::duration_cast<milliseconds>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

Failure Invalid(const std::string& message) { return {"invalid argument", message}; }

bool IsFind(const std::string& name) {
  return name == "findElement" || name == "findElements" || name == "findElementFromElement" ||
         name == "findElementsFromElement";
}

bool IsInteger(const json& value, double low, double high) {
  if (!value.is_number()) return false;
  const double number = value.get<double>();
  return number >= low && number <= high && static_cast<double>(static_cast<int64_t>(number)) == number;
}

// The checks WebDriver makes of a command's parameters before it acts.
std::string CheckParameters(const std::string& name, const json& params) {
  auto isString = [&](const char* key) { return params.contains(key) && params[key].is_string(); };
  if (IsFind(name)) {
    if (!isString("using") || !isString("value")) return "using and value must be strings";
  } else if (name == "switchToWindow") {
    if (!isString("handle")) return "handle must be a string";
  } else if (name == "elementSendKeys" || name == "sendAlertText") {
    if (!isString("text")) return "text must be a string";
  } else if (name == "executeScript" || name == "executeAsyncScript") {
    if (!isString("script")) return "script must be a string";
    if (!params.contains("args") || !params["args"].is_array()) return "args must be a list";
  } else if (name == "performActions") {
    if (!params.contains("actions") || !params["actions"].is_array()) return "actions must be a list";
  } else if (name == "setWindowRect") {
    for (const char* key : {"x", "y"})
      if (params.contains(key) && !params[key].is_null() && !IsInteger(params[key], -2147483648.0, 2147483647.0))
        return std::string(key) + " must be an integer or null";
    for (const char* key : {"width", "height"})
      if (params.contains(key) && !params[key].is_null() && !IsInteger(params[key], 0, 2147483647.0))
        return std::string(key) + " must be an integer 0 or more, or null";
  }
  return "";
}

// The reference inside a web element value ({"element-6066-...": ref}, or
// the old wire protocol's {"ELEMENT": ref}); "" when it is none.
std::string ElementRef(const json& value) {
  if (!value.is_object()) return "";
  for (const char* key : {kElementKey, "ELEMENT"}) {
    const auto found = value.find(key);
    if (found != value.end() && found->is_string()) return found->get<std::string>();
  }
  return "";
}

}  // namespace

Session::Session(std::string id, SessionRequest request, std::unique_ptr<AgentChannel> agent, Limits limits)
    : m_id(std::move(id)),
      m_request(std::move(request)),
      m_limits(limits),
      m_agent(std::move(agent)),
      m_timeouts(m_request.timeouts),
      m_lastUsedMs(NowMs()) {}

json Session::GetTimeouts() {
  std::lock_guard<std::mutex> hold(m_timeoutsLock);
  return m_timeouts.ToJson();
}

Failure Session::SetTimeouts(const json& body) {
  std::lock_guard<std::mutex> hold(m_timeoutsLock);
  Failure failure;
  ReadTimeouts(body, &m_timeouts, &failure);
  m_lastUsedMs = NowMs();
  return failure;
}

Reply Session::Call(const std::string& name, const json& params, milliseconds limit) {
  return m_agent->Call(name, params, limit, m_cancelled);
}

Outcome Session::FromReply(const std::string& name, const Reply& reply, bool script) {
  Outcome out;
  switch (reply.kind) {
    case Reply::Kind::kValue:
      out.value = reply.value;
      break;
    case Reply::Kind::kError:
      if (IsKnownError(reply.failure.error))
        out.failure = reply.failure;
      else
        out.failure = {"unknown error", reply.failure.error + ": " + reply.failure.message};
      break;
    case Reply::Kind::kTimeout:
      out.failure = {script ? "script timeout" : "timeout",
                     "the application did not answer " + name + " in time" +
                         (reply.failure.message.empty() ? "" : ": " + reply.failure.message)};
      break;
    case Reply::Kind::kGone:
      m_ended = true;
      out.sessionOver = true;
      out.overReason = reply.failure.message.empty() ? "the application has ended" : reply.failure.message;
      out.failure = {"invalid session id", "the session is over: " + out.overReason};
      break;
  }
  return out;
}

Outcome Session::Run(const Route& route, const std::map<std::string, std::string>& parameters, const json& body) {
  struct Busy {
    Session* session;
    explicit Busy(Session* s) : session(s) { ++session->m_busy; }
    ~Busy() {
      session->m_lastUsedMs = NowMs();
      --session->m_busy;
    }
  } busy(this);

  Outcome out;
  std::string name = route.command;
  json params = body.is_object() ? body : json::object();
  params.erase("sessionId");
  for (const auto& [key, value] : parameters)
    if (key != "sessionId") params[key] = value;
  const std::string problem = CheckParameters(name, params);
  if (!problem.empty()) {
    out.failure = Invalid(problem);
    return out;
  }

  if (!m_commandLock.try_lock_for(m_limits.command)) {
    out.failure = {"timeout", "the session's previous command is still waiting for the application"};
    return out;
  }
  std::lock_guard<std::timed_mutex> hold(m_commandLock, std::adopt_lock);
  if (m_ended || m_cancelled) {
    out.failure = {"invalid session id", "the session is over"};
    return out;
  }
  Timeouts timeouts;
  {
    std::lock_guard<std::mutex> holdTimeouts(m_timeoutsLock);
    timeouts = m_timeouts;
  }

  bool script = false;
  milliseconds limit = m_limits.command;
  if (name == "executeScript" || name == "executeAsyncScript") {
    const json& args = params["args"];
    const Atom atom = name == "executeScript" ? RecogniseAtom(params["script"].get<std::string>()) : Atom::kNone;
    const std::string element = args.empty() ? "" : ElementRef(args[0]);
    const bool named = args.size() >= 2 && args[1].is_string();
    if (atom != Atom::kNone && !element.empty() && (atom != Atom::kGetAttribute || named)) {
      json asked = {{"elementId", element}};
      if (atom == Atom::kGetAttribute) asked["name"] = args[1];
      name = AtomCommand(atom);
      params = std::move(asked);  // args is part of params
    } else {
      script = true;
      params["timeoutMs"] = timeouts.script ? json(*timeouts.script) : json(nullptr);
      limit = timeouts.script ? milliseconds(*timeouts.script) + m_limits.scriptGrace : kNoLimit;
    }
  }

  if (!IsFind(name)) {
    out = FromReply(name, Call(name, params, limit), script);
    if (name == "closeWindow" && out.failure.error.empty() && out.value.is_array() && out.value.empty()) {
      // The last window closed: WebDriver ends the session with it.
      out.sessionOver = true;
      out.overReason = "its last window was closed";
    }
    return out;
  }

  // Finds repeat while they find nothing, until the implicit wait is over.
  const auto until = std::chrono::steady_clock::now() + milliseconds(timeouts.implicit);
  for (;;) {
    const Reply reply = Call(name, params, limit);
    const bool nothing = (reply.kind == Reply::Kind::kError && reply.failure.error == "no such element") ||
                         (reply.kind == Reply::Kind::kValue && reply.value.is_array() && reply.value.empty());
    if (!nothing || std::chrono::steady_clock::now() + m_limits.implicitStep > until || m_cancelled)
      return FromReply(name, reply, false);
    std::this_thread::sleep_for(m_limits.implicitStep);
  }
}

std::string Session::ShouldEnd() {
  if (m_ended) return "the session is over";
  if (m_busy > 0) return "";
  std::unique_lock<std::timed_mutex> hold(m_commandLock, std::try_to_lock);
  if (!hold.owns_lock() || m_busy > 0) return "";
  std::string report;
  if (!m_agent->Alive(&report)) return report.empty() ? "the application has ended" : report;
  const double idle = m_request.newCommandTimeout;
  if (idle > 0 && NowMs() - m_lastUsedMs > static_cast<int64_t>(idle * 1000))
  {
    char seconds[32];
    std::snprintf(seconds, sizeof seconds, "%g", idle);
    return std::string("no command came for ") + seconds + " s (kw:newCommandTimeout)";
  }
  return "";
}

void Session::End() {
  m_cancelled = true;
  const bool locked = m_commandLock.try_lock_for(m_limits.endWait);
  m_ended = true;
  if (!m_agentEnded.exchange(true)) m_agent->End();
  if (locked) m_commandLock.unlock();
}

}  // namespace kwdriver
