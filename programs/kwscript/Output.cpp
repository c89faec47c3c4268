#include "kwscript/Output.h"

#include <windows.h>

#include <fcntl.h>
#include <io.h>

#include <cstdio>

namespace kwscript {

namespace {

OutputSink g_sink = nullptr;
void* g_context = nullptr;

}  // namespace

void SetOutputSink(OutputSink sink, void* context) {
  g_sink = sink;
  g_context = context;
}

void UseLineFeedsWhenRedirected() {
  const struct {
    FILE* stream;
    DWORD handle;
  } streams[] = {{stdout, STD_OUTPUT_HANDLE}, {stderr, STD_ERROR_HANDLE}};
  for (const auto& each : streams)
    if (GetFileType(GetStdHandle(each.handle)) != FILE_TYPE_CHAR) _setmode(_fileno(each.stream), _O_BINARY);
}

namespace {

void Print(const QString& line, bool error) {
  if (g_sink != nullptr) {
    g_sink(line, error, g_context);
    return;
  }
  FILE* stream = error ? stderr : stdout;
  std::fprintf(stream, "%s\n", line.toUtf8().constData());
  std::fflush(stream);
}

}  // namespace

void PrintLine(const QString& line) { Print(line, false); }

void PrintError(const QString& line) { Print(line, true); }

}  // namespace kwscript
