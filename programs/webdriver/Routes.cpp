#include "webdriver/Routes.h"

#include <vector>

namespace kwdriver {

namespace {

using H = Handling;

// The endpoints of WebDriver Level 2 (and the displayedness endpoint of its
// appendix). Commands the agent answers carry the agent's command names
// (Protocol.md); the others keep the spec's names for messages.
constexpr Route kRoutes[] = {
    {"GET", "/status", "status", H::kStatus},
    {"POST", "/session", "newSession", H::kNewSession},
    {"DELETE", "/session/{sessionId}", "deleteSession", H::kEndSession},
    {"GET", "/session/{sessionId}/timeouts", "getTimeouts", H::kGetTimeouts},
    {"POST", "/session/{sessionId}/timeouts", "setTimeouts", H::kSetTimeouts},
    {"POST", "/session/{sessionId}/url", "navigateTo", H::kUnsupported},
    {"GET", "/session/{sessionId}/url", "getCurrentUrl", H::kUnsupported},
    {"POST", "/session/{sessionId}/back", "back", H::kUnsupported},
    {"POST", "/session/{sessionId}/forward", "forward", H::kUnsupported},
    {"POST", "/session/{sessionId}/refresh", "refresh", H::kUnsupported},
    {"GET", "/session/{sessionId}/title", "getTitle", H::kAgent},
    {"GET", "/session/{sessionId}/window", "getWindowHandle", H::kAgent},
    {"DELETE", "/session/{sessionId}/window", "closeWindow", H::kAgent},
    {"POST", "/session/{sessionId}/window", "switchToWindow", H::kAgent},
    {"GET", "/session/{sessionId}/window/handles", "getWindowHandles", H::kAgent},
    {"POST", "/session/{sessionId}/window/new", "newWindow", H::kUnsupported},
    {"POST", "/session/{sessionId}/frame", "switchToFrame", H::kUnsupported},
    {"POST", "/session/{sessionId}/frame/parent", "switchToParentFrame", H::kUnsupported},
    {"GET", "/session/{sessionId}/window/rect", "getWindowRect", H::kAgent},
    {"POST", "/session/{sessionId}/window/rect", "setWindowRect", H::kAgent},
    {"POST", "/session/{sessionId}/window/maximize", "maximizeWindow", H::kAgent},
    {"POST", "/session/{sessionId}/window/minimize", "minimizeWindow", H::kAgent},
    {"POST", "/session/{sessionId}/window/fullscreen", "fullscreenWindow", H::kAgent},
    {"GET", "/session/{sessionId}/element/active", "getActiveElement", H::kAgent},
    {"GET", "/session/{sessionId}/element/{elementId}/shadow", "getElementShadowRoot", H::kUnsupported},
    {"POST", "/session/{sessionId}/element", "findElement", H::kAgent},
    {"POST", "/session/{sessionId}/elements", "findElements", H::kAgent},
    {"POST", "/session/{sessionId}/element/{elementId}/element", "findElementFromElement", H::kAgent},
    {"POST", "/session/{sessionId}/element/{elementId}/elements", "findElementsFromElement", H::kAgent},
    {"POST", "/session/{sessionId}/shadow/{shadowId}/element", "findElementFromShadowRoot", H::kUnsupported},
    {"POST", "/session/{sessionId}/shadow/{shadowId}/elements", "findElementsFromShadowRoot", H::kUnsupported},
    {"GET", "/session/{sessionId}/element/{elementId}/selected", "isElementSelected", H::kAgent},
    {"GET", "/session/{sessionId}/element/{elementId}/displayed", "isElementDisplayed", H::kAgent},
    {"GET", "/session/{sessionId}/element/{elementId}/attribute/{name}", "getElementAttribute", H::kAgent},
    {"GET", "/session/{sessionId}/element/{elementId}/property/{name}", "getElementProperty", H::kAgent},
    {"GET", "/session/{sessionId}/element/{elementId}/css/{propertyName}", "getElementCssValue", H::kAgent},
    {"GET", "/session/{sessionId}/element/{elementId}/text", "getElementText", H::kAgent},
    {"GET", "/session/{sessionId}/element/{elementId}/name", "getElementTagName", H::kAgent},
    {"GET", "/session/{sessionId}/element/{elementId}/rect", "getElementRect", H::kAgent},
    {"GET", "/session/{sessionId}/element/{elementId}/enabled", "isElementEnabled", H::kAgent},
    {"GET", "/session/{sessionId}/element/{elementId}/computedrole", "getComputedRole", H::kAgent},
    {"GET", "/session/{sessionId}/element/{elementId}/computedlabel", "getComputedLabel", H::kAgent},
    {"POST", "/session/{sessionId}/element/{elementId}/click", "elementClick", H::kAgent},
    {"POST", "/session/{sessionId}/element/{elementId}/clear", "elementClear", H::kAgent},
    {"POST", "/session/{sessionId}/element/{elementId}/value", "elementSendKeys", H::kAgent},
    {"GET", "/session/{sessionId}/source", "getPageSource", H::kAgent},
    {"POST", "/session/{sessionId}/execute/sync", "executeScript", H::kAgent},
    {"POST", "/session/{sessionId}/execute/async", "executeAsyncScript", H::kAgent},
    {"GET", "/session/{sessionId}/cookie", "getAllCookies", H::kUnsupported},
    {"GET", "/session/{sessionId}/cookie/{name}", "getNamedCookie", H::kUnsupported},
    {"POST", "/session/{sessionId}/cookie", "addCookie", H::kUnsupported},
    {"DELETE", "/session/{sessionId}/cookie/{name}", "deleteCookie", H::kUnsupported},
    {"DELETE", "/session/{sessionId}/cookie", "deleteAllCookies", H::kUnsupported},
    {"POST", "/session/{sessionId}/actions", "performActions", H::kAgent},
    {"DELETE", "/session/{sessionId}/actions", "releaseActions", H::kAgent},
    {"POST", "/session/{sessionId}/alert/dismiss", "dismissAlert", H::kAgent},
    {"POST", "/session/{sessionId}/alert/accept", "acceptAlert", H::kAgent},
    {"GET", "/session/{sessionId}/alert/text", "getAlertText", H::kAgent},
    {"POST", "/session/{sessionId}/alert/text", "sendAlertText", H::kAgent},
    {"GET", "/session/{sessionId}/screenshot", "takeScreenshot", H::kAgent},
    {"GET", "/session/{sessionId}/element/{elementId}/screenshot", "takeElementScreenshot", H::kAgent},
    {"POST", "/session/{sessionId}/print", "printPage", H::kUnsupported},
};

std::vector<std::string> Split(const std::string& path) {
  std::vector<std::string> segments;
  size_t at = 0;
  while (at < path.size()) {
    if (path[at] == '/') {
      ++at;
      continue;
    }
    const size_t end = path.find('/', at);
    segments.push_back(path.substr(at, end == std::string::npos ? std::string::npos : end - at));
    at = end == std::string::npos ? path.size() : end;
  }
  return segments;
}

// Empty segments ("//") never match: the path must be canonical apart from
// one trailing slash.
bool Canonical(const std::string& path) {
  if (path.empty() || path[0] != '/') return false;
  const std::string trimmed = path.size() > 1 && path.back() == '/' ? path.substr(0, path.size() - 1) : path;
  return trimmed.find("//") == std::string::npos;
}

bool MatchSegments(const std::vector<std::string>& pattern, const std::vector<std::string>& segments,
                   std::map<std::string, std::string>* parameters) {
  if (pattern.size() != segments.size()) return false;
  for (size_t i = 0; i < pattern.size(); ++i) {
    const std::string& part = pattern[i];
    if (part.size() > 2 && part.front() == '{' && part.back() == '}') {
      if (parameters != nullptr) (*parameters)[part.substr(1, part.size() - 2)] = segments[i];
    } else if (part != segments[i]) {
      return false;
    }
  }
  return true;
}

}  // namespace

RouteMatch MatchRoute(const std::string& method, const std::string& requestPath) {
  RouteMatch match;
  std::string path = requestPath;
  if (path.rfind("/wd/hub/", 0) == 0) path = path.substr(7);
  if (!Canonical(path)) {
    match.failure = {"unknown command", "no command at " + requestPath};
    return match;
  }
  const std::vector<std::string> segments = Split(path);
  bool pathKnown = false;
  // HEAD is GET without the body (the HTTP layer drops it).
  const std::string wanted = method == "HEAD" ? "GET" : method;
  for (const Route& route : kRoutes) {
    if (!MatchSegments(Split(route.path), segments, nullptr)) continue;
    pathKnown = true;
    if (wanted != route.method) continue;
    match.route = &route;
    MatchSegments(Split(route.path), segments, &match.parameters);
    return match;
  }
  if (pathKnown)
    match.failure = {"unknown method", method + " is not a method of " + requestPath};
  else
    match.failure = {"unknown command", "no command at " + requestPath};
  return match;
}

const Route* Routes(size_t* count) {
  *count = sizeof kRoutes / sizeof kRoutes[0];
  return kRoutes;
}

}  // namespace kwdriver
