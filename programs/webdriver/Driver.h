// The server's logic behind HTTP: a request's method, path and body in, the
// status and JSON body of the answer out. It keeps the sessions, each with
// its own application, and ends those whose application went away or that
// saw no command for their kw:newCommandTimeout.
#pragma once

#include <condition_variable>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "webdriver/Agent.h"
#include "webdriver/Session.h"

namespace kwdriver {

struct HttpAnswer {
  int status = 200;
  std::string body;  // JSON
};

struct DriverOptions {
  int maxSessions = 0;  // 0: no limit
  Limits limits;
  std::chrono::milliseconds reapInterval{1000};
};

class Driver {
 public:
  Driver(std::unique_ptr<AgentStarter> starter, DriverOptions options);
  ~Driver();  // ends every session

  HttpAnswer Handle(const std::string& method, const std::string& path, const std::string& body);

  // Ends every session (their applications closed or left as they were
  // found); new sessions are refused from then on.
  void EndAll();

  size_t SessionCount();

 private:
  HttpAnswer NewSession(const nlohmann::json& body);
  HttpAnswer EndSession(const std::string& id);
  std::shared_ptr<Session> Find(const std::string& id, std::string* endedReason);
  void Forget(const std::string& id, const std::string& reason);
  void Reaper();

  std::unique_ptr<AgentStarter> m_starter;
  const DriverOptions m_options;

  std::mutex m_lock;
  std::map<std::string, std::shared_ptr<Session>> m_sessions;
  int m_starting = 0;  // sessions being created, counted against maxSessions
  bool m_closing = false;
  std::deque<std::pair<std::string, std::string>> m_ended;  // id, why: for the error of a later command

  std::condition_variable m_wake;
  std::thread m_reaper;
};

// Parses a command's body: empty is {}, else a JSON object no deeper than
// a limit; false with `failure` an invalid argument otherwise.
bool ParseBody(const std::string& text, nlohmann::json* body, Failure* failure);

}  // namespace kwdriver
