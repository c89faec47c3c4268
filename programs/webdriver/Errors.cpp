#include "webdriver/Errors.h"

#include <cstring>

namespace kwdriver {

namespace {

struct ErrorStatus {
  const char* error;
  int status;
};

// The error codes of WebDriver (Level 2) and their HTTP statuses.
constexpr ErrorStatus kErrors[] = {
    {"element click intercepted", 400},
    {"element not interactable", 400},
    {"insecure certificate", 400},
    {"invalid argument", 400},
    {"invalid cookie domain", 400},
    {"invalid element state", 400},
    {"invalid selector", 400},
    {"invalid session id", 404},
    {"javascript error", 500},
    {"move target out of bounds", 500},
    {"no such alert", 404},
    {"no such cookie", 404},
    {"no such element", 404},
    {"no such frame", 404},
    {"no such window", 404},
    {"no such shadow root", 404},
    {"script timeout", 500},
    {"session not created", 500},
    {"stale element reference", 404},
    {"detached shadow root", 404},
    {"timeout", 500},
    {"unable to set cookie", 500},
    {"unable to capture screen", 500},
    {"unexpected alert open", 500},
    {"unknown command", 404},
    {"unknown error", 500},
    {"unknown method", 405},
    {"unsupported operation", 500},
};

const ErrorStatus* Find(const std::string& error) {
  for (const auto& entry : kErrors)
    if (error == entry.error) return &entry;
  return nullptr;
}

}  // namespace

int HttpStatusOf(const std::string& error) {
  const ErrorStatus* entry = Find(error);
  return entry != nullptr ? entry->status : 500;
}

bool IsKnownError(const std::string& error) { return Find(error) != nullptr; }

nlohmann::json ErrorBody(const std::string& error, const std::string& message) {
  return {{"value", {{"error", error}, {"message", message}, {"stacktrace", ""}}}};
}

std::string Dump(const nlohmann::json& value) {
  return value.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

}  // namespace kwdriver
