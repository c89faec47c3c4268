// kwagent.dll: what kwscript (or kwdriver) loads into a running Qt 4.8
// application that was never built for it. Its one export, KwAgentRun, runs
// on a thread that the loader starts in the application (so nothing happens
// under the loader lock): it connects to the loader's pipe, reads the
// opening (agentkit/Protocol.md), refuses it when it cannot serve it
// (another protocol version, another client attached, no QApplication),
// and hands a driver's session to ServeDriverSession and any other job to the
// application's GUI thread, where the script runs with the same "app" object
// as in kwscript's own form. What the script prints and its exit status go
// back through the pipe, and so do the script's checks (Checks.h), for
// kwscript to sum up and report. The agent stays loaded; kwQtWrappers.dll is loaded
// for one request and unloaded after it.
// The "publish" request runs no script: it registers the "app" object in
// the Running Object Table under the name PublishedName gives, for clients
// in other processes, until kwscript says "stop" or goes away. Then every
// object handed out is disconnected (clients get RPC_E_DISCONNECTED) before
// the library is unloaded; the application runs on.
#include <windows.h>

#include <QtCore/QCoreApplication>
#include <QtCore/QEvent>
#include <QtCore/QString>
#include <QtCore/QStringList>
#include <QtCore/QTimerEvent>
#include <QtGui/QApplication>

#include <objbase.h>

#include <atomic>
#include <memory>
#include <mutex>

#include "agent/DriverSession.h"
#include "agent/ScriptCommands.h"
#include "agentkit/AgentPipe.h"
#include "agentkit/Protocol.h"
#include "agentkit/QtText.h"
#include "host/HostSupport.h"
#include "host/ManagerHost.h"
#include "kwscript/AppObject.h"
#include "kwscript/Checks.h"
#include "kwscript/CrashReport.h"
#include "kwscript/MoreWrappers.h"
#include "automation/ObjectQuery.h"
#include "automation/ObjectTree.h"
#include "kwscript/Output.h"
#include "kwscript/ScriptRunner.h"

namespace {

using kwagentkit::Job;
using kwagentkit::Utf8;
using kwscript::PrintError;
using kwscript::PrintLine;

// Exit statuses the agent gives besides the script's own 0 and 1.
constexpr int kCannotRun = 2;
constexpr int kAlreadyAttached = 3;

// Messages reach the pipe from the GUI thread (output), from the agent's
// thread (heartbeats, the status) and from a crashing thread: one at a time.
std::mutex g_writing;

// The loader's event for "a message was written" (AgentPipe.h), when it made one.
HANDLE volatile g_written = nullptr;

// Writes one message and wakes the loader; the caller holds g_writing.
bool WriteAndSignal(HANDLE pipe, const std::string& message) {
  const bool written = kwagentkit::WriteMessage(pipe, message);
  HANDLE event = g_written;
  if (written && event != nullptr) SetEvent(event);
  return written;
}

bool Send(HANDLE pipe, const std::string& message) {
  std::lock_guard<std::mutex> lock(g_writing);
  return WriteAndSignal(pipe, message);
}

void SendLine(const QString& line, bool error, void* pipe) {
  Send(pipe, error ? kwagentkit::ErrMessage(Utf8(line)) : kwagentkit::OutMessage(Utf8(line)));
}

// The pipe of the request under way, for a crash report.
HANDLE volatile g_pipe = nullptr;

// Set on the GUI thread once a request's status is known, until the
// agent's thread has sent it.
std::atomic<bool> g_statusOnTheWay{false};

// A process that exits (its own ExitProcess, after Qt's main returned or a
// script closed it) says so to the kwscript attached, which tells it from a
// process killed from outside, where no code of it runs any more. Qt's
// application object says it as it goes, while every thread still runs;
// DllMain says it again, after ExitProcess has ended the other threads,
// only if no message was under way. A script that closed the application
// ended before it: its status goes first, for kwscript to read that it
// ended well.
void SayExiting() {
  constexpr int kStatusWaitMs = 2000;
  for (int waited = 0; g_statusOnTheWay && waited < kStatusWaitMs; waited += 10) Sleep(10);
  HANDLE pipe = g_pipe;
  if (pipe != nullptr) Send(pipe, kwagentkit::ExitMessage());
}

// On the GUI thread, where Qt's post routines are kept.
void SayExitingWithQt() {
  static const bool registered = (qAddPostRoutine(&SayExiting), true);
  (void)registered;
}

// While kwscript waits for a script, the agent says once a second that
// the application still runs: kwscript tells a frozen application (whose
// threads all stand still) from a slow script by the silence. A line of
// output under way says as much, so a heartbeat never waits for one.
constexpr DWORD kHeartbeatMs = 1000;

void SendHeartbeat(HANDLE pipe) {
  std::unique_lock<std::mutex> lock(g_writing, std::try_to_lock);
  if (lock.owns_lock()) WriteAndSignal(pipe, kwagentkit::BeatMessage());
}

// Waits for `done` while the GUI thread lives, with heartbeats, at most
// `seconds` (0: without limit), then asks the script to stop and gives it
// 10 s more, cutting it off after the first if it runs in its engine. 0
// once `done` is set, or the status to end with after saying why not: the
// script does not stop (2), the GUI thread ended (4). The cut-off is tried
// a second at a time, each tick, until it catches the script or the time
// is up, and the heartbeat goes on meanwhile: kwscript would take a
// silence of a few seconds for a frozen application.
int AwaitScript(HANDLE pipe, HANDLE done, int seconds) {
  constexpr int kCutOffTryMs = 1000;
  const DWORD start = GetTickCount();
  bool stopAsked = false, cutOff = false;
  for (;;) {
    HANDLE gui = kwagent::GuiThread();
    HANDLE waits[2] = {done, gui};
    const DWORD woke = WaitForMultipleObjects(gui != nullptr ? 2 : 1, waits, FALSE, kHeartbeatMs);
    const DWORD elapsed = GetTickCount() - start;
    if (woke == WAIT_OBJECT_0) return 0;
    if (woke == WAIT_OBJECT_0 + 1) {
      SendLine("kwscript: the application's GUI thread ended during the script", true, pipe);
      return 4;
    }
    if (stopAsked && elapsed >= seconds * 1000u + kwscript::ScriptRunner::kStopGraceMs) {
      SendLine(QString("kwscript: the script did not finish within %1 s and does not stop").arg(seconds), true, pipe);
      return 2;
    }
    SendHeartbeat(pipe);
    if (seconds > 0 && !stopAsked && elapsed >= seconds * 1000u) {
      kwscript::ScriptRunner::RequestStop(QString("the script did not finish within %1 s").arg(seconds));
      stopAsked = true;
    } else if (stopAsked && !cutOff && elapsed >= seconds * 1000u + kwscript::ScriptRunner::kCutOffGraceMs) {
      cutOff = kwscript::ScriptRunner::CutOffStuckScript(kCutOffTryMs);
      if (cutOff)
        SendLine("kwscript: " + kwscript::ScriptRunner::CutOffReport(seconds), true, pipe);
      else
        SendHeartbeat(pipe);
    }
  }
}

// The status a request ended with, its mark that a script is attached and
// its events, kept until the request is gone, which may be long after the
// agent's thread gave up on it: a script stuck in a call that never
// returns ends when the call returns.
struct RequestEnd {
  HANDLE attached = nullptr;
  HANDLE scriptDone = nullptr;
  HANDLE finished = nullptr;
  int status = 2;
};

// Lets the next script attach once this one has ended, whatever a call it
// posted still does (a modal dialog it opened waits for the next script to
// answer it), and closes the request's events once the request has
// finished; on a thread of its own when the agent's thread gives up.
DWORD WINAPI ReleaseWhenFinished(void* parameter) {
  auto* end = static_cast<RequestEnd*>(parameter);
  if (end->scriptDone != nullptr) WaitForSingleObject(end->scriptDone, INFINITE);
  CloseHandle(end->attached);
  if (end->finished != nullptr) WaitForSingleObject(end->finished, INFINITE);
  for (HANDLE handle : {end->scriptDone, end->finished})
    if (handle != nullptr) CloseHandle(handle);
  delete end;
  return 0;
}

// A crash of the application: said to kwscript with the checks made so
// far (the script has reported the crash as its error by now) and the
// status of an application that ended during the script.
// A driver session is under way (its messages are JSON).
std::atomic<bool> g_inSession{false};

void SendCrash(const QString& line) {
  HANDLE pipe = g_pipe;
  if (pipe == nullptr) return;
  if (g_inSession) {
    Send(pipe, kwagentkit::CrashMessage(Utf8(line)));
    return;
  }
  Send(pipe, kwagentkit::ErrMessage(Utf8(line)));
  Send(pipe, kwagentkit::ChecksMessage(kwscript::CurrentChecks().ToJson()));
  Send(pipe, kwagentkit::EndMessage(4));
}

// The name the "app" object of a publishing agent is registered under, as a
// file moniker: what VBScript's GetObject and MkParseDisplayName resolve.
std::wstring PublishedName(DWORD pid) { return L"kwQtWrappers." + std::to_wstring(pid); }

// An object no client ever reaches, marshalled once from the GUI thread and
// never released: Wine unregisters IDispatch's RPC interface from an
// apartment with its last stub, and a client would then get
// RPC_S_UNKNOWN_IF, not RPC_E_DISCONNECTED, for the objects it still holds
// after the publication ends.
class DispatchAnchor final : public kwhost::HostObject<IDispatch> {
 public:
  DispatchAnchor() : HostObject(IID_IDispatch) {}
  STDMETHOD(GetTypeInfoCount)(UINT*) override { return E_NOTIMPL; }
  STDMETHOD(GetTypeInfo)(UINT, LCID, ITypeInfo**) override { return E_NOTIMPL; }
  STDMETHOD(GetIDsOfNames)(REFIID, LPOLESTR*, UINT, LCID, DISPID*) override { return E_NOTIMPL; }
  STDMETHOD(Invoke)(DISPID, REFIID, LCID, WORD, DISPPARAMS*, VARIANT*, EXCEPINFO*, UINT*) override {
    return E_NOTIMPL;
  }
};

void AnchorDispatchInterface() {
  static DispatchAnchor anchor;
  static IStream* stream = nullptr;
  if (stream != nullptr || FAILED(CreateStreamOnHGlobal(nullptr, TRUE, &stream))) return;
  CoMarshalInterface(stream, IID_IDispatch, &anchor, MSHCTX_LOCAL, nullptr, MSHLFLAGS_TABLESTRONG);
}

// Why the application's Qt cannot be driven, or empty when it can: it must
// be a Qt 4.8 with a QApplication (the library calls QtCore and QtGui 4.8).
QString QtRefusal() {
  if (GetModuleHandleW(L"QtCore4.dll") == nullptr || GetModuleHandleW(L"QtGui4.dll") == nullptr)
    return "the application has no QtCore4.dll and QtGui4.dll loaded";
  const QString version = QString::fromLatin1(qVersion());
  if (!version.startsWith("4.8.")) return QString("the application's Qt is %1, not 4.8").arg(version);
  if (qobject_cast<QApplication*>(QCoreApplication::instance()) == nullptr)
    return "the application has no QApplication (yet)";
  return QString();
}

// One request, carried out on the GUI thread. `scriptDone` is set once the
// status is known, `finished` once the library is unloaded again.
class AgentRequest : public QObject {
 public:
  static const QEvent::Type kStart = static_cast<QEvent::Type>(QEvent::User + 0x4B41);
  static const QEvent::Type kStopPublishing = static_cast<QEvent::Type>(QEvent::User + 0x4B42);

  // `status` receives the exit status before `scriptDone` is set.
  AgentRequest(kwagentkit::Opening opening, int* status) : m_opening(std::move(opening)), m_status(status) {
    m_context.folder = kwagentkit::FromUtf8(m_opening.folder);
    m_scriptDone = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    m_finished = CreateEventW(nullptr, TRUE, FALSE, nullptr);
  }
  ~AgentRequest() override { SetEvent(m_finished); }

  HANDLE scriptDone() const { return m_scriptDone; }
  HANDLE finished() const { return m_finished; }

  bool event(QEvent* event) override {
    if (event->type() == kStart) {
      Start();
      return true;
    }
    if (event->type() == kStopPublishing) {
      StopPublishing();
      return true;
    }
    return QObject::event(event);
  }

 protected:
  // Unloads the library once no posted call is under way any more.
  void timerEvent(QTimerEvent*) override {
    if (m_app != nullptr && m_app->PendingCalls() > 0) return;
    killTimer(m_cleanupTimer);
    m_app.reset();
    m_more.reset();
    m_host.reset();
    if (m_comStarted) CoUninitialize();
    deleteLater();
  }

 private:
  void Finish(int status) {
    *m_status = status;
    if (m_opening.job != Job::Publish && g_pipe != nullptr) g_statusOnTheWay = true;
    SetEvent(m_scriptDone);
    m_cleanupTimer = startTimer(50);
  }

  void Start() {
    kwagent::NoteGuiThread();
    SayExitingWithQt();
    const QString refusal = QtRefusal();
    if (!refusal.isEmpty()) {
      PrintError("kwscript: cannot drive this application: " + refusal);
      return Finish(kCannotRun);
    }
    if (m_opening.job == Job::Tree) {
      const int maxItems = m_opening.maxItems > 0 ? m_opening.maxItems : kwauto::kDefaultMaxItems;
      foreach (const QString& line, kwauto::DescribeObjectTree(m_opening.json, maxItems)) PrintLine(line);
      return Finish(0);
    }
    m_comStarted = SUCCEEDED(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED));
    m_host.reset(new kwhost::ManagerHost((kwagent::AgentFolder() + L"kwQtWrappers.dll").c_str()));
    if (!m_host->ready()) {
      PrintError("kwscript: the agent cannot load kwQtWrappers.dll beside it");
      return Finish(kCannotRun);
    }
    m_more.reset(new kwscript::MoreWrappers(*m_host));
    m_context.manager = m_host->manager();
    m_app.reset(new kwscript::CAppObject(&m_context));
    if (m_opening.job == Job::Publish) return Publish();
    auto* runner = new kwscript::ScriptRunner(kwagentkit::FromUtf8(m_opening.path).toStdWString(),
                                              kwagentkit::FromUtf8(m_opening.script).toStdWString(), m_app.get(),
                                              [this](bool succeeded) { Finish(succeeded ? 0 : 1); });
    runner->setParent(this);
    runner->Start();
  }

  // Registers the app object in the Running Object Table; the status is 0
  // once it is there.
  void Publish() {
    const std::wstring name = PublishedName(GetCurrentProcessId());
    AnchorDispatchInterface();
    IRunningObjectTable* table = nullptr;
    IMoniker* moniker = nullptr;
    HRESULT hr = GetRunningObjectTable(0, &table);
    if (SUCCEEDED(hr)) hr = CreateFileMoniker(name.c_str(), &moniker);
    if (SUCCEEDED(hr)) hr = table->Register(ROTFLAGS_REGISTRATIONKEEPSALIVE, m_app.get(), moniker, &m_registration);
    if (moniker != nullptr) moniker->Release();
    if (table != nullptr) table->Release();
    if (FAILED(hr)) {
      PrintError(QString("kwscript: cannot publish the application's objects (HRESULT 0x%1)").arg(ulong(hr), 8, 16, QChar('0')));
      return Finish(kCannotRun);
    }
    PrintLine(QString("published as \"%1\": GetObject(\"%1\") in VBScript, or that file moniker in the "
                      "Running Object Table; until kwscript's input ends").arg(QString::fromStdWString(name)));
    m_published = true;
    *m_status = 0;
    SetEvent(m_scriptDone);
  }

  // Takes the app object out of the table and cuts every client off what it
  // holds, then unloads the library as after a script.
  void StopPublishing() {
    if (!m_published) return;
    m_published = false;
    IRunningObjectTable* table = nullptr;
    if (SUCCEEDED(GetRunningObjectTable(0, &table))) {
      table->Revoke(m_registration);
      table->Release();
    }
    kwscript::DisconnectFacades(&m_context);
    CoDisconnectObject(m_app.get(), 0);
    m_cleanupTimer = startTimer(50);
  }

  kwagentkit::Opening m_opening;
  bool m_published = false;
  DWORD m_registration = 0;
  HANDLE m_scriptDone, m_finished;
  int* m_status;
  bool m_comStarted = false;
  int m_cleanupTimer = 0;
  kwscript::ScriptContext m_context;
  std::unique_ptr<kwhost::ManagerHost> m_host;
  std::unique_ptr<kwscript::MoreWrappers> m_more;  // unloaded before the library
  std::unique_ptr<kwscript::CAppObject> m_app;
};

}  // namespace

// See SayExiting.
extern "C" BOOL WINAPI DllMain(HINSTANCE, DWORD reason, void* processEnds) {
  HANDLE pipe = g_pipe;
  if (reason == DLL_PROCESS_DETACH && processEnds != nullptr && pipe != nullptr) {
    std::unique_lock<std::mutex> lock(g_writing, std::try_to_lock);
    if (lock.owns_lock()) WriteAndSignal(pipe, kwagentkit::ExitMessage());
  }
  return TRUE;
}

extern "C" __declspec(dllexport) DWORD WINAPI KwAgentRun(void* pipeName) {
  HANDLE pipe = CreateFileW(static_cast<const wchar_t*>(pipeName), GENERIC_READ | GENERIC_WRITE, 0, nullptr,
                            OPEN_EXISTING, 0, nullptr);
  if (pipe == INVALID_HANDLE_VALUE) return kCannotRun;
  std::string bytes;
  if (!kwagentkit::ReadMessage(pipe, &bytes)) {
    CloseHandle(pipe);
    return kCannotRun;
  }
  kwagentkit::Opening opening;
  const std::string unreadable = kwagentkit::ParseOpening(bytes, &opening);
  if (!unreadable.empty()) {
    Send(pipe, kwagentkit::RefusedMessage(kCannotRun, unreadable));
    CloseHandle(pipe);
    return kCannotRun;
  }
  const std::wstring mutexName = L"Local\\kwagent-" + std::to_wstring(GetCurrentProcessId());
  HANDLE attached = CreateMutexW(nullptr, FALSE, mutexName.c_str());
  if (attached == nullptr || GetLastError() == ERROR_ALREADY_EXISTS) {
    Send(pipe, kwagentkit::RefusedMessage(kAlreadyAttached, opening.job == Job::Session
                                                                ? "another client is attached to this application already"
                                                                : "another script is attached to this application already"));
    if (attached != nullptr) CloseHandle(attached);
    CloseHandle(pipe);
    return kAlreadyAttached;
  }
  // This loader's now (the one attached before has gone).
  HANDLE written = OpenEventW(EVENT_MODIFY_STATE, FALSE,
                              kwagentkit::WrittenEventName(static_cast<const wchar_t*>(pipeName)).c_str());
  if (HANDLE before = InterlockedExchangePointer(const_cast<void**>(&g_written), written)) CloseHandle(before);
  QCoreApplication* application = QCoreApplication::instance();
  const QString refusal = application == nullptr ? QString("it has no QApplication (yet)")
                          : opening.job == Job::Session ? QtRefusal()
                                                        : QString();
  if (!refusal.isEmpty()) {
    Send(pipe, kwagentkit::RefusedMessage(kCannotRun, Utf8("cannot drive this application: " + refusal)));
    CloseHandle(pipe);
    CloseHandle(attached);
    return kCannotRun;
  }
  kwscript::SetOutputSink(&SendLine, pipe);
  kwscript::CurrentChecks() = kwscript::CheckLog();  // none from an earlier request
  g_pipe = pipe;
  kwscript::ReportUnhandledExceptions(&SendCrash, &kwscript::ScriptRunner::GiveCrashToScript);
  if (opening.job == Job::Session) {
    // A driver's session: commands until it says "quit" or goes away.
    g_inSession = true;
    const int status = kwagent::ServeDriverSession(pipe, static_cast<const wchar_t*>(pipeName), opening,
                                                   [pipe](const std::string& message) { return Send(pipe, message); });
    g_inSession = false;
    kwscript::SetOutputSink(nullptr, nullptr);
    g_pipe = nullptr;
    CloseHandle(pipe);
    CloseHandle(attached);
    return static_cast<DWORD>(status);
  }
  // On the heap: a script that does not stop outlives this thread and
  // still writes its status when it ends.
  auto* end = new RequestEnd;
  end->attached = attached;
  auto* request = new AgentRequest(opening, &end->status);
  end->scriptDone = request->scriptDone();
  end->finished = request->finished();
  request->moveToThread(application->thread());
  QCoreApplication::postEvent(request, new QEvent(AgentRequest::kStart));
  const int given = AwaitScript(pipe, end->scriptDone, opening.timeoutSeconds);
  if (given != 0) {
    // It makes no calls that could fail: nothing more can be done from
    // here. The request and its events stay (the script still holds
    // them), and so does the mark until the script has ended.
    g_pipe = nullptr;
    g_statusOnTheWay = false;
    kwscript::SetOutputSink(nullptr, nullptr);
    Send(pipe, kwagentkit::EndMessage(given));
    CloseHandle(pipe);
    CloseHandle(CreateThread(nullptr, 0, &ReleaseWhenFinished, end, 0, nullptr));
    return static_cast<DWORD>(given);
  }
  const int status = end->status;
  if (opening.job == Job::Publish && status == 0) {
    // Published: kwscript writes "stop", or the pipe breaks when it ends.
    // It reads nothing meanwhile, so what clients print stays here.
    kwscript::SetOutputSink(nullptr, nullptr);
    Send(pipe, kwagentkit::PubMessage());
    std::string stop;  // "stop", the one message a loader sends now
    kwagentkit::ReadMessage(pipe, &stop);
    QCoreApplication::postEvent(request, new QEvent(AgentRequest::kStopPublishing));
    WaitForSingleObject(end->finished, INFINITE);  // every client cut off, the library unloaded
  }
  kwscript::SetOutputSink(nullptr, nullptr);
  if (opening.job == Job::Run) Send(pipe, kwagentkit::ChecksMessage(kwscript::CurrentChecks().ToJson()));
  Send(pipe, kwagentkit::EndMessage(status));
  g_pipe = nullptr;
  g_statusOnTheWay = false;
  CloseHandle(pipe);
  ReleaseWhenFinished(end);  // the next script may attach; returns once the request is gone
  return static_cast<DWORD>(status);
}
