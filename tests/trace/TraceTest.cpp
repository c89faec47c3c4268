// The trace log read back byte for byte: kwQtWrappers.dll loaded and unloaded
// as a host does it, and the trace object linked into this program itself,
// which writes arbitrary messages.
#include "trace/TraceLog.h"

#include "DebugOutputCapture.h"

#include <windows.h>

#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <string>
#include <thread>
#include <vector>

namespace fs = std::filesystem;
using tracetest::DebugOutputCapture;
using tracetest::DebugText;

namespace {

const char kEnd[] = "The end of the trace file.";
const auto npos = std::string::npos;

void SetTraceFolder(HKEY root, const std::wstring& folder) {
  ASSERT_EQ(ERROR_SUCCESS, RegSetKeyValueW(root, L"SOFTWARE\\Quillmoor", L"DebugTraceFolder", REG_SZ, folder.c_str(),
                                           static_cast<DWORD>((folder.size() + 1) * sizeof(wchar_t))));
}

// Removes the value from every place the library reads it (in a 64-bit
// process the machine place's 64-bit view is its default one).
void ClearTraceFolders() {
  for (HKEY root : {HKEY_CURRENT_USER, HKEY_LOCAL_MACHINE})
    RegDeleteKeyValueW(root, L"SOFTWARE\\Quillmoor", L"DebugTraceFolder");
}

std::wstring ModulePath(HMODULE module) {
  wchar_t buffer[MAX_PATH + 1] = {};
  GetModuleFileNameW(module, buffer, MAX_PATH);
  return buffer;
}

std::wstring TempFolder() { return fs::temp_directory_path().wstring() + L"\\"; }
std::wstring LibraryPath() { return fs::path(ModulePath(nullptr)).parent_path().wstring() + L"\\kwQtWrappers.dll"; }
std::wstring Stem(const std::wstring& path) { return fs::path(path).stem().wstring(); }

// "<exe>_<pid>", and for a library "_<library>_<16 upper-case hex digits of
// its load address>" after that.
std::wstring TraceName(HMODULE library = nullptr) {
  const std::wstring name = Stem(ModulePath(nullptr)) + L"_" + std::to_wstring(GetCurrentProcessId());
  if (library == nullptr) return name;
  wchar_t address[32] = {};
  swprintf(address, 32, L"%016llX", static_cast<unsigned long long>(reinterpret_cast<UINT_PTR>(library)));
  return name + L"_" + Stem(ModulePath(library)) + L"_" + address;
}

std::string ReadBytes(const std::wstring& path) {
  std::ifstream in(fs::path(path), std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

std::string Utf8(const std::wstring& text) {
  const int size =
      WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), nullptr, 0, nullptr, nullptr);
  std::string out(static_cast<size_t>(size), '\0');
  WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), &out[0], size, nullptr, nullptr);
  return out;
}

// Local time in milliseconds on one scale; -1 for a time that does not exist.
long long Millis(const SYSTEMTIME& time) {
  FILETIME file{};
  if (!SystemTimeToFileTime(&time, &file)) return -1;
  return static_cast<long long>((static_cast<ULONGLONG>(file.dwHighDateTime) << 32 | file.dwLowDateTime) / 10000);
}

long long NowMillis() {
  SYSTEMTIME now;
  GetLocalTime(&now);
  return Millis(now);
}

// ---- reading a trace file

struct Line {
  unsigned long threadId;
  long long millis;
  std::string message;
};

// "YYYY-MM-DD hh:mm:ss.mmm ", the thread id as "%5u", three blanks, the
// message and CR LF, with no other CR or LF.
std::vector<Line> ParseLines(const std::string& bytes) {
  std::vector<Line> lines;
  for (size_t pos = 0, end = 0; pos < bytes.size(); pos = end + 2) {
    end = bytes.find("\r\n", pos);
    const std::string raw = bytes.substr(pos, end == npos ? npos : end - pos);
    unsigned f[7] = {};
    unsigned long thread = 0;
    char prefix[64] = "";
    if (sscanf(raw.c_str(), "%4u-%2u-%2u %2u:%2u:%2u.%3u %lu", &f[0], &f[1], &f[2], &f[3], &f[4], &f[5], &f[6],
               &thread) == 8)
      snprintf(prefix, sizeof(prefix), "%04u-%02u-%02u %02u:%02u:%02u.%03u %5lu   ", f[0], f[1], f[2], f[3], f[4], f[5],
               f[6], thread);
    const SYSTEMTIME time = {WORD(f[0]), WORD(f[1]), 0, WORD(f[2]), WORD(f[3]), WORD(f[4]), WORD(f[5]), WORD(f[6])};
    if (end == npos || !*prefix || raw.compare(0, strlen(prefix), prefix) != 0 || raw.find_first_of("\r\n") != npos ||
        Millis(time) < 0) {
      ADD_FAILURE() << "not a trace line: [" << raw << "]";
      break;
    }
    lines.push_back({thread, Millis(time), raw.substr(strlen(prefix))});
  }
  return lines;
}

// The lines of the block that starts at byte `at` with its three-line separator.
std::vector<Line> Block(const std::string& bytes, size_t at = 0) {
  if (bytes.compare(at, 6, "\r\n\r\n\r\n") != 0) {
    ADD_FAILURE() << "no separator at byte " << at << " of [" << bytes << "]";
    return {};
  }
  return ParseLines(bytes.substr(at + 6));
}

std::vector<std::string> Messages(const std::vector<Line>& lines) {
  std::vector<std::string> out;
  for (const Line& line : lines) out.push_back(line.message);
  return out;
}

// The header the trace writer in `modulePath` gives a file named `name`,
// then the closing line.
std::vector<std::string> ExpectedBlock(const std::wstring& name, const std::wstring& modulePath) {
  DWORD session = 0xFFFFFFFFu;
  if (!ProcessIdToSessionId(GetCurrentProcessId(), &session)) session = 0xFFFFFFFFu;
  wchar_t host[16] = {};
  DWORD hostChars = 16;
  if (!GetComputerNameW(host, &hostChars)) host[0] = L'\0';
  OSVERSIONINFOW version = {};
  version.dwOSVersionInfoSize = sizeof(version);
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
  GetVersionExW(&version);
#pragma GCC diagnostic pop
  char os[400];
  snprintf(os, sizeof(os), "    OS:       %lu.%lu.%lu.%lu %s", version.dwMajorVersion, version.dwMinorVersion,
           version.dwBuildNumber, version.dwPlatformId, Utf8(version.szCSDVersion).c_str());

  return {
      "The beginning of the trace file.",
      "Process information:",
      "    Name:     " + Utf8(name),
      "    PID:      " + std::to_string(GetCurrentProcessId()),
      "    Priority: " + std::to_string(GetPriorityClass(GetCurrentProcess())),
      "    Session:  " + std::to_string(session),
      "    Host:     " + Utf8(host),
      "    CmdLine:  " + Utf8(GetCommandLineW()),
      os,
      "Module information:",
      "    Path:     " + Utf8(modulePath),
      kEnd,
  };
}

// ---- fixture

// Removes what the temp-folder fall-back left behind: under Wine a later run
// may get the same process id and load address, hence the same file names.
void RemoveTempTraceFiles() {
  std::error_code ignored;
  for (const auto& entry : fs::directory_iterator(TempFolder(), ignored))
    if (entry.path().filename().wstring().rfind(Stem(ModulePath(nullptr)) + L"_", 0) == 0)
      fs::remove(entry.path(), ignored);
}

class TraceTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ClearTraceFolders();
    RemoveTempTraceFiles();
    scratch_ = TempFolder() + L"kwtrace_" + std::to_wstring(GetCurrentProcessId());
    fs::remove_all(scratch_);
    fs::create_directory(scratch_);
  }
  void TearDown() override {
    ClearTraceFolders();
    RemoveTempTraceFiles();
    std::error_code ignored;
    fs::remove_all(scratch_, ignored);
  }
  std::wstring Sub(const std::wstring& name) const { return scratch_ + L"\\" + name; }

  std::wstring scratch_;
};

// A loaded copy of kwQtWrappers.dll.
struct Loaded {
  HMODULE module;
  std::wstring name;  // of its trace file, without ".log"
  std::wstring path;
};

Loaded Load(const std::wstring& path) {
  HMODULE module = LoadLibraryW(path.c_str());
  EXPECT_NE(nullptr, module) << "cannot load " << Utf8(path);
  return module != nullptr ? Loaded{module, TraceName(module), ModulePath(module)} : Loaded{};
}

// A user folder (one level is created) gets one file per loaded copy; the
// header is flushed line by line and the closing line comes at unload; each
// line is of its thread and time and goes to the debugger too.
TEST_F(TraceTest, UserFolderGetsAFlushedBlockPerLoadedCopyAndEveryLineGoesToTheDebugger) {
  const std::wstring folder = Sub(L"trace");  // not there yet: one level is created by the library
  SetTraceFolder(HKEY_CURRENT_USER, folder);
  // A copy loaded all along: two loaded copies never share a load address.
  const std::wstring copyPath = Sub(L"kwQtWrappers.dll");
  ASSERT_TRUE(CopyFileW(LibraryPath().c_str(), copyPath.c_str(), FALSE));
  const Loaded copy = Load(copyPath);
  ASSERT_NE(nullptr, copy.module);

  DebugOutputCapture capture;
  const long long before = NowMillis();
  const Loaded loaded = Load(LibraryPath());
  ASSERT_NE(nullptr, loaded.module);
  const std::wstring file = folder + L"\\" + loaded.name + L".log";
  const std::vector<std::string> expected = ExpectedBlock(loaded.name, loaded.path);

  // The folder holds one "<exe>_<pid>_kwQtWrappers_<address>.log" per copy.
  std::set<std::wstring> files;
  for (const auto& entry : fs::directory_iterator(folder)) files.insert(entry.path().filename().wstring());
  EXPECT_EQ((std::set<std::wstring>{loaded.name + L".log", copy.name + L".log"}), files);

  // While loaded, the header is in the file already: written line by line.
  const std::string whileLoaded = ReadBytes(file);
  EXPECT_EQ(std::vector<std::string>(expected.begin(), expected.end() - 1), Messages(Block(whileLoaded)));

  FreeLibrary(loaded.module);
  const long long after = NowMillis();
  const std::vector<DebugText> heard = capture.Stop();
  const std::string bytes = ReadBytes(file);
  EXPECT_EQ(0u, bytes.compare(0, whileLoaded.size(), whileLoaded)) << "unloading rewrote earlier lines";
  const std::vector<Line> lines = Block(bytes);
  EXPECT_EQ(expected, Messages(lines));

  // One thread loaded and unloaded the library; the debugger got each
  // message, then a lone line feed, in the order of the file.
  std::vector<std::string> expectedDebug, debugTexts;
  for (const Line& line : lines) {
    EXPECT_EQ(GetCurrentThreadId(), line.threadId) << line.message;
    EXPECT_GE(line.millis, before) << line.message;
    EXPECT_LE(line.millis, after) << line.message;
    expectedDebug.insert(expectedDebug.end(), {line.message, "\n"});
  }
  for (const DebugText& text : heard) debugTexts.push_back(text.text);
  EXPECT_EQ(expectedDebug, debugTexts);

  FreeLibrary(copy.module);
  EXPECT_EQ(ExpectedBlock(copy.name, copy.path), Messages(Block(ReadBytes(folder + L"\\" + copy.name + L".log"))));
}

// The user place, then the machine place; a folder that takes no file falls
// back to the temp folder; with no folder anywhere nothing is written.
TEST_F(TraceTest, TheFirstPlaceGivingAFolderIsUsedThenTheTempFolder) {
  enum Where { kMachine, kTemp, kNowhere };
  const struct {
    const char* what;
    const wchar_t* user;  // under the scratch folder; null: no user value
    bool machine;         // whether the machine place names a folder
    Where where;
  } rows[] = {
      {"no user value", nullptr, true, kMachine},
      {"an empty user value", L"", true, kMachine},
      {"a user folder whose parent is missing", L"missing\\trace", true, kMachine},
      // The folder "exists", so the user place is taken, but no file opens in it.
      {"a user value naming a plain file", L"plain.txt", true, kTemp},
      {"no value anywhere", nullptr, false, kNowhere},
  };
  std::ofstream(fs::path(Sub(L"plain.txt")), std::ios::binary) << "not a folder";
  for (const auto& row : rows) {
    SCOPED_TRACE(row.what);
    ClearTraceFolders();
    RemoveTempTraceFiles();
    const std::wstring machineFolder = Sub(L"machine" + std::to_wstring(&row - rows));
    if (row.user) SetTraceFolder(HKEY_CURRENT_USER, *row.user ? Sub(row.user) : L"");
    if (row.machine) SetTraceFolder(HKEY_LOCAL_MACHINE, machineFolder);

    DebugOutputCapture capture;
    const Loaded loaded = Load(LibraryPath());
    FreeLibrary(loaded.module);
    const std::vector<DebugText> heard = capture.Stop();
    const std::wstring files[] = {machineFolder + L"\\" + loaded.name + L".log", TempFolder() + loaded.name + L".log"};
    for (Where place : {kMachine, kTemp}) {
      EXPECT_EQ(place == row.where, fs::exists(files[place])) << Utf8(files[place]);
      if (place == row.where) {
        EXPECT_EQ(ExpectedBlock(loaded.name, loaded.path), Messages(Block(ReadBytes(files[place]))));
      }
    }
    EXPECT_EQ(row.where == kMachine, fs::exists(machineFolder)) << "the machine place is read only when needed";
    EXPECT_FALSE(fs::exists(Sub(L"missing"))) << "only one folder level may be created";
    EXPECT_EQ("not a folder", ReadBytes(Sub(L"plain.txt")));
    EXPECT_EQ(row.where == kNowhere, heard.empty()) << "without a file the debugger hears nothing either";
  }
}

// The trace object linked into this program, which is then both the
// process's executable and the module that writes the log: its file is named
// "<exe>_<pid>", messages are whole UTF-8 lines of their thread, a late write
// does nothing and each opening appends a block.
TEST_F(TraceTest, InTheExecutableEachOpeningAppendsABlockOfWholeUtf8Lines) {
  SetTraceFolder(HKEY_CURRENT_USER, scratch_);
  const std::wstring file = Sub(TraceName() + L".log");
  OpenTraceLog();

  std::vector<std::string> expected;
  for (size_t length : {2046u, 2047u, 2048u, 4095u, 4096u, 10000u}) {
    std::wstring text(length, L'x');
    for (size_t i = 0; i < length; i += 97)
      text[i] = static_cast<wchar_t>(L'a' + (i / 97) % 26);  // catches a repeated or dropped chunk
    TraceWrite(L"%s", text.c_str());
    expected.push_back(Utf8(text));
  }
  // Formatting itself, not only the argument, may run past the buffer.
  TraceWrite(L"%s|%u", std::wstring(2045, L'y').c_str(), 123456u);
  expected.push_back(std::string(2045, 'y') + "|123456");
  // Wide "%s", all 16 upper-case hex digits for "%p", UTF-8 in the file.
  TraceWrite(L"s=%s u=%u p=%p", L"Gr\u00FC\u00DFe \u20AC \U0001F600", 4294967295u,
             reinterpret_cast<void*>(static_cast<UINT_PTR>(0x00007FF6ABCD0123ull)));
  expected.push_back(
      "s=Gr\xC3\xBC\xC3\x9F"
      "e \xE2\x82\xAC \xF0\x9F\x98\x80 u=4294967295 p=00007FF6ABCD0123");
  DWORD thread = 0;
  std::thread([&thread] { TraceWrite(L"thread %u", thread = GetCurrentThreadId()); }).join();
  expected.push_back("thread " + std::to_string(thread));

  // Line breaks in a message: the debugger hears it without CRs, then a line
  // feed, both before the line reaches the file.
  const size_t before = ReadBytes(file).size();
  DebugOutputCapture capture(file);
  TraceWrite(L"first\r\nsecond\rthird\n");
  const std::vector<DebugText> heard = capture.Stop();
  const size_t afterWrite = ReadBytes(file).size();
  TraceWrite(L"after");
  CloseTraceLog();
  TraceWrite(L"after closing");  // a no-op once closed

  const std::string bytes = ReadBytes(file);
  const std::vector<Line> lines = Block(bytes.substr(0, before));
  std::vector<std::string> written = ExpectedBlock(TraceName(), ModulePath(nullptr));
  written.pop_back();  // the closing line comes later
  written.insert(written.end(), expected.begin(), expected.end());
  EXPECT_EQ(written, Messages(lines));
  ASSERT_FALSE(lines.empty());
  EXPECT_EQ(thread, lines.back().threadId);
  EXPECT_EQ(npos, bytes.find("\xEF\xBB\xBF")) << "no byte-order mark";

  ASSERT_EQ(2u, heard.size());
  EXPECT_EQ("first\nsecondthird\n", heard[0].text);
  EXPECT_EQ("\n", heard[1].text);
  for (const DebugText& text : heard) EXPECT_EQ(static_cast<long long>(before), text.fileSize);
  // In the file each line feed of the message is CR LF with no prefix after
  // it, the lone CR is gone, and the next line is normal again.
  const std::string added = bytes.substr(before);
  const std::string text = "   first\r\nsecondthird\r\n\r\n";
  const size_t at = added.find(text);
  ASSERT_NE(npos, at) << added;
  EXPECT_EQ(1u, ParseLines(added.substr(0, at) + "   first\r\n").size());
  EXPECT_EQ(before + at + text.size(), afterWrite) << "the whole line is flushed at once";
  EXPECT_EQ((std::vector<std::string>{"after", kEnd}), Messages(ParseLines(added.substr(at + text.size()))));

  OpenTraceLog();
  CloseTraceLog();
  EXPECT_EQ(ExpectedBlock(TraceName(), ModulePath(nullptr)), Messages(Block(ReadBytes(file), bytes.size())));
}

}  // namespace
