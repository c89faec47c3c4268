// WebDriver errors: the W3C error codes, the HTTP status each is answered
// with, and the JSON body every error response carries.
#pragma once

#include <string>

#include <nlohmann/json.hpp>

namespace kwdriver {

// A command's failure: a W3C error code ("no such element") and a message.
struct Failure {
  std::string error;
  std::string message;
};

// The HTTP status of a W3C error code; 500 for a code the table lacks.
int HttpStatusOf(const std::string& error);

// True when `error` is one of the W3C error codes.
bool IsKnownError(const std::string& error);

// {"value": {"error": ..., "message": ..., "stacktrace": ""}}
nlohmann::json ErrorBody(const std::string& error, const std::string& message);

// Serializes for the wire; strings that are not UTF-8 (a path, an agent's
// text) are repaired rather than thrown on.
std::string Dump(const nlohmann::json& value);

}  // namespace kwdriver
