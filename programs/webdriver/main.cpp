// kwdriver.exe: a W3C WebDriver server for Qt 4.8 applications. Each
// session starts an application (or attaches to a running one) with the
// agent inside it and forwards WebDriver commands to that agent.
//   kwdriver [--port N] [--host ADDR] [--max-sessions N] [--log-level quiet|info|debug]
// Ctrl+C, Ctrl+Break, closing the console or logging off end every
// application it launched (attached ones are left running) before it exits.
#include <windows.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>

#include "webdriver/Agent.h"
#include "webdriver/Driver.h"
#include "webdriver/HttpServer.h"
#include "webdriver/Log.h"

namespace {

HANDLE g_stop = nullptr;      // set by the console control handler
HANDLE g_stopped = nullptr;   // set once every session has ended

BOOL WINAPI OnConsoleControl(DWORD event) {
  SetEvent(g_stop);
  // After a close, logoff or shutdown event the process ends as soon as the
  // handler returns: wait here for the sessions to end.
  if (event == CTRL_CLOSE_EVENT || event == CTRL_LOGOFF_EVENT || event == CTRL_SHUTDOWN_EVENT)
    WaitForSingleObject(g_stopped, 15000);
  return TRUE;
}

int Usage(const char* problem) {
  if (problem != nullptr) std::fprintf(stderr, "kwdriver: %s\n", problem);
  std::fprintf(stderr,
               "usage: kwdriver [--port N] [--host ADDR] [--max-sessions N] [--log-level quiet|info|debug]\n"
               "  --port N          port to listen on (default 4723; 0 takes a free one)\n"
               "  --host ADDR       address to listen on (default 127.0.0.1)\n"
               "  --max-sessions N  most sessions at once (default 0: no limit)\n"
               "  --log-level L     quiet, info (a line per command, default) or debug (with bodies)\n");
  return 2;
}

bool ReadNumber(const char* text, long low, long high, long* out) {
  char* end = nullptr;
  const long number = std::strtol(text, &end, 10);
  if (end == text || *end != '\0' || number < low || number > high) return false;
  *out = number;
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  std::string host = "127.0.0.1";
  long port = 4723, maxSessions = 0;
  for (int i = 1; i < argc; ++i) {
    const std::string option = argv[i];
    if (option == "--help" || option == "-h") return Usage(nullptr);
    if (i + 1 >= argc) return Usage(("missing value after " + option).c_str());
    const char* value = argv[++i];
    if (option == "--port") {
      if (!ReadNumber(value, 0, 65535, &port)) return Usage("--port takes 0..65535");
    } else if (option == "--host") {
      host = value;
    } else if (option == "--max-sessions") {
      if (!ReadNumber(value, 0, 100000, &maxSessions)) return Usage("--max-sessions takes a number, 0 for no limit");
    } else if (option == "--log-level") {
      const std::string level = value;
      if (level == "quiet") kwdriver::SetLogLevel(kwdriver::LogLevel::kQuiet);
      else if (level == "info") kwdriver::SetLogLevel(kwdriver::LogLevel::kInfo);
      else if (level == "debug") kwdriver::SetLogLevel(kwdriver::LogLevel::kDebug);
      else return Usage("--log-level takes quiet, info or debug");
    } else {
      return Usage(("unknown option " + option).c_str());
    }
  }

  g_stop = CreateEventW(nullptr, TRUE, FALSE, nullptr);
  g_stopped = CreateEventW(nullptr, TRUE, FALSE, nullptr);
  SetConsoleCtrlHandler(OnConsoleControl, TRUE);

  kwdriver::DriverOptions options;
  options.maxSessions = static_cast<int>(maxSessions);
  kwdriver::Driver driver(kwdriver::MakePipeAgentStarter(), options);
  kwdriver::HttpServer http(&driver);
  int bound = 0;
  if (!http.Bind(host, static_cast<int>(port), &bound)) {
    std::fprintf(stderr, "kwdriver: cannot listen on %s:%ld\n", host.c_str(), port);
    return 1;
  }
  const std::string shown = host.find(':') != std::string::npos ? "[" + host + "]" : host;
  kwdriver::LogLine("kwdriver listening on http://" + shown + ":" + std::to_string(bound));

  std::thread serving([&http] { http.Run(); });
  WaitForSingleObject(g_stop, INFINITE);
  if (kwdriver::Logging(kwdriver::LogLevel::kInfo)) kwdriver::LogLine("kwdriver stopping");
  http.Stop();
  driver.EndAll();
  if (kwdriver::Logging(kwdriver::LogLevel::kInfo)) kwdriver::LogLine("kwdriver stopped");
  SetEvent(g_stopped);
  // The server's threads are not waited for: one that serves a client's
  // idle keep-alive connection waits out its timeout (30 s) before it
  // looks again, and the sessions and their applications have ended.
  std::fflush(nullptr);
  ExitProcess(0);
}
