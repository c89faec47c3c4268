// One WebDriver session: its application's agent, its timeouts, and the
// lock that lets one command at a time through to the agent, so that an
// application that hangs holds up its own session only.
#pragma once

#include <atomic>
#include <chrono>
#include <map>
#include <memory>
#include <mutex>
#include <string>

#include <nlohmann/json.hpp>

#include "webdriver/Agent.h"
#include "webdriver/Capabilities.h"
#include "webdriver/Routes.h"

namespace kwdriver {

// What a command came to.
struct Outcome {
  nlohmann::json value;        // when `failure.error` is empty
  Failure failure;
  bool sessionOver = false;    // the session ended with it (`overReason` says why)
  std::string overReason;
};

// Bounds the server keeps to; tests shorten them.
struct Limits {
  std::chrono::milliseconds command{60000};       // an answer to any command but a script
  std::chrono::milliseconds scriptGrace{10000};   // past the script timeout, for the agent's own answer (a cut-off may take 9 s)
  std::chrono::milliseconds implicitStep{50};     // between the tries of a find under an implicit wait
  std::chrono::milliseconds endWait{10000};       // for a command in flight to give way to DELETE
};

class Session {
 public:
  Session(std::string id, SessionRequest request, std::unique_ptr<AgentChannel> agent, Limits limits);

  const std::string& Id() const { return m_id; }
  const SessionRequest& Request() const { return m_request; }
  unsigned long Pid() const { return m_agent->Pid(); }

  // A command the agent answers (route.handling == kAgent), with the path's
  // parameters and the request body (an object).
  Outcome Run(const Route& route, const std::map<std::string, std::string>& parameters, const nlohmann::json& body);

  nlohmann::json GetTimeouts();
  Failure SetTimeouts(const nlohmann::json& body);

  // For the reaper: "" while the session lives on, else why it should end
  // (application gone, or idle past kw:newCommandTimeout). A session busy
  // with a command is never idle.
  std::string ShouldEnd();

  // Ends it: a command in flight is cancelled, then the agent ended.
  void End();

 private:
  Reply Call(const std::string& name, const nlohmann::json& params, std::chrono::milliseconds limit);
  Outcome FromReply(const std::string& name, const Reply& reply, bool script);

  const std::string m_id;
  const SessionRequest m_request;
  const Limits m_limits;
  std::unique_ptr<AgentChannel> m_agent;

  std::timed_mutex m_commandLock;  // one command at a time at the agent
  std::mutex m_timeoutsLock;
  Timeouts m_timeouts;
  std::atomic<bool> m_cancelled{false};
  std::atomic<bool> m_ended{false};
  std::atomic<bool> m_agentEnded{false};
  std::atomic<int64_t> m_lastUsedMs;  // steady clock, when the last command ended
  std::atomic<int> m_busy{0};
};

}  // namespace kwdriver
