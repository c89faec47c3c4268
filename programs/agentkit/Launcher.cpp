#include "agentkit/Launcher.h"

#include <tlhelp32.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <cwctype>
#include <thread>
#include <utility>

#include "agentkit/AgentPipe.h"
#include "agentkit/Protocol.h"

namespace kwagentkit {

namespace {

constexpr DWORD kStartLimitMs = 30000;
// A symbol QtCore4.dll exports when it was built with this project's
// compiler (mingw-w64's g++: the Itanium C++ ABI): QString::fromUtf8(const char*, int).
const char kAbiProbe[] = "_ZN7QString8fromUtf8EPKci";

// Closes a Win32 handle when it goes out of scope.
class Handle {
 public:
  explicit Handle(HANDLE handle = nullptr) : m_handle(handle == INVALID_HANDLE_VALUE ? nullptr : handle) {}
  ~Handle() {
    if (m_handle != nullptr) CloseHandle(m_handle);
  }
  Handle(const Handle&) = delete;
  Handle& operator=(const Handle&) = delete;
  HANDLE get() const { return m_handle; }
  HANDLE release() {
    HANDLE handle = m_handle;
    m_handle = nullptr;
    return handle;
  }
  explicit operator bool() const { return m_handle != nullptr; }

 private:
  HANDLE m_handle;
};

// The UTF-8 of a Windows text, as the messages are written.
std::string Utf8(const std::wstring& text) {
  if (text.empty()) return std::string();
  const int size = WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), nullptr, 0, nullptr,
                                       nullptr);
  std::string out(static_cast<size_t>(size), '\0');
  WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), &out[0], size, nullptr, nullptr);
  return out;
}

std::string Number(uint64_t value, bool hex = false) {
  char text[24];
  snprintf(text, sizeof text, hex ? "%llx" : "%llu", static_cast<unsigned long long>(value));
  return text;
}

// The file name of a path (after its last slash or backslash).
std::wstring FileName(const std::wstring& path) {
  const size_t slash = path.find_last_of(L"\\/");
  return slash == std::wstring::npos ? path : path.substr(slash + 1);
}

bool SameName(const std::wstring& one, const std::wstring& other) { return _wcsicmp(one.c_str(), other.c_str()) == 0; }

// The full path of the folder a file lies in, with backslashes and no
// trailing one.
std::wstring FolderOfFile(const std::wstring& path) {
  std::wstring full(MAX_PATH, L'\0');
  DWORD size = GetFullPathNameW(path.c_str(), static_cast<DWORD>(full.size()), &full[0], nullptr);
  if (size > full.size()) {
    full.resize(size);
    size = GetFullPathNameW(path.c_str(), size, &full[0], nullptr);
  }
  full.resize(size);
  if (full.empty()) full = path;
  std::replace(full.begin(), full.end(), L'/', L'\\');
  const size_t slash = full.find_last_of(L'\\');
  return slash == std::wstring::npos ? std::wstring(L".") : full.substr(0, slash);
}

// The modules a process has loaded: file name -> full path and base.
struct Module {
  std::wstring path;
  BYTE* base;
};
std::vector<std::pair<std::wstring, Module>> ModulesOf(DWORD pid) {
  std::vector<std::pair<std::wstring, Module>> out;
  Handle snapshot(CreateToolhelp32Snapshot(TH32CS_SNAPMODULE, pid));
  MODULEENTRY32W entry{};
  entry.dwSize = sizeof entry;
  for (BOOL more = snapshot && Module32FirstW(snapshot.get(), &entry); more;
       more = Module32NextW(snapshot.get(), &entry))
    out.push_back({entry.szModule, {entry.szExePath, entry.modBaseAddr}});
  return out;
}

const Module* FindModule(const std::vector<std::pair<std::wstring, Module>>& modules, const wchar_t* name) {
  for (const auto& [moduleName, module] : modules)
    if (SameName(moduleName, name)) return &module;
  return nullptr;
}

// The process id `text` is when it is all digits.
bool ProcessId(const std::wstring& text, DWORD* id) {
  const auto digit = [](wchar_t c) { return c >= L'0' && c <= L'9'; };
  if (text.empty() || text.size() > 10 || !std::all_of(text.begin(), text.end(), digit)) return false;
  const unsigned long long value = std::stoull(text);
  *id = static_cast<DWORD>(value);
  return value <= 0xffffffffull;
}

// The process `target` names (an id or an image file name), or 0 and why not.
DWORD FindProcess(const std::wstring& target, std::string* why) {
  DWORD id = 0;
  const bool isNumber = ProcessId(target, &id);
  std::vector<DWORD> matches;
  Handle snapshot(CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0));
  PROCESSENTRY32W entry{};
  entry.dwSize = sizeof entry;
  for (BOOL more = snapshot && Process32FirstW(snapshot.get(), &entry); more;
       more = Process32NextW(snapshot.get(), &entry)) {
    if (entry.th32ProcessID == GetCurrentProcessId()) continue;
    if (isNumber ? entry.th32ProcessID == id : SameName(FileName(entry.szExeFile), FileName(target)))
      matches.push_back(entry.th32ProcessID);
  }
  if (matches.size() == 1) return matches[0];
  if (matches.empty()) {
    wchar_t prefix[MAX_PATH] = {};
    const DWORD length = GetEnvironmentVariableW(L"WINEPREFIX", prefix, MAX_PATH);
    *why = "no process matches \"" + Utf8(target) + "\" in this Wine prefix (" +
           (length > 0 && length < MAX_PATH ? Utf8(prefix) : std::string("the default one")) + ")";
  } else {
    std::string ids;
    for (DWORD match : matches) ids += (ids.empty() ? "" : ", ") + Number(match);
    *why = "several processes match \"" + Utf8(target) + "\" (ids " + ids + "): give the id";
  }
  return 0;
}

// The bytes of a PE file, read as the checks below need them.
class PeImage {
 public:
  explicit PeImage(const std::wstring& path) {
    Handle file(CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                            OPEN_EXISTING, 0, nullptr));
    LARGE_INTEGER size{};
    if (!file || !GetFileSizeEx(file.get(), &size) || size.QuadPart > 0x7fffffff) return;
    m_image.resize(static_cast<size_t>(size.QuadPart));
    DWORD read = 0;
    if (!m_image.empty() && (!ReadFile(file.get(), &m_image[0], static_cast<DWORD>(m_image.size()), &read, nullptr) ||
                             read != m_image.size()))
      m_image.clear();
  }

  // The machine it is built for (IMAGE_FILE_MACHINE_...), or 0 when its
  // headers cannot be read.
  WORD Machine() const {
    const int64_t pe = Headers();
    return pe < 0 ? 0 : static_cast<WORD>(U16(pe + 4));
  }

  // Whether it exports `symbol` by name (a PE32+ image).
  bool Exports(const char* symbol) const {
    const int64_t pe = Headers();
    if (pe < 0 || !At(pe, 24 + 112 + 8)) return false;
    const uint32_t exportRva = U32(pe + 24 + 112);  // PE32+: data directory 0
    const int64_t directory = FileOffset(exportRva);
    if (exportRva == 0 || !At(directory, 40)) return false;
    const uint32_t names = U32(directory + 24);
    const int64_t nameTable = FileOffset(U32(directory + 32));
    for (uint32_t i = 0; i < names && At(nameTable + 4 * i, 4); ++i) {
      const int64_t name = FileOffset(U32(nameTable + 4 * i));
      if (name >= 0 && name < static_cast<int64_t>(m_image.size()) && std::strcmp(m_image.c_str() + name, symbol) == 0)
        return true;
    }
    return false;
  }

 private:
  bool At(int64_t offset, int size) const { return offset >= 0 && offset + size <= static_cast<int64_t>(m_image.size()); }
  uint32_t U16(int64_t o) const {
    return static_cast<uint32_t>(static_cast<uint8_t>(m_image[size_t(o)]) | static_cast<uint8_t>(m_image[size_t(o) + 1]) << 8);
  }
  uint32_t U32(int64_t o) const { return U16(o) | U16(o + 2) << 16; }

  // Where the "PE\0\0" signature and the file header start, or -1.
  int64_t Headers() const {
    if (!At(0x3C, 4)) return -1;
    const int64_t pe = U32(0x3C);
    return At(pe, 24) && U32(pe) == 0x4550 ? pe : -1;
  }

  // The file offset of a relative virtual address, through the section table.
  int64_t FileOffset(uint32_t rva) const {
    const int64_t pe = Headers();
    const uint32_t sections = U16(pe + 6), optionalSize = U16(pe + 20);
    for (uint32_t i = 0; i < sections; ++i) {
      const int64_t section = pe + 24 + optionalSize + 40 * i;
      if (!At(section, 40)) return -1;
      const uint32_t start = U32(section + 12), size = U32(section + 16), raw = U32(section + 20);
      if (rva >= start && rva < start + size) return raw + (rva - start);
    }
    return -1;
  }

  std::string m_image;
};

// Why the program cannot be driven, or empty when it may: the library and
// its agent are x64 code.
std::string UnfitProgram(const std::wstring& path) {
  const WORD machine = PeImage(path).Machine();
  if (machine == 0 || machine == IMAGE_FILE_MACHINE_AMD64) return std::string();
  return Utf8(path) + " is not a 64-bit program (its image is for machine 0x" + Number(machine, true) + ")";
}

// Why the process cannot be driven, or empty when it can.
std::string Unfit(DWORD pid, HANDLE process) {
  BOOL wow64 = FALSE;
  if (IsWow64Process(process, &wow64) && wow64) return "process " + Number(pid) + " is not a 64-bit process";
  const auto modules = ModulesOf(pid);
  const Module* core = FindModule(modules, L"QtCore4.dll");
  if (core == nullptr || FindModule(modules, L"QtGui4.dll") == nullptr)
    return "process " + Number(pid) + " is not a Qt 4.8 application: it has no QtCore4.dll and QtGui4.dll loaded";
  if (!PeImage(core->path).Exports(kAbiProbe))
    return "the QtCore4.dll of process " + Number(pid) + " (" + Utf8(core->path) +
           ") was built by a compiler whose C++ ABI differs from this library's (it does not export " + kAbiProbe + ")";
  return std::string();
}

// Writes `text` (with its terminating NUL) into the process; the address, or null.
void* WriteRemote(HANDLE process, const std::wstring& text) {
  const SIZE_T size = (text.size() + 1) * sizeof(wchar_t);
  void* remote = VirtualAllocEx(process, nullptr, size, MEM_COMMIT | MEM_RESERVE, PAGE_READWRITE);
  if (remote != nullptr && !WriteProcessMemory(process, remote, text.c_str(), size, nullptr)) remote = nullptr;
  return remote;
}

// Runs `start(parameter)` on a new thread of the process; the thread, or null.
HANDLE StartRemote(HANDLE process, void* start, void* parameter) {
  return CreateRemoteThread(process, nullptr, 0, reinterpret_cast<LPTHREAD_START_ROUTINE>(start), parameter, 0,
                            nullptr);
}

// Loads the agent into the process and starts KwAgentRun(pipeName) there:
// the thread that runs it, or null and why not.
HANDLE StartAgent(DWORD pid, HANDLE process, const std::wstring& pipeName, std::string* why) {
  const std::wstring agentPath = CallerFolder() + L"kwagent.dll";
  // Mapped here only to find KwAgentRun's offset: none of the agent's code
  // (nor Qt's GUI library, which it needs) runs in the caller.
  HMODULE local = LoadLibraryExW(agentPath.c_str(), nullptr, DONT_RESOLVE_DLL_REFERENCES);
  void* localStart = local ? reinterpret_cast<void*>(GetProcAddress(local, "KwAgentRun")) : nullptr;
  if (localStart == nullptr) {
    *why = "cannot load " + Utf8(agentPath);
    return nullptr;
  }
  void* loadLibrary = reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"kernel32.dll"), "LoadLibraryW"));
  void* remotePath = WriteRemote(process, agentPath);
  Handle loader(remotePath ? StartRemote(process, loadLibrary, remotePath) : nullptr);
  if (!loader || WaitForSingleObject(loader.get(), kStartLimitMs) != WAIT_OBJECT_0) {
    *why = "cannot start a thread in process " + Number(pid) + " (error " + Number(GetLastError()) + ")";
    return nullptr;
  }
  const auto modules = ModulesOf(pid);
  const Module* agent = FindModule(modules, L"kwagent.dll");
  if (agent == nullptr) {
    *why = "the agent could not be loaded into process " + Number(pid);
    return nullptr;
  }
  void* remoteStart = agent->base + (static_cast<BYTE*>(localStart) - reinterpret_cast<BYTE*>(local));
  void* remoteName = WriteRemote(process, pipeName);
  HANDLE runner = remoteName ? StartRemote(process, remoteStart, remoteName) : nullptr;
  if (runner == nullptr)
    *why = "cannot start the agent in process " + Number(pid) + " (error " + Number(GetLastError()) + ")";
  return runner;
}

// Waits for the agent to connect to `pipe`, while its thread and the
// process run; false and why when it did not.
bool AwaitAgent(HANDLE pipe, const std::wstring& pipeName, HANDLE runner, HANDLE process, std::string* why) {
  std::atomic<bool> done{false};
  bool connected = false;
  std::thread connector([&] {
    connected = ConnectNamedPipe(pipe, nullptr) || GetLastError() == ERROR_PIPE_CONNECTED;
    done = true;
  });
  const DWORD start = GetTickCount();
  while (!done) {
    if (WaitForSingleObject(process, 0) == WAIT_OBJECT_0)
      *why = "the application ended before the agent started";
    else if (WaitForSingleObject(runner, 0) == WAIT_OBJECT_0)
      *why = "the agent ended without answering";
    else if (GetTickCount() - start > kStartLimitMs)
      *why = "the agent did not answer within 30 seconds";
    if (!why->empty()) break;
    Sleep(20);
  }
  if (!done) {  // a client of our own releases the waiting connector
    Handle unblock(CreateFileW(pipeName.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr));
    connector.join();
    return false;
  }
  connector.join();
  if (!connected) *why = "the agent could not connect to its pipe (error " + Number(GetLastError()) + ")";
  return connected;
}

// Loads the agent into the open process `connection` names and connects
// its pipe; empty, or why not.
std::string ConnectAgent(AgentConnection* connection) {
  const std::string unfit = Unfit(connection->pid, connection->process);
  if (!unfit.empty()) return unfit;
  const std::wstring pipeName = L"\\\\.\\pipe\\kwagent-" + std::to_wstring(GetCurrentProcessId()) + L"-" +
                                std::to_wstring(connection->pid) + L"-" + std::to_wstring(GetTickCount());
  Handle pipe(
      CreateNamedPipeW(pipeName.c_str(), PIPE_ACCESS_DUPLEX, PIPE_TYPE_BYTE | PIPE_WAIT, 1, 65536, 65536, 0, nullptr));
  if (!pipe) return "cannot make the pipe to the agent (error " + Number(GetLastError()) + ")";
  Handle written(CreateEventW(nullptr, FALSE, FALSE, WrittenEventName(pipeName).c_str()));
  if (!connection->launched) connection->began = std::chrono::steady_clock::now();
  std::string why;
  Handle runner(StartAgent(connection->pid, connection->process, pipeName, &why));
  if (!runner || !AwaitAgent(pipe.get(), pipeName, runner.get(), connection->process, &why)) return why;
  connection->pipe = pipe.release();
  connection->pipeName = pipeName;
  connection->written = written.release();
  return std::string();
}

// The application's environment: the caller's, with the caller's folder (and
// its copies of Qt's DLLs) first on PATH.
std::vector<wchar_t> EnvironmentWithCallerFolderOnPath() {
  std::vector<wchar_t> out;
  wchar_t* block = GetEnvironmentStringsW();
  bool pathSeen = false;
  for (const wchar_t* entry = block; *entry != L'\0'; entry += wcslen(entry) + 1) {
    std::wstring text(entry);
    if (_wcsnicmp(entry, L"PATH=", 5) == 0) {
      text = L"PATH=" + CallerFolder() + L";" + text.substr(5);
      pathSeen = true;
    }
    out.insert(out.end(), text.begin(), text.end());
    out.push_back(L'\0');
  }
  FreeEnvironmentStringsW(block);
  if (!pathSeen) {
    const std::wstring text = L"PATH=" + CallerFolder();
    out.insert(out.end(), text.begin(), text.end());
    out.push_back(L'\0');
  }
  out.push_back(L'\0');
  return out;
}

// Whether the process shows a visible top-level window.
bool ShowsAWindow(DWORD pid) {
  struct Search {
    DWORD pid;
    bool found;
  } search{pid, false};
  EnumWindows(
      [](HWND window, LPARAM parameter) -> BOOL {
        auto* s = reinterpret_cast<Search*>(parameter);
        DWORD owner = 0;
        GetWindowThreadProcessId(window, &owner);
        if (owner == s->pid && IsWindowVisible(window)) s->found = true;
        return !s->found;
      },
      reinterpret_cast<LPARAM>(&search));
  return search.found;
}

// An argument of a command line: as it is unless it is empty or holds a
// blank or a quote; then quoted, its quotes escaped.
std::wstring Quoted(const std::wstring& argument) {
  const bool plain = !argument.empty() && std::none_of(argument.begin(), argument.end(), [](wchar_t c) {
    return c == L'"' || std::iswspace(c);
  });
  if (plain) return argument;
  std::wstring out = L"\"";
  for (wchar_t c : argument) out += c == L'"' ? std::wstring(L"\\\"") : std::wstring(1, c);
  return out + L"\"";
}

}  // namespace

namespace {

std::wstring FolderOf(HMODULE module) {
  wchar_t path[MAX_PATH] = {};
  GetModuleFileNameW(module, path, MAX_PATH);
  std::wstring folder(path);
  return folder.substr(0, folder.find_last_of(L"\\/") + 1);
}

}  // namespace

std::wstring CallerFolder() { return FolderOf(nullptr); }

std::wstring ModuleFolder(const void* address) {
  HMODULE module = nullptr;
  GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                     static_cast<LPCWSTR>(address), &module);
  return FolderOf(module);
}

std::string AttachAgent(const std::wstring& target, AgentConnection* connection) {
  std::string why;
  const DWORD pid = FindProcess(target, &why);
  if (pid == 0) return why;
  connection->pid = pid;
  connection->process = OpenProcess(PROCESS_ALL_ACCESS, FALSE, pid);
  if (connection->process == nullptr)
    return "cannot open process " + Number(pid) + " (error " + Number(GetLastError()) + ")";
  return ConnectAgent(connection);
}

std::string LaunchWithAgent(const LaunchRequest& request, AgentConnection* connection) {
  const std::wstring& program = request.program;
  const std::string unfit = UnfitProgram(program);
  if (!unfit.empty()) return unfit;
  std::wstring nativeProgram = program;
  std::replace(nativeProgram.begin(), nativeProgram.end(), L'/', L'\\');
  std::wstring commandLine = Quoted(nativeProgram);
  for (const std::wstring& argument : request.arguments) commandLine += L' ' + Quoted(argument);
  connection->began = std::chrono::steady_clock::now();
  std::vector<wchar_t> environment = EnvironmentWithCallerFolderOnPath();
  const std::wstring folder = !request.workingDir.empty() ? request.workingDir : FolderOfFile(program);
  // Under Wine the first program of a desktop to need its window starts the
  // process that owns it (explorer.exe): let that be this one. Started by the
  // application it would be ended with the application's job, while the next
  // application of the same desktop already uses its windows, and that one
  // dies of an X error.
  GetDesktopWindow();
  STARTUPINFOW startup{};
  startup.cb = sizeof startup;
  PROCESS_INFORMATION started{};
  if (!CreateProcessW(nullptr, &commandLine[0], nullptr, nullptr, FALSE, CREATE_UNICODE_ENVIRONMENT, environment.data(),
                      folder.c_str(), &startup, &started))
    return "cannot start " + Utf8(program) + " (error " + Number(GetLastError()) + ")";
  CloseHandle(started.hThread);
  connection->process = started.hProcess;
  connection->pid = started.dwProcessId;
  connection->launched = true;
  connection->kept = request.keep;
  // A job that ends the application with its caller, whatever ends the caller;
  // the processes the application starts are not in it (they may serve other
  // programs too, as the desktop's process does).
  if (!request.keep) connection->job = CreateJobObjectW(nullptr, nullptr);
  if (connection->job != nullptr) {
    JOBOBJECT_EXTENDED_LIMIT_INFORMATION limits{};
    limits.BasicLimitInformation.LimitFlags = JOB_OBJECT_LIMIT_KILL_ON_JOB_CLOSE | JOB_OBJECT_LIMIT_SILENT_BREAKAWAY_OK;
    SetInformationJobObject(connection->job, JobObjectExtendedLimitInformation, &limits, sizeof limits);
    AssignProcessToJobObject(connection->job, connection->process);
  }
  WaitForInputIdle(connection->process, kStartLimitMs);
  const DWORD start = GetTickCount();
  while (!ShowsAWindow(started.dwProcessId) && WaitForSingleObject(connection->process, 50) == WAIT_TIMEOUT &&
         GetTickCount() - start < kStartLimitMs) {
  }
  if (WaitForSingleObject(connection->process, 0) == WAIT_OBJECT_0) {
    DWORD code = 0;
    GetExitCodeProcess(connection->process, &code);
    return Utf8(program) + " ended at its start (exit code 0x" + Number(code, true) + ")";
  }
  return ConnectAgent(connection);
}

void CloseConnection(AgentConnection* connection) {
  if (connection->pipe != nullptr) CloseHandle(connection->pipe);
  if (connection->process != nullptr) {
    if (connection->launched && !connection->kept && WaitForSingleObject(connection->process, 0) == WAIT_TIMEOUT) {
      TerminateProcess(connection->process, 0);
      WaitForSingleObject(connection->process, 5000);
    }
    CloseHandle(connection->process);
  }
  if (connection->job != nullptr) CloseHandle(connection->job);
  if (connection->written != nullptr) CloseHandle(connection->written);
  *connection = AgentConnection();
}

}  // namespace kwagentkit
