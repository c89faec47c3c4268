#include "webdriver/Capabilities.h"

#include <algorithm>
#include <cctype>
#include <cmath>

namespace kwdriver {

using nlohmann::json;

namespace {

// What a session does about an open alert, from unhandledPromptBehavior: a
// string, or an object by prompt type, of which the alerts here take the
// "alert" entry, else the "default" one. Empty when the value is none of these.
std::string PromptBehavior(const json& value) {
  static const char* const kBehaviors[] = {"dismiss", "accept", "dismiss and notify", "accept and notify", "ignore"};
  if (value.is_object()) {
    for (const char* type : {"alert", "default"})
      if (value.contains(type)) return PromptBehavior(value[type]);
    for (const auto& [type, entry] : value.items())
      if (PromptBehavior(entry).empty()) return "";
    return "dismiss and notify";
  }
  if (value.is_string())
    for (const char* behavior : kBehaviors)
      if (value == behavior) return behavior;
  return "";
}

constexpr int64_t kMaxSafeInteger = (int64_t{1} << 53) - 1;

Failure Invalid(const std::string& message) { return {"invalid argument", message}; }

std::string Lower(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return std::tolower(c); });
  return text;
}

// An integer 0..2^53-1 (a float with an integral value counts).
bool ReadInteger(const json& value, int64_t* out) {
  if (value.is_number_unsigned()) {
    if (value.get<uint64_t>() > static_cast<uint64_t>(kMaxSafeInteger)) return false;
    *out = static_cast<int64_t>(value.get<uint64_t>());
    return true;
  }
  if (value.is_number_integer()) {
    const int64_t number = value.get<int64_t>();
    if (number < 0 || number > kMaxSafeInteger) return false;
    *out = number;
    return true;
  }
  if (value.is_number_float()) {
    const double number = value.get<double>();
    if (!(number >= 0) || number > static_cast<double>(kMaxSafeInteger) || std::floor(number) != number) return false;
    *out = static_cast<int64_t>(number);
    return true;
  }
  return false;
}

// A command line's arguments from one string, split at blanks outside
// double quotes (Appium's appArguments is such a string).
std::vector<std::string> SplitArguments(const std::string& line) {
  std::vector<std::string> out;
  std::string current;
  bool quoted = false, any = false;
  for (char c : line) {
    if (c == '"') {
      quoted = !quoted;
      any = true;
    } else if (!quoted && (c == ' ' || c == '\t')) {
      if (any) out.push_back(current);
      current.clear();
      any = false;
    } else {
      current += c;
      any = true;
    }
  }
  if (any) out.push_back(current);
  return out;
}

// The same capability under its kw: and appium: names; the kw: one is kept.
struct Alias {
  const char* kw;
  const char* appium;
};
constexpr Alias kAliases[] = {
    {"kw:app", "appium:app"},
    {"kw:args", "appium:appArguments"},
    {"kw:workingDir", "appium:appWorkingDir"},
    {"kw:newCommandTimeout", "appium:newCommandTimeout"},
};

// Checks the type of each capability this server reads (WebDriver's
// "validate capabilities"); unknown ones pass unchecked.
bool Validate(const json& capabilities, const std::string& where, Failure* failure) {
  if (!capabilities.is_object()) {
    *failure = Invalid(where + " is not an object");
    return false;
  }
  for (const auto& [key, value] : capabilities.items()) {
    const std::string at = where + "." + key;
    std::string problem;
    if (value.is_null()) continue;  // a null capability is as if absent
    if (key == "acceptInsecureCerts" || key == "strictFileInteractability" || key == "setWindowRect" ||
        key == "webSocketUrl") {
      if (!value.is_boolean()) problem = "a boolean";
    } else if (key == "browserName" || key == "browserVersion" || key == "platformName") {
      if (!value.is_string()) problem = "a string";
    } else if (key == "pageLoadStrategy") {
      if (!value.is_string() || (value != "none" && value != "eager" && value != "normal"))
        problem = "\"none\", \"eager\" or \"normal\"";
    } else if (key == "proxy") {
      if (!value.is_object()) problem = "an object";
    } else if (key == "unhandledPromptBehavior") {
      if (PromptBehavior(value).empty())
        problem = "\"dismiss\", \"accept\", \"dismiss and notify\", \"accept and notify\" or \"ignore\""
                  " (or an object of them by prompt type)";
    } else if (key == "timeouts") {
      Timeouts timeouts;
      Failure inner;
      if (!value.is_object() || !ReadTimeouts(value, &timeouts, &inner))
        problem = "a timeouts object" + (inner.message.empty() ? std::string() : " (" + inner.message + ")");
    } else if (key == "kw:app" || key == "appium:app" || key == "kw:workingDir" || key == "appium:appWorkingDir") {
      if (!value.is_string() || value.get<std::string>().empty()) problem = "a non-empty string";
    } else if (key == "kw:args") {
      if (!value.is_array() || !std::all_of(value.begin(), value.end(), [](const json& v) { return v.is_string(); }))
        problem = "a list of strings";
    } else if (key == "appium:appArguments") {
      if (!value.is_string() &&
          (!value.is_array() || !std::all_of(value.begin(), value.end(), [](const json& v) { return v.is_string(); })))
        problem = "a string or a list of strings";
    } else if (key == "kw:attach") {
      int64_t pid = 0;
      if (!(value.is_string() && !value.get<std::string>().empty()) && !ReadInteger(value, &pid))
        problem = "a process id or an image name";
    } else if (key == "kw:newCommandTimeout" || key == "appium:newCommandTimeout") {
      if (!value.is_number() || !(value.get<double>() >= 0) || value.get<double>() > 1e9)
        problem = "a number of seconds, 0 or more";
    } else if (key == "kw:maxItems") {
      int64_t items = 0;
      if (!ReadInteger(value, &items) || items < 1 || items > 1000000) problem = "an integer 1..1000000";
    }
    if (!problem.empty()) {
      *failure = Invalid(at + " must be " + problem);
      return false;
    }
  }
  for (const Alias& alias : kAliases) {
    if (capabilities.contains(alias.kw) && capabilities.contains(alias.appium) &&
        capabilities[alias.kw] != capabilities[alias.appium]) {
      *failure = Invalid(where + " gives " + alias.kw + " and " + alias.appium + " different values");
      return false;
    }
  }
  return true;
}

const json* Get(const json& capabilities, const char* key) {
  const auto found = capabilities.find(key);
  return found == capabilities.end() || found->is_null() ? nullptr : &*found;
}

const json* GetAliased(const json& capabilities, const char* key) {
  if (const json* value = Get(capabilities, key)) return value;
  for (const Alias& alias : kAliases)
    if (std::string(alias.kw) == key) return Get(capabilities, alias.appium);
  return nullptr;
}

// WebDriver's "match capabilities" for this server: a Windows desktop
// application, no browser. Fills `request` and returns "" on a match, else
// why not.
std::string Match(const json& capabilities, SessionRequest* request) {
  if (const json* platform = Get(capabilities, "platformName"))
    if (Lower(platform->get<std::string>()) != "windows")
      return "platformName \"" + platform->get<std::string>() + "\" is not windows";
  if (const json* browser = Get(capabilities, "browserName"))
    if (!browser->get<std::string>().empty() && Lower(browser->get<std::string>()) != "kwdriver")
      return "browserName \"" + browser->get<std::string>() + "\": this server drives applications, not browsers";
  if (const json* version = Get(capabilities, "browserVersion"))
    if (!version->get<std::string>().empty()) return "browserVersion is not for this server";

  const json* app = GetAliased(capabilities, "kw:app");
  const json* attach = Get(capabilities, "kw:attach");
  if (app == nullptr && attach == nullptr) return "neither kw:app (appium:app) nor kw:attach names an application";
  if (app != nullptr && attach != nullptr) return "kw:app and kw:attach exclude each other";

  SessionRequest out;
  if (app != nullptr) out.app = WindowsPath(app->get<std::string>());
  if (attach != nullptr) out.attach = attach->is_string() ? attach->get<std::string>() : attach->dump();
  if (const json* args = GetAliased(capabilities, "kw:args")) {
    if (args->is_string())
      out.arguments = SplitArguments(args->get<std::string>());
    else
      for (const json& arg : *args) out.arguments.push_back(arg.get<std::string>());
  }
  if (const json* dir = GetAliased(capabilities, "kw:workingDir")) out.workingDir = WindowsPath(dir->get<std::string>());
  if (const json* timeout = GetAliased(capabilities, "kw:newCommandTimeout"))
    out.newCommandTimeout = timeout->get<double>();
  if (const json* items = Get(capabilities, "kw:maxItems")) {
    int64_t number = 0;
    ReadInteger(*items, &number);
    out.maxItems = static_cast<int>(number);
  }
  if (const json* behavior = Get(capabilities, "unhandledPromptBehavior")) out.promptBehavior = PromptBehavior(*behavior);
  if (const json* timeouts = Get(capabilities, "timeouts")) {
    Failure ignored;
    ReadTimeouts(*timeouts, &out.timeouts, &ignored);
  }
  out.matched = capabilities;
  *request = std::move(out);
  return "";
}

}  // namespace

json Timeouts::ToJson() const {
  return {{"implicit", implicit}, {"pageLoad", pageLoad}, {"script", script ? json(*script) : json(nullptr)}};
}

bool ReadTimeouts(const json& object, Timeouts* timeouts, Failure* failure) {
  if (!object.is_object()) {
    *failure = Invalid("timeouts must be an object");
    return false;
  }
  Timeouts out = *timeouts;
  bool any = false;
  for (const char* key : {"implicit", "pageLoad", "script"}) {
    const auto found = object.find(key);
    if (found == object.end()) continue;
    any = true;
    int64_t ms = 0;
    if (std::string(key) == "script" && found->is_null()) {
      out.script.reset();
      continue;
    }
    if (!ReadInteger(*found, &ms)) {
      *failure = Invalid(std::string(key) + " must be an integer 0..2^53-1" +
                         (std::string(key) == "script" ? " or null" : ""));
      return false;
    }
    if (std::string(key) == "implicit") out.implicit = ms;
    if (std::string(key) == "pageLoad") out.pageLoad = ms;
    if (std::string(key) == "script") out.script = ms;
  }
  // The legacy form older clients still send: {"type": "implicit", "ms": 500}.
  if (!any && object.contains("type") && object.contains("ms")) {
    int64_t ms = 0;
    const json& type = object["type"];
    if (!type.is_string() || !ReadInteger(object["ms"], &ms)) {
      *failure = Invalid("type must be a string and ms an integer");
      return false;
    }
    if (type == "implicit") out.implicit = ms;
    else if (type == "page load" || type == "pageLoad") out.pageLoad = ms;
    else if (type == "script") out.script = ms;
    else {
      *failure = Invalid("unknown timeout type " + type.get<std::string>());
      return false;
    }
  }
  *timeouts = out;
  return true;
}

bool ProcessCapabilities(const json& body, SessionRequest* request, Failure* failure) {
  if (!body.is_object()) {
    *failure = Invalid("the body must be a JSON object");
    return false;
  }
  const json* capabilities = Get(body, "capabilities");
  // Clients of the old wire protocol send desiredCapabilities only.
  json legacy;
  if (capabilities == nullptr) {
    const json* desired = Get(body, "desiredCapabilities");
    if (desired == nullptr) {
      *failure = Invalid("the body has no capabilities");
      return false;
    }
    legacy = {{"alwaysMatch", *desired}};
    capabilities = &legacy;
  }
  if (!capabilities->is_object()) {
    *failure = Invalid("capabilities must be an object");
    return false;
  }
  json always = json::object();
  if (const json* given = Get(*capabilities, "alwaysMatch")) always = *given;
  if (!Validate(always, "alwaysMatch", failure)) return false;

  json first = json::array({json::object()});
  if (const json* given = Get(*capabilities, "firstMatch")) first = *given;
  if (!first.is_array() || first.empty()) {
    *failure = Invalid("firstMatch must be a list of one or more objects");
    return false;
  }
  std::vector<json> merged;
  for (size_t i = 0; i < first.size(); ++i) {
    const std::string where = "firstMatch[" + std::to_string(i) + "]";
    if (!Validate(first[i], where, failure)) return false;
    json both = always;
    for (const auto& [key, value] : first[i].items()) {
      if (always.contains(key)) {
        *failure = Invalid(key + " is in both alwaysMatch and " + where);
        return false;
      }
      both[key] = value;
    }
    if (!Validate(both, where + " with alwaysMatch", failure)) return false;
    merged.push_back(std::move(both));
  }
  std::string reasons;
  for (size_t i = 0; i < merged.size(); ++i) {
    const std::string why = Match(merged[i], request);
    if (why.empty()) return true;
    reasons += (reasons.empty() ? "" : "; ") + (merged.size() > 1 ? "firstMatch[" + std::to_string(i) + "]: " : "") + why;
  }
  *failure = {"session not created", "no capabilities matched: " + reasons};
  return false;
}

json SessionCapabilities(const SessionRequest& request, unsigned long pid) {
  json out = json::object();
  // The extension capabilities as asked (a Grid or client may read them back).
  for (const auto& [key, value] : request.matched.items())
    if (key.find(':') != std::string::npos) out[key] = value;
  const json* browser = Get(request.matched, "browserName");
  out["browserName"] = browser != nullptr ? *browser : json("");
  out["browserVersion"] = "";
  out["platformName"] = "windows";
  out["acceptInsecureCerts"] = false;
  out["pageLoadStrategy"] = "normal";
  out["proxy"] = json::object();
  out["setWindowRect"] = true;
  out["strictFileInteractability"] = false;
  out["unhandledPromptBehavior"] = request.promptBehavior;
  out["timeouts"] = request.timeouts.ToJson();
  if (!request.app.empty()) out["kw:app"] = request.app;
  if (!request.attach.empty()) out["kw:attach"] = request.attach;
  out["kw:newCommandTimeout"] = request.newCommandTimeout;
  out["kw:maxItems"] = request.maxItems;
  out["kw:pid"] = pid;
  return out;
}

std::string WindowsPath(const std::string& path) {
  if (path.empty() || path[0] != '/') return path;
  std::string out = "Z:" + path;
  std::replace(out.begin(), out.end(), '/', '\\');
  return out;
}

}  // namespace kwdriver
