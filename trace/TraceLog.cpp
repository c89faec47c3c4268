// Debug trace log: an optional UTF-8 file per process and loaded copy of the
// library, switched on by the registry value "DebugTraceFolder".
//
// Formatting deliberately uses the msvcrt functions with a leading underscore
// (_vsnwprintf, _snwprintf, _fprintf_l). g++ on mingw-w64 defines
// __USE_MINGW_ANSI_STDIO, which turns printf/swprintf into the C99 versions
// where a wide "%s" means a narrow string and "%p" has another shape; the
// underscore functions keep the MS meaning: wide "%s" takes a wide string and
// "%p" prints all 16 hex digits of a pointer in upper case.
#include "trace/TraceLog.h"

#include <windows.h>

#include <errno.h>
#include <locale.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <wchar.h>

#include <climits>

// The library's own image. Static initialisation (where the log is opened)
// runs before DllMain has stored the module handle, so the linker-provided
// symbol is the one reliable way to name this module.
extern "C" IMAGE_DOS_HEADER __ImageBase;

namespace {

constexpr size_t kPathChars = MAX_PATH;   // names and paths
constexpr DWORD kFolderValueBytes = 520;  // registry value buffer
constexpr const wchar_t kQuillmoorKey[] = L"SOFTWARE\\Quillmoor";
constexpr const wchar_t kFolderValue[] = L"DebugTraceFolder";
constexpr const wchar_t kInvalidText[] = L"<Invalid string data>";
constexpr const char kLineFormat[] = "%.4d-%.2d-%.2d %.2d:%.2d:%.2d.%.3d %5u   %s\n";

// Null while tracing is off. Set once while the library loads, cleared when
// it unloads; only read in between.
FILE* g_traceFile = nullptr;
// "C" locale for the line prefix, so no number ever takes the user's locale.
_locale_t g_traceLocale = nullptr;

HMODULE ThisModule() { return reinterpret_cast<HMODULE>(&__ImageBase); }

// "C:\dir\my.tool.exe" -> "my.tool"; a name without a dot is kept whole.
void FileStem(const wchar_t* path, wchar_t* stem, size_t stemChars) {
  const wchar_t* name = wcsrchr(path, L'\\');
  name = name ? name + 1 : path;
  size_t len = wcslen(name);
  if (const wchar_t* dot = wcsrchr(name, L'.')) len = static_cast<size_t>(dot - name);
  if (len >= stemChars) len = stemChars - 1;
  wmemcpy(stem, name, len);
  stem[len] = L'\0';
}

// "<exe>_<pid>_<library>_<load address>", or "<exe>_<pid>" when the library
// is the process's executable itself.
bool MakeTraceName(wchar_t* name, size_t nameChars) {
  wchar_t exePath[kPathChars + 1] = {};
  if (GetModuleFileNameW(nullptr, exePath, kPathChars) == 0) return false;
  wchar_t exeStem[kPathChars + 1];
  FileStem(exePath, exeStem, kPathChars + 1);

  const DWORD pid = GetCurrentProcessId();
  if (GetModuleHandleW(nullptr) != ThisModule()) {
    wchar_t libPath[kPathChars + 1] = {};
    GetModuleFileNameW(ThisModule(), libPath, kPathChars);
    wchar_t libStem[kPathChars + 1];
    FileStem(libPath, libStem, kPathChars + 1);
    _snwprintf(name, nameChars - 1, L"%s_%u_%s_%p", exeStem, static_cast<unsigned>(pid), libStem,
               static_cast<void*>(ThisModule()));
  } else {
    _snwprintf(name, nameChars - 1, L"%s_%u", exeStem, static_cast<unsigned>(pid));
  }
  name[nameChars - 1] = L'\0';
  return true;
}

// Reads DebugTraceFolder from one registry place and makes sure the folder
// exists (one level is created; an existing one is fine). False when this
// place yields no folder and the next one must be tried.
bool FolderFromPlace(HKEY root, REGSAM access, wchar_t* folder) {
  HKEY key = nullptr;
  if (RegOpenKeyExW(root, kQuillmoorKey, 0, access, &key) != ERROR_SUCCESS) return false;
  // Two spare zero bytes keep a value that fills all 520 bytes terminated.
  BYTE data[kFolderValueBytes + sizeof(wchar_t)] = {};
  DWORD size = kFolderValueBytes;
  const LONG rc = RegQueryValueExW(key, kFolderValue, nullptr, nullptr, data, &size);
  RegCloseKey(key);
  if (rc != ERROR_SUCCESS) return false;
  memcpy(folder, data, sizeof(data));
  if (!CreateDirectoryW(folder, nullptr) && GetLastError() != ERROR_ALREADY_EXISTS) return false;
  return true;
}

bool FindTraceFolder(wchar_t* folder) {
  return FolderFromPlace(HKEY_CURRENT_USER, KEY_QUERY_VALUE, folder) ||
         FolderFromPlace(HKEY_LOCAL_MACHINE, KEY_QUERY_VALUE, folder) ||
         FolderFromPlace(HKEY_LOCAL_MACHINE, KEY_QUERY_VALUE | KEY_WOW64_64KEY, folder);
}

FILE* OpenInFolder(const wchar_t* folder, const wchar_t* name) {
  // wsprintfW never writes more than 1024 characters.
  wchar_t path[1025] = {};
  wsprintfW(path, L"%s\\%s.log", folder, name);
  return _wfopen(path, L"a");
}

wchar_t* CopyOfInvalidText() { return _wcsdup(kInvalidText); }

// Formats into a heap buffer of 2048 characters, doubled on every retry.
// Returns a malloc'ed text ("<Invalid string data>" for a format or argument
// the runtime rejects) or null when not even that could be allocated.
wchar_t* FormatText(const wchar_t* format, va_list args) {
  if (!format) return CopyOfInvalidText();
  size_t chars = 1024;
  for (;;) {
    if (chars > static_cast<size_t>(INT_MAX) / 2) return CopyOfInvalidText();  // a longer text has no int length
    chars *= 2;
    auto* buffer = static_cast<wchar_t*>(malloc(chars * sizeof(wchar_t)));
    if (!buffer) return CopyOfInvalidText();

    va_list attempt;
    va_copy(attempt, args);
    errno = 0;
    const int written = _vsnwprintf(buffer, chars - 1, format, attempt);
    const int error = errno;
    va_end(attempt);

    if (written >= 0 && static_cast<size_t>(written) < chars) {
      buffer[written] = L'\0';
      return buffer;
    }
    free(buffer);
    // -1 with errno 0 or ERANGE is a truncation: try a larger buffer.
    if (written >= 0 || error == 0 || error == ERANGE) continue;
    return CopyOfInvalidText();
  }
}

void RemoveCarriageReturns(wchar_t* text) {
  wchar_t* out = text;
  for (const wchar_t* in = text; *in; ++in)
    if (*in != L'\r') *out++ = *in;
  *out = L'\0';
}

// malloc'ed UTF-8 copy of text, or null when the conversion fails.
char* ToUtf8(const wchar_t* text) {
  const int needed = WideCharToMultiByte(CP_UTF8, 0, text, -1, nullptr, 0, nullptr, nullptr);
  if (needed <= 0) return nullptr;
  auto* utf8 = static_cast<char*>(calloc(static_cast<size_t>(needed) + 1, 1));
  if (!utf8) return nullptr;
  if (WideCharToMultiByte(CP_UTF8, 0, text, -1, utf8, needed + 1, nullptr, nullptr) <= 0) {
    free(utf8);
    return nullptr;
  }
  return utf8;
}

// The message without carriage returns, then a lone line feed.
void SendToDebugger(wchar_t* message) {
  RemoveCarriageReturns(message);
  OutputDebugStringW(message);
  OutputDebugStringW(L"\n");
}

void WriteLine(wchar_t* message) {
  SendToDebugger(message);

  char* utf8 = ToUtf8(message);
  if (!utf8) utf8 = ToUtf8(kInvalidText);
  static char empty[] = "";
  const char* text = utf8 ? utf8 : empty;

  SYSTEMTIME now;
  GetLocalTime(&now);
  // One formatted write keeps the line whole under the stream's own lock.
  _fprintf_l(g_traceFile, kLineFormat, g_traceLocale, now.wYear, now.wMonth, now.wDay, now.wHour, now.wMinute,
             now.wSecond, now.wMilliseconds, static_cast<unsigned>(GetCurrentThreadId()), text);
  fflush(g_traceFile);
  free(utf8);
}

void WriteHeader(const wchar_t* traceName) {
  TraceWrite(L"The beginning of the trace file.");

  DWORD session = 0xFFFFFFFFu;
  if (!ProcessIdToSessionId(GetCurrentProcessId(), &session)) session = 0xFFFFFFFFu;

  OSVERSIONINFOW version = {};
  version.dwOSVersionInfoSize = sizeof(version);
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
  GetVersionExW(&version);
#pragma GCC diagnostic pop

  wchar_t host[16] = {};
  DWORD hostChars = 16;
  if (!GetComputerNameW(host, &hostChars)) host[0] = L'\0';

  TraceWrite(L"Process information:");
  TraceWrite(L"    Name:     %s", traceName);
  TraceWrite(L"    PID:      %u", static_cast<unsigned>(GetCurrentProcessId()));
  TraceWrite(L"    Priority: %u", static_cast<unsigned>(GetPriorityClass(GetCurrentProcess())));
  TraceWrite(L"    Session:  %u", static_cast<unsigned>(session));
  TraceWrite(L"    Host:     %s", host);
  TraceWrite(L"    CmdLine:  %s", GetCommandLineW());
  TraceWrite(L"    OS:       %d.%d.%d.%d %s", static_cast<int>(version.dwMajorVersion),
             static_cast<int>(version.dwMinorVersion), static_cast<int>(version.dwBuildNumber),
             static_cast<int>(version.dwPlatformId), version.szCSDVersion);

  wchar_t libPath[kPathChars + 1] = {};
  GetModuleFileNameW(ThisModule(), libPath, kPathChars);
  TraceWrite(L"Module information:");
  TraceWrite(L"    Path:     %s", libPath);
}

void OpenTraceFile() {
  if (g_traceFile) return;

  wchar_t name[kPathChars + 1] = {};
  if (!MakeTraceName(name, kPathChars + 1)) return;

  wchar_t folder[kPathChars + 1] = {};
  if (!FindTraceFolder(folder)) return;  // tracing is off

  FILE* file = OpenInFolder(folder, name);
  if (!file) {
    // The temp path ends in a backslash, so this path has a doubled one
    // before the file name; Windows accepts it.
    wchar_t temp[kPathChars + 1] = {};
    const DWORD len = GetTempPathW(kPathChars, temp);
    if (len == 0 || len > kPathChars) return;
    file = OpenInFolder(temp, name);
    if (!file) return;
  }

  // _create_locale comes from mingw-w64's msvcrt import library, which
  // forwards to msvcrt.dll. Should it fail, _fprintf_l falls back to the
  // current locale; the line prefix holds only integers and '-', ':', '.'.
  g_traceLocale = _create_locale(LC_ALL, "C");
  g_traceFile = file;
  fputs("\n\n\n", g_traceFile);
  WriteHeader(name);
}

}  // namespace

void OpenTraceLog() {
  OpenTraceFile();
  atexit(CloseTraceLog);
}

void CloseTraceLog() {
  if (g_traceFile) {
    TraceWrite(L"The end of the trace file.");
    fclose(g_traceFile);
    // Cleared so that a late TraceWrite is a no-op rather than a write to
    // a closed stream.
    g_traceFile = nullptr;
  }
  if (g_traceLocale) {
    _free_locale(g_traceLocale);
    g_traceLocale = nullptr;
  }
}

void TraceWrite(const wchar_t* format, ...) {
  if (!g_traceFile) return;
  va_list args;
  va_start(args, format);
  wchar_t* message = FormatText(format, args);
  va_end(args);
  if (!message) return;  // not even "<Invalid string data>" could be allocated
  WriteLine(message);
  free(message);
}

void DebugWrite(const wchar_t* format, ...) {
  va_list args;
  va_start(args, format);
  wchar_t* message = FormatText(format, args);
  va_end(args);
  if (!message) return;
  SendToDebugger(message);
  free(message);
}
