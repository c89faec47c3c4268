// kwdriver's console lines: one per command at "info", the bodies too at
// "debug", none at "quiet" (the line saying it listens is always printed).
#pragma once

#include <string>

namespace kwdriver {

enum class LogLevel { kQuiet, kInfo, kDebug };

void SetLogLevel(LogLevel level);
bool Logging(LogLevel level);
// Writes one line to standard output (whole, whatever the threads).
void LogLine(const std::string& line);

}  // namespace kwdriver
