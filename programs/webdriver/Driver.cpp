#include "webdriver/Driver.h"

#include <random>
#include <vector>

#include "webdriver/Log.h"
#include "webdriver/Routes.h"

namespace kwdriver {

using nlohmann::json;

namespace {

constexpr size_t kMaxDepth = 256;
constexpr size_t kEndedKept = 256;

HttpAnswer Error(const std::string& error, const std::string& message) {
  return {HttpStatusOf(error), Dump(ErrorBody(error, message))};
}
HttpAnswer Error(const Failure& failure) { return Error(failure.error, failure.message); }
HttpAnswer Value(const json& value) { return {200, Dump(json{{"value", value}})}; }

std::string NewId() {
  static std::mutex lock;
  static std::random_device device;
  static std::mt19937_64 generator(
      (static_cast<uint64_t>(device()) << 32) ^ device() ^
      static_cast<uint64_t>(std::chrono::steady_clock::now().time_since_epoch().count()));
  std::lock_guard<std::mutex> hold(lock);
  static const char kHex[] = "0123456789abcdef";
  std::string id;
  for (int part = 0; part < 2; ++part) {
    uint64_t bits = generator();
    for (int i = 0; i < 16; ++i, bits >>= 4) id += kHex[bits & 15];
  }
  return id;
}

// Nesting deeper than kMaxDepth is refused before parsing: serializing such a
// value again (to the agent) would recurse that deep.
bool TooDeep(const std::string& text) {
  size_t depth = 0;
  bool inString = false, escaped = false;
  for (char c : text) {
    if (inString) {
      if (escaped) escaped = false;
      else if (c == '\\') escaped = true;
      else if (c == '"') inString = false;
    } else if (c == '"') {
      inString = true;
    } else if (c == '[' || c == '{') {
      if (++depth > kMaxDepth) return true;
    } else if ((c == ']' || c == '}') && depth > 0) {
      --depth;
    }
  }
  return false;
}

}  // namespace

bool ParseBody(const std::string& text, json* body, Failure* failure) {
  if (text.find_first_not_of(" \t\r\n") == std::string::npos) {
    *body = json::object();
    return true;
  }
  if (TooDeep(text)) {
    *failure = {"invalid argument", "the body nests deeper than " + std::to_string(kMaxDepth) + " levels"};
    return false;
  }
  json parsed = json::parse(text, nullptr, false);
  if (parsed.is_discarded()) {
    *failure = {"invalid argument", "the body is not JSON"};
    return false;
  }
  if (!parsed.is_object()) {
    *failure = {"invalid argument", "the body must be a JSON object"};
    return false;
  }
  *body = std::move(parsed);
  return true;
}

Driver::Driver(std::unique_ptr<AgentStarter> starter, DriverOptions options)
    : m_starter(std::move(starter)), m_options(options), m_reaper([this] { Reaper(); }) {}

Driver::~Driver() {
  EndAll();
  {
    std::lock_guard<std::mutex> hold(m_lock);
    m_closing = true;
  }
  m_wake.notify_all();
  m_reaper.join();
}

size_t Driver::SessionCount() {
  std::lock_guard<std::mutex> hold(m_lock);
  return m_sessions.size();
}

HttpAnswer Driver::Handle(const std::string& method, const std::string& path, const std::string& text) {
  const RouteMatch match = MatchRoute(method, path);
  if (match.route == nullptr) return Error(match.failure);
  const Route& route = *match.route;

  // A POST's body is JSON; a session's command looks its session up first.
  json body = json::object();
  const auto parse = [&](Failure* failure) {
    return route.method != std::string("POST") || ParseBody(text, &body, failure);
  };
  Failure failure;

  switch (route.handling) {
    case Handling::kStatus: {
      std::lock_guard<std::mutex> hold(m_lock);
      const bool ready = !m_closing && (m_options.maxSessions <= 0 ||
                                        static_cast<int>(m_sessions.size()) + m_starting < m_options.maxSessions);
      return Value({{"ready", ready},
                    {"message", ready ? "kwdriver is ready for new sessions"
                                      : m_closing ? "kwdriver is shutting down" : "kwdriver has its most sessions"},
                    {"sessions", m_sessions.size()},
                    {"build", {{"version", "1"}}}});
    }
    case Handling::kNewSession:
      if (!parse(&failure)) return Error(failure);
      return NewSession(body);
    default:
      break;
  }

  const std::string id = match.parameters.at("sessionId");
  if (route.handling == Handling::kEndSession) return EndSession(id);

  std::string endedReason;
  const std::shared_ptr<Session> session = Find(id, &endedReason);
  if (!session)
    return Error("invalid session id",
                 endedReason.empty() ? "no session " + id : "session " + id + " has ended: " + endedReason);

  if (!parse(&failure)) return Error(failure);

  switch (route.handling) {
    case Handling::kGetTimeouts:
      return Value(session->GetTimeouts());
    case Handling::kSetTimeouts:
      failure = session->SetTimeouts(body);
      return failure.error.empty() ? Value(nullptr) : Error(failure);
    case Handling::kUnsupported:
      return Error("unsupported operation", std::string(route.command) + " has no meaning for a desktop application");
    default:
      break;
  }

  const Outcome outcome = session->Run(route, match.parameters, body);
  if (outcome.sessionOver) {
    Forget(id, outcome.overReason);
    session->End();
    if (Logging(LogLevel::kInfo)) LogLine("session " + id + " ended: " + outcome.overReason);
  }
  return outcome.failure.error.empty() ? Value(outcome.value) : Error(outcome.failure);
}

HttpAnswer Driver::NewSession(const json& body) {
  SessionRequest request;
  Failure failure;
  if (!ProcessCapabilities(body, &request, &failure)) return Error(failure);
  {
    std::lock_guard<std::mutex> hold(m_lock);
    if (m_closing) return Error("session not created", "kwdriver is shutting down");
    if (m_options.maxSessions > 0 && static_cast<int>(m_sessions.size()) + m_starting >= m_options.maxSessions)
      return Error("session not created",
                   "kwdriver runs its most sessions already (--max-sessions " + std::to_string(m_options.maxSessions) + ")");
    ++m_starting;
  }
  std::unique_ptr<AgentChannel> agent = m_starter->Start(request, &failure);
  std::shared_ptr<Session> session;
  bool closing = false;
  if (agent) {
    session = std::make_shared<Session>(NewId(), request, std::move(agent), m_options.limits);
  }
  {
    std::lock_guard<std::mutex> hold(m_lock);
    --m_starting;
    closing = m_closing;
    if (session && !closing) m_sessions[session->Id()] = session;
  }
  if (!session) return Error("session not created", failure.message);
  if (closing) {
    session->End();
    return Error("session not created", "kwdriver is shutting down");
  }
  if (Logging(LogLevel::kInfo))
    LogLine("session " + session->Id() + " started: " +
            (request.app.empty() ? "attached to " + request.attach : "launched " + request.app) + " (pid " +
            std::to_string(session->Pid()) + ")");
  return Value({{"sessionId", session->Id()}, {"capabilities", SessionCapabilities(request, session->Pid())}});
}

HttpAnswer Driver::EndSession(const std::string& id) {
  std::shared_ptr<Session> session;
  {
    std::lock_guard<std::mutex> hold(m_lock);
    const auto found = m_sessions.find(id);
    if (found != m_sessions.end()) {
      session = found->second;
      m_sessions.erase(found);
      m_ended.emplace_back(id, "it was deleted");
      if (m_ended.size() > kEndedKept) m_ended.pop_front();
    }
  }
  if (!session) return Error("invalid session id", "no session " + id);
  session->End();
  if (Logging(LogLevel::kInfo)) LogLine("session " + id + " deleted");
  return Value(nullptr);
}

std::shared_ptr<Session> Driver::Find(const std::string& id, std::string* endedReason) {
  std::lock_guard<std::mutex> hold(m_lock);
  const auto found = m_sessions.find(id);
  if (found != m_sessions.end()) return found->second;
  for (const auto& [endedId, reason] : m_ended)
    if (endedId == id) *endedReason = reason;
  return nullptr;
}

void Driver::Forget(const std::string& id, const std::string& reason) {
  std::lock_guard<std::mutex> hold(m_lock);
  m_sessions.erase(id);
  m_ended.emplace_back(id, reason);
  if (m_ended.size() > kEndedKept) m_ended.pop_front();
}

void Driver::EndAll() {
  std::vector<std::shared_ptr<Session>> sessions;
  {
    std::lock_guard<std::mutex> hold(m_lock);
    m_closing = true;
    for (auto& [id, session] : m_sessions) {
      sessions.push_back(session);
      m_ended.emplace_back(id, "kwdriver shut down");
    }
    m_sessions.clear();
  }
  // In parallel: each may wait out its application's grace.
  std::vector<std::thread> enders;
  for (auto& session : sessions) enders.emplace_back([session] { session->End(); });
  for (auto& ender : enders) ender.join();
  if (!sessions.empty() && Logging(LogLevel::kInfo))
    LogLine("ended " + std::to_string(sessions.size()) + " session(s)");
}

void Driver::Reaper() {
  std::unique_lock<std::mutex> hold(m_lock);
  while (!m_closing) {
    m_wake.wait_for(hold, m_options.reapInterval);
    if (m_closing) break;
    std::vector<std::shared_ptr<Session>> sessions;
    for (auto& [id, session] : m_sessions) sessions.push_back(session);
    hold.unlock();
    for (auto& session : sessions) {
      const std::string why = session->ShouldEnd();
      if (why.empty()) continue;
      bool mine = false;
      {
        std::lock_guard<std::mutex> again(m_lock);
        mine = m_sessions.erase(session->Id()) > 0;
        if (mine) {
          m_ended.emplace_back(session->Id(), why);
          if (m_ended.size() > kEndedKept) m_ended.pop_front();
        }
      }
      if (!mine) continue;
      session->End();
      if (Logging(LogLevel::kInfo)) LogLine("session " + session->Id() + " ended: " + why);
    }
    hold.lock();
  }
}

}  // namespace kwdriver
