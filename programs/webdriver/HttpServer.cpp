#include "webdriver/HttpServer.h"

#include <chrono>
#include <cstdio>

#include <httplib.h>

#include "webdriver/Driver.h"
#include "webdriver/Errors.h"
#include "webdriver/Log.h"

namespace kwdriver {

namespace {

std::string Clip(const std::string& text, size_t limit = 400) {
  return text.size() <= limit ? text : text.substr(0, limit) + "... (" + std::to_string(text.size()) + " bytes)";
}

// Only a printable ASCII view of what a client sent goes to the log.
std::string Printable(const std::string& text) {
  std::string out;
  for (unsigned char c : Clip(text, 200)) out += (c >= 32 && c < 127) ? static_cast<char>(c) : '?';
  return out;
}

}  // namespace

HttpServer::HttpServer(Driver* driver, size_t bodyLimit) : m_driver(driver), m_server(new httplib::Server) {
  httplib::Server& server = *m_server;
  server.set_payload_max_length(bodyLimit);
  server.set_keep_alive_max_count(100000);
  server.set_keep_alive_timeout(30);
  // A request with neither Content-Length nor chunks has no body (RFC 9112
  // 6.3); this version of the library would read one until the connection
  // ends, and Python's http.client sends DELETE so. The request is the
  // library's own, not const, object.
  server.set_pre_routing_handler([](const httplib::Request& request, httplib::Response&) {
    if (!request.has_header("Content-Length") && !request.has_header("Transfer-Encoding"))
      const_cast<httplib::Request&>(request).set_header("Content-Length", "0");
    return httplib::Server::HandlerResponse::Unhandled;
  });
  // No route is registered, so that no path meets a regular expression (the
  // library's std::regex recurses as deep as the path is long): a request
  // that passes HTTP's checks arrives here as "not found", and the driver
  // routes it. Requests HTTP itself refused arrive with their status.
  server.set_error_handler(httplib::Server::HandlerWithResponse(
      [this, bodyLimit](const httplib::Request& request, httplib::Response& response) {
    const auto start = std::chrono::steady_clock::now();
    HttpAnswer answer;
    const bool routed = response.status == 404;
    try {
      // Methods WebDriver has no endpoint for (PUT, PATCH, OPTIONS, ...)
      // come as 400; the driver answers them "unknown method" or "unknown command".
      const bool otherMethod = response.status == 400 && !request.method.empty() && !request.path.empty() &&
                               request.method != "GET" && request.method != "HEAD" && request.method != "POST" &&
                               request.method != "DELETE";
      if (routed || otherMethod) {
        answer = m_driver->Handle(request.method, request.path, request.body);
      } else if (response.status == 413) {
        answer = {413, Dump(ErrorBody("invalid argument",
                                      "the body is larger than " + std::to_string(bodyLimit) + " bytes"))};
      } else if (response.status == 414) {
        answer = {414, Dump(ErrorBody("invalid argument", "the request line is too long"))};
      } else {
        answer = {400, Dump(ErrorBody("invalid argument", "malformed HTTP request (" +
                                                               std::to_string(response.status) + ")"))};
      }
    } catch (const std::exception& error) {
      answer = {500, Dump(ErrorBody("unknown error", std::string("kwdriver: ") + error.what()))};
    } catch (...) {
      answer = {500, Dump(ErrorBody("unknown error", "kwdriver: unexpected failure"))};
    }
    response.status = answer.status;
    response.set_header("Cache-Control", "no-cache");
    response.set_content(answer.body, "application/json; charset=utf-8");
    if (Logging(LogLevel::kInfo)) {
      const double ms =
          std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
      char duration[32];
      std::snprintf(duration, sizeof duration, "%.1f ms", ms);
      std::string line = (request.method.empty() ? std::string("?") : Printable(request.method)) + " " +
                         Printable(request.path) + " " + std::to_string(answer.status) + " " + duration;
      if (Logging(LogLevel::kDebug)) {
        if (!request.body.empty()) line += "\n  <- " + Printable(request.body);
        line += "\n  -> " + Clip(answer.body);
      }
      LogLine(line);
    }
    return httplib::Server::HandlerResponse::Handled;
  }));
}

HttpServer::~HttpServer() = default;

bool HttpServer::Bind(const std::string& host, int port, int* bound) {
  if (port == 0) {
    const int taken = m_server->bind_to_any_port(host);
    if (taken <= 0) return false;
    *bound = taken;
    return true;
  }
  if (!m_server->bind_to_port(host, port)) return false;
  *bound = port;
  return true;
}

void HttpServer::Run() { m_server->listen_after_bind(); }

void HttpServer::Stop() { m_server->stop(); }

}  // namespace kwdriver
