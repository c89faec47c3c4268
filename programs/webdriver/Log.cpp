#include "webdriver/Log.h"

#include <atomic>
#include <cstdio>
#include <mutex>

namespace kwdriver {

namespace {
std::atomic<LogLevel> g_level{LogLevel::kInfo};
std::mutex g_output;
}  // namespace

void SetLogLevel(LogLevel level) { g_level = level; }

bool Logging(LogLevel level) { return level != LogLevel::kQuiet && static_cast<int>(g_level.load()) >= static_cast<int>(level); }

void LogLine(const std::string& line) {
  std::lock_guard<std::mutex> hold(g_output);
  std::fwrite(line.data(), 1, line.size(), stdout);
  std::fputc('\n', stdout);
  std::fflush(stdout);
}

}  // namespace kwdriver
