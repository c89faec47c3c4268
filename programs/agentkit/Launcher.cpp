#include "agentkit/Launcher.h"

#include <tlhelp32.h>

#include <QtCore/QByteArray>
#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QFileInfo>
#include <QtCore/QRegExp>
#include <QtCore/QString>
#include <QtCore/QStringList>
#include <QtCore/QThread>

#include <atomic>
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

QString FileName(const wchar_t* path) { return QFileInfo(QString::fromWCharArray(path)).fileName(); }

// The modules a process has loaded: file name (lower case) -> full path and base.
struct Module {
  QString path;
  BYTE* base;
};
std::vector<std::pair<QString, Module>> ModulesOf(DWORD pid) {
  std::vector<std::pair<QString, Module>> out;
  Handle snapshot(CreateToolhelp32Snapshot(TH32CS_SNAPMODULE, pid));
  MODULEENTRY32W entry{};
  entry.dwSize = sizeof entry;
  for (BOOL more = snapshot && Module32FirstW(snapshot.get(), &entry); more;
       more = Module32NextW(snapshot.get(), &entry))
    out.push_back({QString::fromWCharArray(entry.szModule).toLower(),
                   {QString::fromWCharArray(entry.szExePath), entry.modBaseAddr}});
  return out;
}

const Module* FindModule(const std::vector<std::pair<QString, Module>>& modules, const QString& name) {
  for (const auto& [moduleName, module] : modules)
    if (moduleName == name.toLower()) return &module;
  return nullptr;
}

// The process `target` names (an id or an image file name), or 0 and why not.
DWORD FindProcess(const QString& target, QString* why) {
  bool isNumber = false;
  const DWORD id = target.toULong(&isNumber);
  std::vector<DWORD> matches;
  Handle snapshot(CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0));
  PROCESSENTRY32W entry{};
  entry.dwSize = sizeof entry;
  for (BOOL more = snapshot && Process32FirstW(snapshot.get(), &entry); more;
       more = Process32NextW(snapshot.get(), &entry)) {
    if (entry.th32ProcessID == GetCurrentProcessId()) continue;
    if (isNumber ? entry.th32ProcessID == id
                 : FileName(entry.szExeFile).compare(QFileInfo(target).fileName(), Qt::CaseInsensitive) == 0)
      matches.push_back(entry.th32ProcessID);
  }
  if (matches.size() == 1) return matches[0];
  if (matches.empty()) {
    *why = QString("no process matches \"%1\" in this Wine prefix (%2)")
               .arg(target, QString::fromLocal8Bit(qgetenv("WINEPREFIX").isEmpty() ? "the default one"
                                                                                   : qgetenv("WINEPREFIX")));
  } else {
    QStringList ids;
    for (DWORD match : matches) ids << QString::number(match);
    *why = QString("several processes match \"%1\" (ids %2): give the id").arg(target, ids.join(", "));
  }
  return 0;
}

// The bytes of a PE file, read as the checks below need them.
class PeImage {
 public:
  explicit PeImage(const QString& path) {
    QFile file(path);
    if (file.open(QIODevice::ReadOnly)) m_image = file.readAll();
  }

  // The machine it is built for (IMAGE_FILE_MACHINE_...), or 0 when its
  // headers cannot be read.
  WORD Machine() const {
    const qint64 pe = Headers();
    return pe < 0 ? 0 : static_cast<WORD>(U16(pe + 4));
  }

  // Whether it exports `symbol` by name (a PE32+ image).
  bool Exports(const char* symbol) const {
    const qint64 pe = Headers();
    if (pe < 0 || !At(pe, 24 + 112 + 8)) return false;
    const quint32 exportRva = U32(pe + 24 + 112);  // PE32+: data directory 0
    const qint64 directory = FileOffset(exportRva);
    if (exportRva == 0 || !At(directory, 40)) return false;
    const quint32 names = U32(directory + 24);
    const qint64 nameTable = FileOffset(U32(directory + 32));
    for (quint32 i = 0; i < names && At(nameTable + 4 * i, 4); ++i) {
      const qint64 name = FileOffset(U32(nameTable + 4 * i));
      if (name >= 0 && name < m_image.size() && qstrcmp(m_image.constData() + name, symbol) == 0) return true;
    }
    return false;
  }

 private:
  bool At(qint64 offset, int size) const { return offset >= 0 && offset + size <= m_image.size(); }
  quint32 U16(qint64 o) const {
    return static_cast<quint32>(static_cast<quint8>(m_image[int(o)]) | static_cast<quint8>(m_image[int(o) + 1]) << 8);
  }
  quint32 U32(qint64 o) const { return U16(o) | U16(o + 2) << 16; }

  // Where the "PE\0\0" signature and the file header start, or -1.
  qint64 Headers() const {
    if (!At(0x3C, 4)) return -1;
    const qint64 pe = U32(0x3C);
    return At(pe, 24) && U32(pe) == 0x4550 ? pe : -1;
  }

  // The file offset of a relative virtual address, through the section table.
  qint64 FileOffset(quint32 rva) const {
    const qint64 pe = Headers();
    const quint32 sections = U16(pe + 6), optionalSize = U16(pe + 20);
    for (quint32 i = 0; i < sections; ++i) {
      const qint64 section = pe + 24 + optionalSize + 40 * i;
      if (!At(section, 40)) return -1;
      const quint32 start = U32(section + 12), size = U32(section + 16), raw = U32(section + 20);
      if (rva >= start && rva < start + size) return raw + (rva - start);
    }
    return -1;
  }

  QByteArray m_image;
};

// Why the program cannot be driven, or empty when it may: the library and
// its agent are x64 code.
QString UnfitProgram(const QString& path) {
  const WORD machine = PeImage(path).Machine();
  if (machine == 0 || machine == IMAGE_FILE_MACHINE_AMD64) return QString();
  return QString("%1 is not a 64-bit program (its image is for machine 0x%2)").arg(path).arg(machine, 0, 16);
}

// Why the process cannot be driven, or empty when it can.
QString Unfit(DWORD pid, HANDLE process) {
  BOOL wow64 = FALSE;
  if (IsWow64Process(process, &wow64) && wow64) return QString("process %1 is not a 64-bit process").arg(pid);
  const auto modules = ModulesOf(pid);
  const Module* core = FindModule(modules, "QtCore4.dll");
  if (core == nullptr || FindModule(modules, "QtGui4.dll") == nullptr)
    return QString("process %1 is not a Qt 4.8 application: it has no QtCore4.dll and QtGui4.dll loaded").arg(pid);
  if (!PeImage(core->path).Exports(kAbiProbe))
    return QString(
               "the QtCore4.dll of process %1 (%2) was built by a compiler whose C++ ABI differs from this "
               "library's (it does not export %3)")
        .arg(pid)
        .arg(core->path, kAbiProbe);
  return QString();
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
HANDLE StartAgent(DWORD pid, HANDLE process, const std::wstring& pipeName, QString* why) {
  const std::wstring agentPath = CallerFolder() + L"kwagent.dll";
  // Mapped here only to find KwAgentRun's offset: none of the agent's code
  // (nor Qt's GUI library, which it needs) runs in the caller.
  HMODULE local = LoadLibraryExW(agentPath.c_str(), nullptr, DONT_RESOLVE_DLL_REFERENCES);
  void* localStart = local ? reinterpret_cast<void*>(GetProcAddress(local, "KwAgentRun")) : nullptr;
  if (localStart == nullptr) {
    *why = QString("cannot load %1").arg(QString::fromStdWString(agentPath));
    return nullptr;
  }
  void* loadLibrary = reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"kernel32.dll"), "LoadLibraryW"));
  void* remotePath = WriteRemote(process, agentPath);
  Handle loader(remotePath ? StartRemote(process, loadLibrary, remotePath) : nullptr);
  if (!loader || WaitForSingleObject(loader.get(), kStartLimitMs) != WAIT_OBJECT_0) {
    *why = QString("cannot start a thread in process %1 (error %2)").arg(pid).arg(GetLastError());
    return nullptr;
  }
  const auto modules = ModulesOf(pid);
  const Module* agent = FindModule(modules, "kwagent.dll");
  if (agent == nullptr) {
    *why = QString("the agent could not be loaded into process %1").arg(pid);
    return nullptr;
  }
  void* remoteStart = agent->base + (static_cast<BYTE*>(localStart) - reinterpret_cast<BYTE*>(local));
  void* remoteName = WriteRemote(process, pipeName);
  HANDLE runner = remoteName ? StartRemote(process, remoteStart, remoteName) : nullptr;
  if (runner == nullptr) *why = QString("cannot start the agent in process %1 (error %2)").arg(pid).arg(GetLastError());
  return runner;
}

// Waits for the agent to connect to `pipe`, while its thread and the
// process run; false and why when it did not.
bool AwaitAgent(HANDLE pipe, const std::wstring& pipeName, HANDLE runner, HANDLE process, QString* why) {
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
    if (!why->isEmpty()) break;
    Sleep(20);
  }
  if (!done) {  // a client of our own releases the waiting connector
    Handle unblock(CreateFileW(pipeName.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr));
    connector.join();
    return false;
  }
  connector.join();
  if (!connected) *why = QString("the agent could not connect to its pipe (error %1)").arg(GetLastError());
  return connected;
}

// Loads the agent into the open process `connection` names and connects
// its pipe; empty, or why not.
QString ConnectAgent(AgentConnection* connection) {
  const QString unfit = Unfit(connection->pid, connection->process);
  if (!unfit.isEmpty()) return unfit;
  const std::wstring pipeName = QString("\\\\.\\pipe\\kwagent-%1-%2-%3")
                                    .arg(GetCurrentProcessId())
                                    .arg(connection->pid)
                                    .arg(GetTickCount())
                                    .toStdWString();
  Handle pipe(
      CreateNamedPipeW(pipeName.c_str(), PIPE_ACCESS_DUPLEX, PIPE_TYPE_BYTE | PIPE_WAIT, 1, 65536, 65536, 0, nullptr));
  if (!pipe) return QString("cannot make the pipe to the agent (error %1)").arg(GetLastError());
  Handle written(CreateEventW(nullptr, FALSE, FALSE, WrittenEventName(pipeName).c_str()));
  if (!connection->launched) connection->began = std::chrono::steady_clock::now();
  QString why;
  Handle runner(StartAgent(connection->pid, connection->process, pipeName, &why));
  if (!runner || !AwaitAgent(pipe.get(), pipeName, runner.get(), connection->process, &why)) return why;
  connection->pipe = pipe.release();
  connection->pipeName = pipeName;
  connection->written = written.release();
  return QString();
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

QString Quoted(const QString& argument) {
  if (!argument.isEmpty() && !argument.contains(QRegExp("[\\s\"]"))) return argument;
  QString out = argument;
  return '"' + out.replace('"', "\\\"") + '"';
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

// Qt 4.8 makes the slot of its per-thread data on the first use of a
// QObject (a QFile here) without looking again once it holds its lock: two
// threads of a caller that start sessions at once for the first time each
// make one, and Qt's thread data is corrupted (kwdriver crashed so). The
// slot is made here once, by whichever thread comes first, the others
// waiting for it.
namespace {
void PrepareQtThreads() {
  static const bool prepared = QThread::currentThread() != nullptr;
  (void)prepared;
}
}  // namespace

std::string AttachAgent(const std::wstring& target, AgentConnection* connection) {
  PrepareQtThreads();
  QString why;
  const DWORD pid = FindProcess(QString::fromStdWString(target), &why);
  if (pid == 0) return Utf8(why);
  connection->pid = pid;
  connection->process = OpenProcess(PROCESS_ALL_ACCESS, FALSE, pid);
  if (connection->process == nullptr) return Utf8(QString("cannot open process %1 (error %2)").arg(pid).arg(GetLastError()));
  return Utf8(ConnectAgent(connection));
}

std::string LaunchWithAgent(const LaunchRequest& request, AgentConnection* connection) {
  PrepareQtThreads();
  const QString program = QString::fromStdWString(request.program);
  const QString unfit = UnfitProgram(program);
  if (!unfit.isEmpty()) return Utf8(unfit);
  QString commandLine = Quoted(QDir::toNativeSeparators(program));
  for (const std::wstring& argument : request.arguments) commandLine += ' ' + Quoted(QString::fromStdWString(argument));
  std::wstring mutableLine = commandLine.toStdWString();
  connection->began = std::chrono::steady_clock::now();
  std::vector<wchar_t> environment = EnvironmentWithCallerFolderOnPath();
  const std::wstring folder = !request.workingDir.empty()
                                  ? request.workingDir
                                  : QDir::toNativeSeparators(QFileInfo(program).absolutePath()).toStdWString();
  // Under Wine the first program of a desktop to need its window starts the
  // process that owns it (explorer.exe): let that be this one. Started by the
  // application it would be ended with the application's job, while the next
  // application of the same desktop already uses its windows, and that one
  // dies of an X error.
  GetDesktopWindow();
  STARTUPINFOW startup{};
  startup.cb = sizeof startup;
  PROCESS_INFORMATION started{};
  if (!CreateProcessW(nullptr, &mutableLine[0], nullptr, nullptr, FALSE, CREATE_UNICODE_ENVIRONMENT, environment.data(),
                      folder.c_str(), &startup, &started))
    return Utf8(QString("cannot start %1 (error %2)").arg(program).arg(GetLastError()));
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
    return Utf8(QString("%1 ended at its start (exit code 0x%2)").arg(program).arg(code, 0, 16));
  }
  return Utf8(ConnectAgent(connection));
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
