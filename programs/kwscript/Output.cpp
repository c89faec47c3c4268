#include "kwscript/Output.h"

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

QString Quoted(const QString& text) {
  QString out = text;
  out.replace('\\', "\\\\").replace('"', "\\\"").replace('\n', "\\n");
  return '"' + out + '"';
}

void PrintLine(const QString& line) {
  if (g_sink != nullptr) {
    g_sink(line, g_context);
    return;
  }
  std::printf("%s\n", line.toUtf8().constData());
  std::fflush(stdout);
}

}  // namespace kwscript
