// What a session needs from the agent inside its application, so that the
// server's logic runs the same over the real pipe (PipeAgent) and over a
// test's fake.
#pragma once

#include <atomic>
#include <chrono>
#include <memory>
#include <string>

#include <nlohmann/json.hpp>

#include "webdriver/Capabilities.h"
#include "webdriver/Errors.h"

namespace kwdriver {

// The answer to one command.
struct Reply {
  enum class Kind {
    kValue,    // `value` holds the result
    kError,    // the agent answered `failure`
    kTimeout,  // no answer within the limit; the connection stays
    kGone,     // the pipe broke or the application ended; `failure.message` says how
  };
  Kind kind = Kind::kValue;
  nlohmann::json value;
  Failure failure;
};

class AgentChannel {
 public:
  virtual ~AgentChannel() = default;

  // Sends a command and waits for its answer no longer than `limit`
  // (beats do not extend it), or until `cancelled` turns true.
  virtual Reply Call(const std::string& name, const nlohmann::json& params, std::chrono::milliseconds limit,
                     const std::atomic<bool>& cancelled) = 0;

  // Between commands: false, with what the agent left as its last words (a
  // crash report), once the application or the pipe has gone.
  virtual bool Alive(std::string* report) = 0;

  // Ends the session: a launched application is closed (its windows, then
  // ended after a grace), an attached one is left running (the agent told
  // to quit).
  virtual void End() = 0;

  virtual unsigned long Pid() const = 0;
  virtual bool Launched() const = 0;
};

// Starts or attaches to an application with the agent in it.
class AgentStarter {
 public:
  virtual ~AgentStarter() = default;
  // Null with `failure` (a "session not created" message) when it cannot.
  virtual std::unique_ptr<AgentChannel> Start(const SessionRequest& request, Failure* failure) = 0;
};

// The real one: the launcher of programs/agentkit and the pipe.
std::unique_ptr<AgentStarter> MakePipeAgentStarter();

}  // namespace kwdriver
