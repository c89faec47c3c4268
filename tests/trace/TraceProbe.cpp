// Test-only DLL around the trace writer: it opens the log during its static
// initialisation exactly as the library does, and exports TraceWrite (which
// the library keeps internal) so that tests can write arbitrary messages.
#include "trace/TraceLog.h"

namespace {
struct TraceStart {
  TraceStart() { OpenTraceLog(); }
} g_traceStart;
}  // namespace

// Writes one line formatted with `format`; the arguments are passed in this
// order, so a format may use "%s", "%u" and "%p" (or fewer of them).
extern "C" __declspec(dllexport) void ProbeTraceWrite(const wchar_t* format, const wchar_t* text, unsigned number,
                                                      void* pointer) {
  TraceWrite(format, text, number, pointer);
}
