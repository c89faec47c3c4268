#include "kwscript/Attach.h"

#include <windows.h>
#include <tlhelp32.h>

#include <QtCore/QByteArray>
#include <QtCore/QFile>
#include <QtCore/QDir>
#include <QtCore/QElapsedTimer>
#include <QtCore/QFileInfo>
#include <QtCore/QRegExp>

#include <atomic>
#include <mutex>
#include <cstdio>
#include <thread>
#include <vector>

#include "agentkit/AgentPipe.h"
#include "kwscript/Checks.h"

namespace kwscript {

using kwagentkit::ReadMessage;
using kwagentkit::WriteMessage;

namespace {

constexpr DWORD kStartLimitMs = 30000;
// A symbol QtCore4.dll exports when it was built with this library's
// compiler (mingw-w64's g++: the Itanium C++ ABI): QString::fromUtf8(const char*, int).
const char kAbiProbe[] = "_ZN7QString8fromUtf8EPKci";

// kwscript's own words go to standard error: standard output carries only
// what the agent sends (a script's output, an object tree in JSON).
void Say(const QString& text) {
  std::fprintf(stderr, "kwscript: %s\n", text.toUtf8().constData());
  std::fflush(stderr);
}

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

// The process `target` names (an id or an image file name), or 0 after saying why not.
DWORD FindProcess(const QString& target) {
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
    Say(QString("no process matches \"%1\" in this Wine prefix (%2)")
            .arg(target,
                 QString::fromLocal8Bit(qgetenv("WINEPREFIX").isEmpty() ? "the default one" : qgetenv("WINEPREFIX"))));
  } else {
    QStringList ids;
    for (DWORD match : matches) ids << QString::number(match);
    Say(QString("several processes match \"%1\" (ids %2): give the id").arg(target, ids.join(", ")));
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

std::wstring OwnFolder() {
  wchar_t path[MAX_PATH] = {};
  GetModuleFileNameW(nullptr, path, MAX_PATH);
  std::wstring folder(path);
  return folder.substr(0, folder.find_last_of(L"\\/") + 1);
}

// Loads the agent into the process and starts KwAgentRun(pipeName) there;
// the thread that runs it, or null after saying why not.
HANDLE StartAgent(DWORD pid, HANDLE process, const std::wstring& pipeName) {
  const std::wstring agentPath = OwnFolder() + L"kwagent.dll";
  HMODULE local = LoadLibraryW(agentPath.c_str());
  void* localStart = local ? reinterpret_cast<void*>(GetProcAddress(local, "KwAgentRun")) : nullptr;
  if (localStart == nullptr) {
    Say(QString("cannot load %1").arg(QString::fromStdWString(agentPath)));
    return nullptr;
  }
  void* loadLibrary = reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"kernel32.dll"), "LoadLibraryW"));
  void* remotePath = WriteRemote(process, agentPath);
  Handle loader(remotePath ? StartRemote(process, loadLibrary, remotePath) : nullptr);
  if (!loader || WaitForSingleObject(loader.get(), kStartLimitMs) != WAIT_OBJECT_0) {
    Say(QString("cannot start a thread in process %1 (error %2)").arg(pid).arg(GetLastError()));
    return nullptr;
  }
  const Module* agent = nullptr;
  const auto modules = ModulesOf(pid);
  agent = FindModule(modules, "kwagent.dll");
  if (agent == nullptr) {
    Say(QString("the agent could not be loaded into process %1").arg(pid));
    return nullptr;
  }
  void* remoteStart = agent->base + (static_cast<BYTE*>(localStart) - reinterpret_cast<BYTE*>(local));
  void* remoteName = WriteRemote(process, pipeName);
  HANDLE runner = remoteName ? StartRemote(process, remoteStart, remoteName) : nullptr;
  if (runner == nullptr) Say(QString("cannot start the agent in process %1 (error %2)").arg(pid).arg(GetLastError()));
  return runner;
}

// Waits for the agent to connect to `pipe`, while its thread and the
// process run; false after saying why it did not.
bool AwaitAgent(HANDLE pipe, const std::wstring& pipeName, HANDLE runner, HANDLE process) {
  std::atomic<bool> done{false};
  bool connected = false;
  std::thread connector([&] {
    connected = ConnectNamedPipe(pipe, nullptr) || GetLastError() == ERROR_PIPE_CONNECTED;
    done = true;
  });
  const DWORD start = GetTickCount();
  QString failure;
  while (!done) {
    if (WaitForSingleObject(process, 0) == WAIT_OBJECT_0)
      failure = "the application ended before the agent started";
    else if (WaitForSingleObject(runner, 0) == WAIT_OBJECT_0)
      failure = "the agent ended without answering";
    else if (GetTickCount() - start > kStartLimitMs)
      failure = "the agent did not answer within 30 seconds";
    if (!failure.isEmpty()) break;
    Sleep(20);
  }
  if (!done) {  // a client of our own releases the waiting connector
    Handle unblock(CreateFileW(pipeName.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr));
    connector.join();
    Say(failure);
    return false;
  }
  connector.join();
  return connected;
}

// With KWSCRIPT_TIMING set, the time from starting the application
// (--launch) or from loading the agent (--attach) to the script's first
// output is printed on standard error, for the benchmarks.
QElapsedTimer g_clock;
const char* g_clockFrom = nullptr;  // what the clock runs from: set once it started
bool g_timed = false;

void StartClock(const char* from) {
  if (g_clockFrom != nullptr) return;
  g_clockFrom = from;
  g_clock.start();
}

void ReportFirstOutput() {
  if (g_timed || g_clockFrom == nullptr || qgetenv("KWSCRIPT_TIMING").isEmpty()) return;
  std::fprintf(stderr, "kwscript: timing: %lld ms from %s to the script's first output\n",
               static_cast<long long>(g_clock.elapsed()), g_clockFrom);
  g_timed = true;
}

// Sets `ended` once kwscript's standard input ends (or breaks), from a
// thread of its own that stays blocked in its read until then.
void SignalWhenInputEnds(HANDLE ended) {
  std::thread([ended] {
    const HANDLE input = GetStdHandle(STD_INPUT_HANDLE);
    char buffer[256];
    DWORD read = 0;
    while (ReadFile(input, buffer, sizeof buffer, &read, nullptr) && read > 0) {
    }
    SetEvent(ended);
  }).detach();
}

QString ExitCode(HANDLE process) {
  DWORD code = 0;
  GetExitCodeProcess(process, &code);
  return QString("exit code 0x%1").arg(code, 0, 16);
}

// The agent's heartbeats come once a second; this long a silence past the
// time limit means that the application stands still (stopped, or every
// thread of it blocked), and kwscript gives up on it.
constexpr DWORD kSilenceMs = 3000;
// The agent itself gives a script that does not stop 10 s past its limit.
constexpr DWORD kAgentGraceMs = 10000;

// The conversation with the agent: the request sent and the agent's
// messages read and printed on a thread of its own, while kwscript's own
// thread keeps the time limit, watches the process and, when publishing,
// its input. Once kwscript gives up, the listener prints nothing more; it
// stays blocked in its read (with the pipe and this object) until kwscript
// ends.
class Conversation {
 public:
  Conversation(HANDLE pipe, const AgentRequestText& request)
      : m_pipe(pipe),
        m_request(request),
        m_listened(CreateEventW(nullptr, TRUE, FALSE, nullptr)),
        m_published(CreateEventW(nullptr, FALSE, FALSE, nullptr)),
        m_unpublish(CreateEventW(nullptr, FALSE, FALSE, nullptr)),
        m_lastHeard(GetTickCount()) {}

  // The exit status, after saying what went wrong.
  int Run(HANDLE process) {
    std::thread listener([this] { Listen(); });
    const DWORD start = GetTickCount();
    const DWORD limitMs = m_request.timeoutSeconds * 1000u;
    HANDLE inputEnded = nullptr;
    for (;;) {
      HANDLE waits[3] = {m_listened.get(), process, inputEnded ? inputEnded : m_published.get()};
      const DWORD woke = WaitForMultipleObjects(3, waits, FALSE, 200);
      if (woke == WAIT_OBJECT_0) {
        listener.join();
        return Outcome(process);
      }
      if (woke == WAIT_OBJECT_0 + 1) {
        // The pipe breaks as the process goes: what the agent sent before
        // is read to its end first (a publishing agent sends nothing more).
        if (inputEnded == nullptr && WaitForSingleObject(m_listened.get(), 2000) == WAIT_OBJECT_0) {
          listener.join();
          return Outcome(process);
        }
        break;
      }
      if (woke == WAIT_OBJECT_0 + 2 && inputEnded == nullptr) {
        inputEnded = CreateEventW(nullptr, TRUE, FALSE, nullptr);
        SignalWhenInputEnds(inputEnded);
        continue;
      }
      if (woke == WAIT_OBJECT_0 + 2) {
        SetEvent(m_unpublish.get());  // the listener asks the agent to stop
        continue;                     // and reads its status
      }
      if (limitMs == 0) continue;
      const DWORD elapsed = GetTickCount() - start, silent = GetTickCount() - m_lastHeard;
      if ((elapsed >= limitMs && silent >= kSilenceMs) || elapsed >= limitMs + kAgentGraceMs + kSilenceMs) {
        StopListening();
        listener.detach();
        const QString why = silent >= kSilenceMs ? QString("the application has said nothing for %1 s").arg(silent / 1000)
                                                 : QString("its agent sent no status");
        Say(QString("the application does not answer: the script did not finish within %1 s and %2")
                .arg(m_request.timeoutSeconds)
                .arg(why));
        return kGivenUp;
      }
    }
    StopListening();
    listener.detach();
    Say(Ended(process));
    return kApplicationEnded;
  }

 private:
  // Sends the request and prints the agent's output until its status, or
  // until the pipe breaks.
  void Listen() {
    if (!WriteMessage(m_pipe, m_request.command.toUtf8()) || !WriteMessage(m_pipe, m_request.scriptPath.toUtf8()) ||
        !WriteMessage(m_pipe, m_request.scriptText.toUtf8()) ||
        !WriteMessage(m_pipe, QDir::currentPath().toUtf8()) ||
        !WriteMessage(m_pipe, QByteArray::number(m_request.timeoutSeconds))) {
      SetEvent(m_listened.get());
      return;
    }
    for (QByteArray message; ReadMessage(m_pipe, &message, &m_lastHeard);) {
      if (message == "pub") {  // published until kwscript's thread says
        SetEvent(m_published.get());
        WaitForSingleObject(m_unpublish.get(), INFINITE);
        WriteMessage(m_pipe, "stop");
        continue;
      }
      std::lock_guard<std::mutex> lock(m_printing);
      if (m_stopped) return;
      if (message.startsWith("out ")) {
        ReportFirstOutput();
        std::fwrite(message.constData() + 4, 1, message.size() - 4, stdout);
        std::fputc('\n', stdout);
        std::fflush(stdout);
      } else if (message.startsWith("err ")) {
        std::fprintf(stderr, "%s\n", message.constData() + 4);
        std::fflush(stderr);
      } else if (message.startsWith("checks ")) {
        CurrentChecks() = CheckLog::Deserialized(message.mid(7));
      } else if (message == "exit") {
        m_exited = true;
      } else if (message.startsWith("end ")) {
        m_status = message.mid(4).toInt();
        break;
      }
    }
    SetEvent(m_listened.get());
  }

  void StopListening() {
    std::lock_guard<std::mutex> lock(m_printing);
    m_stopped = true;
  }

  // The status once the listener is done: the agent's, or the process's end.
  int Outcome(HANDLE process) {
    if (m_status >= 0) return m_status;
    if (WaitForSingleObject(process, 2000) == WAIT_OBJECT_0) {
      Say(Ended(process));
      return kApplicationEnded;
    }
    Say("the agent stopped answering");
    return kAttachFailed;
  }

  // How the process ended: by itself, or killed from outside (no code of
  // it ran to say it exits, and Wine gives such a process no exit code of
  // its own).
  QString Ended(HANDLE process) const {
    const QString during = m_request.command == "publish" ? "while published" : "during the script";
    if (m_exited) return QString("the application ended %1 (%2)").arg(during, ExitCode(process));
    return QString("the application was killed %1: it ended without exiting (%2)").arg(during, ExitCode(process));
  }

  HANDLE m_pipe;
  const AgentRequestText& m_request;
  Handle m_listened, m_published, m_unpublish;
  std::atomic<DWORD> m_lastHeard;
  std::mutex m_printing;
  bool m_stopped = false;
  std::atomic<bool> m_exited{false};
  std::atomic<int> m_status{-1};
};

int RunIn(DWORD pid, HANDLE process, const AgentRequestText& request) {
  const QString unfit = Unfit(pid, process);
  if (!unfit.isEmpty()) {
    Say(unfit);
    return kAttachFailed;
  }
  const std::wstring pipeName =
      QString("\\\\.\\pipe\\kwscript-%1-%2-%3").arg(GetCurrentProcessId()).arg(pid).arg(GetTickCount()).toStdWString();
  Handle pipe(
      CreateNamedPipeW(pipeName.c_str(), PIPE_ACCESS_DUPLEX, PIPE_TYPE_BYTE | PIPE_WAIT, 1, 65536, 65536, 0, nullptr));
  if (!pipe) {
    Say(QString("cannot make the pipe to the agent (error %1)").arg(GetLastError()));
    return kAttachFailed;
  }
  StartClock("loading the agent");
  Handle runner(StartAgent(pid, process, pipeName));
  if (!runner || !AwaitAgent(pipe.get(), pipeName, runner.get(), process)) return kAttachFailed;
  // Left open and allocated when kwscript gives up: its listener may still
  // be blocked on the pipe.
  auto* conversation = new Conversation(pipe.get(), request);
  const int status = conversation->Run(process);
  if (status != kGivenUp) {
    delete conversation;
    return status;
  }
  pipe.release();
  return status;
}

// The application's environment: kwscript's, with kwscript's folder (and
// its copies of Qt's DLLs) first on PATH.
std::vector<wchar_t> EnvironmentWithOwnFolderOnPath() {
  std::vector<wchar_t> out;
  wchar_t* block = GetEnvironmentStringsW();
  bool pathSeen = false;
  for (const wchar_t* entry = block; *entry != L'\0'; entry += wcslen(entry) + 1) {
    std::wstring text(entry);
    if (_wcsnicmp(entry, L"PATH=", 5) == 0) {
      text = L"PATH=" + OwnFolder() + L";" + text.substr(5);
      pathSeen = true;
    }
    out.insert(out.end(), text.begin(), text.end());
    out.push_back(L'\0');
  }
  FreeEnvironmentStringsW(block);
  if (!pathSeen) {
    const std::wstring text = L"PATH=" + OwnFolder();
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

// `text` as one word of a shell command line: quoted when it holds
// anything but plain path characters.
QString ShellWord(const QString& text) {
  if (!text.isEmpty() && !text.contains(QRegExp("[^A-Za-z0-9_./:+=-]"))) return text;
  return '\'' + QString(text).replace("'", "'\\''") + '\'';
}

// What a user needs to reach an application left running: its id, how to
// run another script in it and how to end it, with the display and the Wine
// prefix both need (kwscript runs with the ones the application got).
void SayHowToReach(DWORD pid) {
  const QString display = QString::fromLocal8Bit(qgetenv("DISPLAY"));
  const QString prefix = QString::fromLocal8Bit(qgetenv("WINEPREFIX"));
  const QString inPrefix = prefix.isEmpty() ? QString() : "WINEPREFIX=" + ShellWord(prefix) + ' ';
  const QString onDisplay = display.isEmpty() ? QString() : "DISPLAY=" + ShellWord(display) + ' ';
  Say(QString("the application keeps running as process %1").arg(pid));
  Say(QString("run a script in it: %1%2./scripts/script.sh --attach %3 FILE").arg(onDisplay, inPrefix).arg(pid));
  Say(QString("end it: %1wine taskkill /f /pid %2 (its display ends with the prefix's last program)")
          .arg(inPrefix)
          .arg(pid));
}

}  // namespace

int AttachAndRun(const QString& target, const AgentRequestText& request) {
  const DWORD pid = FindProcess(target);
  if (pid == 0) return kAttachFailed;
  Handle process(OpenProcess(PROCESS_ALL_ACCESS, FALSE, pid));
  if (!process) {
    Say(QString("cannot open process %1 (error %2)").arg(pid).arg(GetLastError()));
    return kAttachFailed;
  }
  return RunIn(pid, process.get(), request);
}

int LaunchAndRun(const QString& program, const QStringList& arguments, bool keep, const AgentRequestText& request) {
  const QString unfit = UnfitProgram(program);
  if (!unfit.isEmpty()) {
    Say(unfit);
    return kAttachFailed;
  }
  QString commandLine = Quoted(QDir::toNativeSeparators(program));
  foreach (const QString& argument, arguments) commandLine += ' ' + Quoted(argument);
  std::wstring mutableLine = commandLine.toStdWString();
  StartClock("starting the application");
  std::vector<wchar_t> environment = EnvironmentWithOwnFolderOnPath();
  const std::wstring folder = QDir::toNativeSeparators(QFileInfo(program).absolutePath()).toStdWString();
  STARTUPINFOW startup{};
  startup.cb = sizeof startup;
  PROCESS_INFORMATION started{};
  if (!CreateProcessW(nullptr, &mutableLine[0], nullptr, nullptr, FALSE, CREATE_UNICODE_ENVIRONMENT, environment.data(),
                      folder.c_str(), &startup, &started)) {
    Say(QString("cannot start %1 (error %2)").arg(program).arg(GetLastError()));
    return kAttachFailed;
  }
  Handle process(started.hProcess), thread(started.hThread);
  // A job that ends the application with kwscript, whatever ends kwscript.
  Handle job(keep ? nullptr : CreateJobObjectW(nullptr, nullptr));
  if (job) {
    JOBOBJECT_EXTENDED_LIMIT_INFORMATION limits{};
    limits.BasicLimitInformation.LimitFlags = JOB_OBJECT_LIMIT_KILL_ON_JOB_CLOSE;
    SetInformationJobObject(job.get(), JobObjectExtendedLimitInformation, &limits, sizeof limits);
    AssignProcessToJobObject(job.get(), process.get());
  }
  WaitForInputIdle(process.get(), kStartLimitMs);
  const DWORD start = GetTickCount();
  while (!ShowsAWindow(started.dwProcessId) && WaitForSingleObject(process.get(), 50) == WAIT_TIMEOUT &&
         GetTickCount() - start < kStartLimitMs) {
  }
  int status = kAttachFailed;
  if (WaitForSingleObject(process.get(), 0) == WAIT_OBJECT_0) {
    DWORD code = 0;
    GetExitCodeProcess(process.get(), &code);
    Say(QString("%1 ended at its start (exit code 0x%2)").arg(program).arg(code, 0, 16));
  } else {
    status = RunIn(started.dwProcessId, process.get(), request);
  }
  if (keep) {
    SayHowToReach(started.dwProcessId);
  } else if (WaitForSingleObject(process.get(), 0) == WAIT_TIMEOUT) {
    TerminateProcess(process.get(), 0);
    WaitForSingleObject(process.get(), 5000);
  }
  return status;
}

}  // namespace kwscript
