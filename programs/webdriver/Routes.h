// The WebDriver endpoints: which command a method and path name, or which
// error when none does ("unknown command" for a path no endpoint has,
// "unknown method" for a known path asked with another method).
#pragma once

#include <map>
#include <string>

#include "webdriver/Errors.h"

namespace kwdriver {

// How the server answers a command.
enum class Handling {
  kStatus,       // GET /status
  kNewSession,   // POST /session
  kEndSession,   // DELETE /session/{sessionId}
  kGetTimeouts,  // answered from the session's settings
  kSetTimeouts,
  kAgent,        // forwarded to the session's agent by name
  kUnsupported,  // has no meaning for a desktop application
};

struct Route {
  const char* method;
  const char* path;     // segments; "{name}" captures one
  const char* command;  // the agent's command name, or the W3C command's
  Handling handling;
};

struct RouteMatch {
  const Route* route = nullptr;      // null when `failure` says why
  std::map<std::string, std::string> parameters;  // {sessionId}, {elementId}, ...
  Failure failure;
};

// Matches a request. The path may carry a "/wd/hub" prefix and a trailing
// slash; query strings are the HTTP layer's to strip.
RouteMatch MatchRoute(const std::string& method, const std::string& path);

// Every endpoint, for tests and the usage text.
const Route* Routes(size_t* count);

}  // namespace kwdriver
