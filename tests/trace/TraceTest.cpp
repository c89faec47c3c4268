// The trace log read back byte for byte: kwQtWrappers.dll loaded and unloaded
// as a host does it, the test-only kwTraceProbe.dll (the same trace object
// with TraceWrite exported) for arbitrary messages, and the trace object
// linked into this program itself.
#include "trace/TraceLog.h"

#include <windows.h>

#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace fs = std::filesystem;

namespace {

const char kSeparator[] = "\r\n\r\n\r\n";
const char kEnd[] = "The end of the trace file.";
const auto npos = std::string::npos;

// ---- configuration, paths and files

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

std::wstring TempFolder()  // with its trailing backslash
{
  wchar_t buffer[MAX_PATH + 1] = {};
  GetTempPathW(MAX_PATH, buffer);
  return buffer;
}

std::wstring ExeFolder() { return fs::path(ModulePath(nullptr)).parent_path().wstring(); }
std::wstring LibraryPath() { return ExeFolder() + L"\\kwQtWrappers.dll"; }
std::wstring Stem(const std::wstring& path) { return fs::path(path).stem().wstring(); }

// "<exe>_<pid>_<library>_<16 upper-case hex digits of the load address>"
std::wstring TraceName(HMODULE library) {
  wchar_t address[32] = {};
  swprintf(address, 32, L"%016llX", static_cast<unsigned long long>(reinterpret_cast<UINT_PTR>(library)));
  return Stem(ModulePath(nullptr)) + L"_" + std::to_wstring(GetCurrentProcessId()) + L"_" + Stem(ModulePath(library)) +
         L"_" + address;
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
  std::string raw;  // without CR LF
  unsigned long threadId = 0;
  long long millis = -1;
  std::string message;
};

// "YYYY-MM-DD hh:mm:ss.mmm ", the thread id as "%5u", three blanks, the message.
bool SplitLine(Line& line) {
  const std::string& raw = line.raw;
  const char shape[] = "0000-00-00 00:00:00.000 ";
  if (raw.size() < 24) return false;
  for (size_t i = 0; i < 24; ++i)
    if (shape[i] == '0' ? (raw[i] < '0' || raw[i] > '9') : raw[i] != shape[i]) return false;
  const size_t digits = raw.find_first_not_of(' ', 24);
  const size_t blanks = raw.find_first_not_of("0123456789", digits);
  if (digits == npos || blanks == npos || blanks == digits || raw.compare(blanks, 3, "   ") != 0) return false;
  line.threadId = std::stoul(raw.substr(digits, blanks - digits));
  char field[16];
  snprintf(field, sizeof(field), "%5lu", line.threadId);
  if (raw.compare(24, blanks - 24, field) != 0) return false;
  line.message = raw.substr(blanks + 3);
  auto number = [&](size_t at, size_t count) { return static_cast<WORD>(std::stoi(raw.substr(at, count))); };
  const SYSTEMTIME time = {number(0, 4),  number(5, 2), 0, number(8, 2), number(11, 2), number(14, 2),
                           number(17, 2), number(20, 3)};
  line.millis = Millis(time);
  return line.millis >= 0;
}

// Every line must end with CR LF and hold no other CR or LF.
std::vector<Line> ParseLines(const std::string& bytes) {
  std::vector<Line> lines;
  for (size_t pos = 0; pos < bytes.size();) {
    const size_t end = bytes.find("\r\n", pos);
    if (end == npos) {
      ADD_FAILURE() << "text after the last CR LF: [" << bytes.substr(pos) << "]";
      break;
    }
    Line line;
    line.raw = bytes.substr(pos, end - pos);
    pos = end + 2;
    if (line.raw.find_first_of("\r\n") != npos || !SplitLine(line)) {
      ADD_FAILURE() << "not a trace line: [" << line.raw << "]";
      break;
    }
    lines.push_back(line);
  }
  return lines;
}

// The lines of the block that starts at byte `at` with its three-line separator.
std::vector<Line> Block(const std::string& bytes, size_t at = 0) {
  if (bytes.size() < at + 6 || bytes.compare(at, 6, kSeparator) != 0) {
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
// then `body`, then the closing line.
std::vector<std::string> ExpectedBlock(const std::wstring& name, const std::wstring& modulePath,
                                       const std::vector<std::string>& body = {}) {
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

  std::vector<std::string> lines = {
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
  };
  lines.insert(lines.end(), body.begin(), body.end());
  lines.push_back(kEnd);
  return lines;
}

// ---- debugger output

struct DebugText {
  std::string text;
  long long fileSize;  // of the watched file when the text arrived; -1: no such file
};

SRWLOCK g_captureLock = SRWLOCK_INIT;
std::vector<DebugText> g_heard[2];  // narrow, wide
std::wstring g_watched;

LONG CALLBACK CaptureDebugPrint(EXCEPTION_POINTERS* info) {
  // DBG_PRINTEXCEPTION_C carries (length, char*); DBG_PRINTEXCEPTION_WIDE_C (length, wchar_t*, ...).
  const EXCEPTION_RECORD* record = info->ExceptionRecord;
  const bool wide = record->ExceptionCode == 0x4001000A;
  if ((wide || record->ExceptionCode == 0x40010006) && record->NumberParameters >= 2) {
    WIN32_FILE_ATTRIBUTE_DATA data;
    long long size = -1;
    if (!g_watched.empty() && GetFileAttributesExW(g_watched.c_str(), GetFileExInfoStandard, &data))
      size = static_cast<long long>(data.nFileSizeHigh) << 32 | data.nFileSizeLow;
    const auto text = record->ExceptionInformation[1];
    AcquireSRWLockExclusive(&g_captureLock);
    g_heard[wide].push_back(
        {wide ? Utf8(reinterpret_cast<const wchar_t*>(text)) : std::string(reinterpret_cast<const char*>(text)), size});
    ReleaseSRWLockExclusive(&g_captureLock);
  }
  return EXCEPTION_CONTINUE_SEARCH;
}

// Collects what OutputDebugString sends until Stop, through a vectored
// exception handler that sees the debug-print exception first.
class DebugOutputCapture {
 public:
  explicit DebugOutputCapture(const std::wstring& watchedFile = L"") {
    g_heard[0].clear();
    g_heard[1].clear();
    g_watched = watchedFile;
    handler_ = AddVectoredExceptionHandler(1, CaptureDebugPrint);
  }
  ~DebugOutputCapture() { Stop(); }
  // Where the system raises the wide form, the narrow one may follow as a
  // fall-back for the same text; the wide list is then the complete one.
  std::vector<DebugText> Stop() {
    if (handler_) RemoveVectoredExceptionHandler(handler_);
    handler_ = nullptr;
    AcquireSRWLockExclusive(&g_captureLock);
    std::vector<DebugText> heard = g_heard[1].empty() ? g_heard[0] : g_heard[1];
    ReleaseSRWLockExclusive(&g_captureLock);
    return heard;
  }

 private:
  PVOID handler_ = nullptr;
};

// ---- fixtures

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
    static unsigned counter = 0;
    scratch_ = TempFolder() + L"kwtrace_" + std::to_wstring(GetCurrentProcessId()) + L"_" + std::to_wstring(++counter);
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

struct Loaded {
  std::wstring name;  // of its trace file, without ".log"
  std::wstring path;
};

// Loads and unloads kwQtWrappers.dll once.
Loaded LoadAndUnload() {
  HMODULE library = LoadLibraryW(LibraryPath().c_str());
  EXPECT_NE(nullptr, library) << "kwQtWrappers.dll is expected beside the test program";
  if (!library) return {};
  Loaded loaded = {TraceName(library), ModulePath(library)};
  FreeLibrary(library);
  return loaded;
}

TEST_F(TraceTest, UserFolderGetsAFlushedBlockPerLoadAndEveryLineGoesToTheDebugger) {
  const std::wstring folder = Sub(L"trace");  // not there yet: one level is created by the library
  SetTraceFolder(HKEY_CURRENT_USER, folder);

  DebugOutputCapture capture;
  const long long before = NowMillis();
  HMODULE library = LoadLibraryW(LibraryPath().c_str());
  ASSERT_NE(nullptr, library);
  const Loaded loaded = {TraceName(library), ModulePath(library)};
  const std::wstring file = folder + L"\\" + loaded.name + L".log";
  std::vector<std::string> expected = ExpectedBlock(loaded.name, loaded.path);

  // The folder holds this one file only, "<exe>_<pid>_kwQtWrappers_<address>.log".
  ASSERT_TRUE(fs::is_directory(folder));
  std::vector<std::wstring> files;
  for (const auto& entry : fs::directory_iterator(folder)) files.push_back(entry.path().filename().wstring());
  ASSERT_EQ(std::vector<std::wstring>{loaded.name + L".log"}, files);
  EXPECT_EQ(0u, loaded.name.find(Stem(ModulePath(nullptr)) + L"_" + std::to_wstring(GetCurrentProcessId()) +
                                 L"_kwQtWrappers_"));

  // While loaded, the header is in the file already: written line by line.
  const std::string whileLoaded = ReadBytes(file);
  EXPECT_EQ(std::vector<std::string>(expected.begin(), expected.end() - 1), Messages(Block(whileLoaded)));

  FreeLibrary(library);
  const long long after = NowMillis();
  std::vector<std::string> debugTexts;
  for (const DebugText& heard : capture.Stop()) debugTexts.push_back(heard.text);
  const std::string bytes = ReadBytes(file);
  ASSERT_EQ(0u, bytes.compare(0, whileLoaded.size(), whileLoaded)) << "unloading rewrote earlier lines";
  const std::vector<Line> lines = Block(bytes);
  EXPECT_EQ(expected, Messages(lines));

  // One thread loaded and unloaded the library; the debugger got each
  // message, then a lone line feed, in the order of the file.
  std::vector<std::string> expectedDebug;
  for (const Line& line : lines) {
    EXPECT_EQ(GetCurrentThreadId(), line.threadId) << line.raw;
    EXPECT_GE(line.millis, before) << line.raw;
    EXPECT_LE(line.millis, after) << line.raw;
    expectedDebug.push_back(line.message);
    expectedDebug.push_back("\n");
  }
  EXPECT_EQ(expectedDebug, debugTexts);

  // Loaded again at the same address, the library appends a new block.
  if (LoadAndUnload().name == loaded.name) {
    const std::string again = ReadBytes(file);
    ASSERT_EQ(0u, again.compare(0, bytes.size(), bytes));
    EXPECT_EQ(expected, Messages(Block(again, bytes.size())));
  }
}

TEST_F(TraceTest, TwoLoadedCopiesWriteTwoFilesNamedByLoadAddress) {
  const std::wstring traceFolder = Sub(L"trace");
  const std::wstring copyPath = Sub(L"copy\\kwQtWrappers.dll");
  ASSERT_TRUE(fs::create_directory(Sub(L"copy")));
  ASSERT_TRUE(CopyFileW(LibraryPath().c_str(), copyPath.c_str(), FALSE));
  SetTraceFolder(HKEY_CURRENT_USER, traceFolder);

  // Both loaded at once, so they cannot share a load address.
  HMODULE modules[] = {LoadLibraryW(LibraryPath().c_str()), LoadLibraryW(copyPath.c_str())};
  ASSERT_NE(nullptr, modules[0]);
  ASSERT_NE(nullptr, modules[1]);
  const Loaded copies[] = {{TraceName(modules[0]), ModulePath(modules[0])},
                           {TraceName(modules[1]), ModulePath(modules[1])}};
  FreeLibrary(modules[1]);
  FreeLibrary(modules[0]);

  ASSERT_NE(copies[0].name, copies[1].name);
  for (const Loaded& loaded : copies)
    EXPECT_EQ(ExpectedBlock(loaded.name, loaded.path),
              Messages(Block(ReadBytes(traceFolder + L"\\" + loaded.name + L".log"))));
}

TEST_F(TraceTest, MachinePlaceServesWhenTheUserPlaceYieldsNoFolder) {
  // No user value, an empty one, and one whose parent folder is missing.
  const std::wstring userValues[] = {L"", L"", Sub(L"missing\\trace")};
  for (int i = 0; i < 3; ++i) {
    SCOPED_TRACE(i);
    ClearTraceFolders();
    if (i > 0) SetTraceFolder(HKEY_CURRENT_USER, userValues[i]);
    const std::wstring machineFolder = Sub(L"machine" + std::to_wstring(i));
    SetTraceFolder(HKEY_LOCAL_MACHINE, machineFolder);

    const Loaded loaded = LoadAndUnload();
    EXPECT_EQ(ExpectedBlock(loaded.name, loaded.path),
              Messages(Block(ReadBytes(machineFolder + L"\\" + loaded.name + L".log"))));
    EXPECT_FALSE(fs::exists(TempFolder() + loaded.name + L".log"));
    EXPECT_FALSE(fs::exists(Sub(L"missing"))) << "only one folder level may be created";
  }
}

TEST_F(TraceTest, FolderThatCannotTakeTheFileFallsBackToTheTempFolder) {
  // A regular file where the folder should be: the folder "exists", so the
  // user place is taken, but no file can be opened inside it.
  const std::wstring notAFolder = Sub(L"plain.txt");
  std::ofstream(fs::path(notAFolder), std::ios::binary) << "not a folder";
  SetTraceFolder(HKEY_CURRENT_USER, notAFolder);
  const std::wstring machineFolder = Sub(L"machine");
  SetTraceFolder(HKEY_LOCAL_MACHINE, machineFolder);

  const Loaded loaded = LoadAndUnload();
  const std::wstring tempFile = TempFolder() + loaded.name + L".log";
  EXPECT_EQ(ExpectedBlock(loaded.name, loaded.path), Messages(Block(ReadBytes(tempFile)))) << Utf8(tempFile);
  EXPECT_FALSE(fs::exists(machineFolder)) << "the user place was taken; the machine place must not be read";
  EXPECT_EQ("not a folder", ReadBytes(notAFolder));
}

TEST_F(TraceTest, NoConfiguredFolderWritesNothingAnywhere) {
  // A folder that was configured before and is configured no more.
  SetTraceFolder(HKEY_CURRENT_USER, scratch_);
  ClearTraceFolders();

  DebugOutputCapture capture;
  const Loaded loaded = LoadAndUnload();
  const std::vector<DebugText> heard = capture.Stop();
  EXPECT_FALSE(fs::exists(Sub(loaded.name + L".log")));
  EXPECT_FALSE(fs::exists(TempFolder() + loaded.name + L".log"));
  EXPECT_TRUE(heard.empty()) << "first debugger text: " << heard.front().text;
}

// The trace object linked into this program, which is then both the
// process's executable and the module that writes the log.
TEST_F(TraceTest, InTheExecutableTheNameHasOnlyExecutableAndProcessId) {
  SetTraceFolder(HKEY_CURRENT_USER, scratch_);
  OpenTraceLog();
  TraceWrite(L"inside %s", L"the executable");
  CloseTraceLog();

  const std::wstring name = Stem(ModulePath(nullptr)) + L"_" + std::to_wstring(GetCurrentProcessId());
  const std::string bytes = ReadBytes(Sub(name + L".log"));
  EXPECT_EQ(ExpectedBlock(name, ModulePath(nullptr), {"inside the executable"}), Messages(Block(bytes)));

  TraceWrite(L"after closing");  // a no-op once closed
  EXPECT_EQ(bytes, ReadBytes(Sub(name + L".log")));
}

// Messages written through kwTraceProbe.dll, loaded with the user place set.
using ProbeWriteFn = void (*)(const wchar_t* format, const wchar_t* text, unsigned number, void* pointer);

class ProbeTest : public TraceTest {
 protected:
  void SetUp() override {
    TraceTest::SetUp();
    SetTraceFolder(HKEY_CURRENT_USER, scratch_);
    probe_ = LoadLibraryW((ExeFolder() + L"\\kwTraceProbe.dll").c_str());
    ASSERT_NE(nullptr, probe_) << "kwTraceProbe.dll is expected beside the test program";
    write_ = reinterpret_cast<ProbeWriteFn>(reinterpret_cast<void*>(GetProcAddress(probe_, "ProbeTraceWrite")));
    ASSERT_NE(nullptr, write_);
    file_ = Sub(TraceName(probe_) + L".log");
  }
  void TearDown() override {
    Unload();
    TraceTest::TearDown();
  }
  void Unload() {
    if (probe_) FreeLibrary(probe_);
    probe_ = nullptr;
  }

  HMODULE probe_ = nullptr;
  ProbeWriteFn write_ = nullptr;
  std::wstring file_;
};

DWORD WINAPI WriteThreadId(void* write) {
  reinterpret_cast<ProbeWriteFn>(write)(L"%sthread %u", L"", GetCurrentThreadId(), nullptr);
  return 0;
}

TEST_F(ProbeTest, MessagesAreWrittenWholeAsUtf8LinesNamingTheirThread) {
  std::vector<std::string> expected;
  for (size_t length : {2046u, 2047u, 2048u, 4095u, 4096u, 10000u}) {
    std::wstring text(length, L'x');
    for (size_t i = 0; i < length; i += 97)
      text[i] = static_cast<wchar_t>(L'a' + (i / 97) % 26);  // catches a repeated or dropped chunk
    write_(L"%s", text.c_str(), 0, nullptr);
    expected.push_back(Utf8(text));
  }
  // Formatting itself, not only the argument, may run past the buffer.
  write_(L"%s|%u", std::wstring(2045, L'y').c_str(), 123456u, nullptr);
  expected.push_back(std::string(2045, 'y') + "|123456");
  // Wide "%s", all 16 upper-case hex digits for "%p", UTF-8 in the file.
  write_(L"s=%s u=%u p=%p", L"Gr\u00FC\u00DFe \u20AC \U0001F600", 4294967295u,
         reinterpret_cast<void*>(static_cast<UINT_PTR>(0x00007FF6ABCD0123ull)));
  expected.push_back(
      "s=Gr\xC3\xBC\xC3\x9F"
      "e \xE2\x82\xAC \xF0\x9F\x98\x80 u=4294967295 p=00007FF6ABCD0123");

  WriteThreadId(reinterpret_cast<void*>(write_));
  HANDLE thread = CreateThread(nullptr, 0, WriteThreadId, reinterpret_cast<void*>(write_), 0, nullptr);
  ASSERT_NE(nullptr, thread);
  WaitForSingleObject(thread, INFINITE);
  const DWORD threads[] = {GetCurrentThreadId(), GetThreadId(thread)};
  CloseHandle(thread);
  for (DWORD id : threads) expected.push_back("thread " + std::to_string(id));
  expected.push_back(kEnd);
  Unload();

  const std::string bytes = ReadBytes(file_);
  std::vector<Line> lines = Block(bytes);
  ASSERT_EQ(11u + expected.size(), lines.size());
  lines.erase(lines.begin(), lines.begin() + 11);  // the header
  EXPECT_EQ(expected, Messages(lines));
  EXPECT_EQ(threads[0], lines[8].threadId);
  EXPECT_EQ(threads[1], lines[9].threadId);
  EXPECT_EQ(npos, bytes.find("\xEF\xBB\xBF")) << "no byte-order mark";
}

TEST_F(ProbeTest, CarriageReturnsAreDroppedAndTheDebuggerHearsBeforeTheFile) {
  const long long sizeBefore = static_cast<long long>(ReadBytes(file_).size());
  DebugOutputCapture capture(file_);
  write_(L"%s", L"first\r\nsecond\rthird\n", 0, nullptr);
  const std::vector<DebugText> heard = capture.Stop();
  const size_t sizeAfterWrite = ReadBytes(file_).size();
  write_(L"after", nullptr, 0, nullptr);
  Unload();

  // The debugger gets the message without CRs, then a line feed, both
  // before the line reaches the file.
  ASSERT_EQ(2u, heard.size());
  EXPECT_EQ("first\nsecondthird\n", heard[0].text);
  EXPECT_EQ("\n", heard[1].text);
  EXPECT_EQ(sizeBefore, heard[0].fileSize);
  EXPECT_EQ(sizeBefore, heard[1].fileSize);

  // In the file, each line feed of the message comes out as CR LF with no
  // prefix after it, the lone CR is gone, and the next line is normal again.
  const std::string added = ReadBytes(file_).substr(static_cast<size_t>(sizeBefore));
  const std::string text = "   first\r\nsecondthird\r\n\r\n";
  const size_t at = added.find(text);
  ASSERT_NE(npos, at) << added;
  EXPECT_EQ(1u, ParseLines(added.substr(0, at) + "   first\r\n").size());
  EXPECT_EQ(sizeBefore + at + text.size(), sizeAfterWrite) << "the whole line is flushed at once";
  EXPECT_EQ((std::vector<std::string>{"after", kEnd}), Messages(ParseLines(added.substr(at + text.size()))));
}

}  // namespace
