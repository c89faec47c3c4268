// A new session's capabilities, processed as WebDriver says: alwaysMatch
// merged with each firstMatch entry (a key in both is an invalid argument),
// each merged set checked against what this server offers, the first that
// matches wins. Extension capabilities other than kw:* and the appium:* ones
// that mean the same are ignored, as are unknown ones.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "webdriver/Errors.h"

namespace kwdriver {

// The session's timeouts in milliseconds; no script timeout is "null".
struct Timeouts {
  int64_t implicit = 0;
  int64_t pageLoad = 300000;
  std::optional<int64_t> script = 30000;

  nlohmann::json ToJson() const;
};

// Reads a timeouts object ({"implicit": ms, "pageLoad": ms, "script": ms|null},
// or the legacy {"type": "implicit", "ms": N}) over `timeouts`; false with
// `failure` an invalid argument when a value is not an integer in range.
bool ReadTimeouts(const nlohmann::json& object, Timeouts* timeouts, Failure* failure);

// What a session is asked to drive: a program to start or a running one.
struct SessionRequest {
  std::string app;                     // Windows form (a unix path mapped to Z:)
  std::vector<std::string> arguments;
  std::string workingDir;
  std::string attach;                  // pid or image name
  double newCommandTimeout = 60;       // seconds; 0: never
  int maxItems = 1000;
  std::string promptBehavior = "dismiss and notify";  // unhandledPromptBehavior
  Timeouts timeouts;
  nlohmann::json matched = nlohmann::json::object();  // the merged capabilities that matched
};

// Processes a New Session body. False with `failure` ("invalid argument"
// for a malformed request, "session not created" when nothing matches).
bool ProcessCapabilities(const nlohmann::json& body, SessionRequest* request, Failure* failure);

// The capabilities a new session answers with.
nlohmann::json SessionCapabilities(const SessionRequest& request, unsigned long pid);

// "/x/y.exe" -> "Z:\x\y.exe"; Windows paths unchanged.
std::string WindowsPath(const std::string& path);

}  // namespace kwdriver
