// kwscript: runs a JScript (.js) or VBScript (.vbs) file against a Qt 4.8
// application through kwQtWrappers.dll, as a test-automation host does.
//   kwscript FILE                          against its own demo form
//   kwscript --launch APP [ARGS...] -- FILE   starts APP, runs FILE inside it,
//                                          ends APP afterwards (--keep: leaves it)
//   kwscript --attach PID|IMAGE FILE       inside a running application
//   kwscript --tree [--json] (--launch APP [ARGS...] | --attach PID|IMAGE)
//                                          prints the application's object tree
//   kwscript --publish (--launch APP [ARGS...] | --attach PID|IMAGE)
//                                          registers the application's "app"
//                                          object for other processes (VBScript's
//                                          GetObject, the Running Object Table)
//                                          until kwscript's input ends
//   kwscript --members TYPE [--json]       what a script can call on a TYPE object
//   --junit FILE (with a script)           writes a JUnit XML report of its checks
//   --max-items N (with --tree)            lists up to N rows of each item view
// The exit status is 0 when the script succeeded, 1 when it failed or a
// check failed (the run then ends with "N passed, M failed"), 2 when the
// arguments are wrong (a script file that cannot be read included); the
// attach modes' own statuses are in Attach.h.
#include <windows.h>

#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QTimer>
#include <QtGui/QApplication>

#include <cstdio>
#include <cstring>
#include <thread>

#include "host/ManagerHost.h"
#include "kwscript/AppObject.h"
#include "kwscript/Attach.h"
#include "kwscript/Checks.h"
#include "kwscript/CrashReport.h"
#include "kwscript/Output.h"
#include "kwscript/DemoForm.h"
#include "kwscript/MemberList.h"
#include "kwscript/MoreWrappers.h"
#include "automation/ObjectTree.h"
#include "kwscript/ScriptHost.h"
#include "kwscript/ScriptRunner.h"

namespace {

const char kUsage[] =
    "usage: kwscript FILE.js|FILE.vbs\n"
    "       kwscript --launch APP.exe [ARGS...] [--keep] -- FILE\n"
    "       kwscript --attach PID|IMAGE.exe FILE\n"
    "       kwscript --tree [--json] (--launch APP.exe [ARGS...] [--keep] | --attach PID|IMAGE.exe)\n"
    "       kwscript --publish (--launch APP.exe [ARGS...] [--keep] | --attach PID|IMAGE.exe)\n"
    "       kwscript --members TYPE [--json]\n"
    "--timeout SECONDS (any mode) stops a script that runs longer (default 300; 0: never)\n"
    "--junit FILE (with a script) writes a JUnit XML report of its checks and its error\n"
    "--max-items N (with --tree) lists up to N rows of each list, table or tree (default 50)\n";

// Asks the script to stop once `seconds` have passed before the run ends,
// and ends kwscript if it does not stop.
class Watchdog {
 public:
  explicit Watchdog(int seconds) : m_done(CreateEventW(nullptr, TRUE, FALSE, nullptr)) {
    if (seconds > 0)
      m_thread = std::thread([this, seconds] {
        QString why;
        if (kwscript::ScriptRunner::AwaitOrStop(m_done, seconds, &why)) return;
        kwscript::PrintError("kwscript: " + why);
        TerminateProcess(GetCurrentProcess(), 2);
      });
  }
  ~Watchdog() {
    SetEvent(m_done);
    if (m_thread.joinable()) m_thread.join();
    CloseHandle(m_done);
  }

 private:
  HANDLE m_done;
  std::thread m_thread;
};

// A script that cannot be read is a mistake in kwscript's arguments, as a
// missing one is (status 2), not a script that failed (1).
constexpr int kUsageError = 2;

bool OpenScript(QFile* file) {
  if (file->open(QIODevice::ReadOnly)) return true;
  const QByteArray name = file->fileName().toUtf8();
  if (!file->exists())
    std::fprintf(stderr, "kwscript: no script file %s\n", name.constData());
  else
    std::fprintf(stderr, "kwscript: cannot read the script file %s (%s)\n", name.constData(),
                 file->errorString().toUtf8().constData());
  return false;
}

// Runs FILE against the demo form, the script on a fiber of the GUI thread.
int RunOnDemoForm(QApplication& application, const QString& path, int timeout) {
  kwhost::ManagerHost host(L"kwQtWrappers.dll");
  if (!host.ready()) {
    std::fprintf(stderr, "kwscript: cannot load kwQtWrappers.dll\n");
    return 2;
  }
  DemoForm form;
  form.show();
  QApplication::processEvents();
  kwscript::MoreWrappers more(host);
  kwscript::ScriptContext context;
  context.manager = host.manager();
  context.folder = QDir::currentPath();
  bool succeeded = false;
  {
    kwscript::CAppObject app(&context);
    QFile file(path);
    if (!OpenScript(&file)) return kUsageError;
    QString text, error;
    if (!kwscript::ScriptText(path, file.readAll(), &text, &error)) {
      std::fprintf(stderr, "%s\n", error.toUtf8().constData());
      return 1;
    }
    Watchdog watchdog(timeout);
    kwscript::ScriptRunner runner(path.toStdWString(), text.toStdWString(), &app,
                                  [&](bool done) {
                                    succeeded = done;
                                    application.quit();
                                  });
    runner.Start();
    application.exec();
    while (app.PendingCalls() > 0) QApplication::processEvents(QEventLoop::WaitForMoreEvents);
  }
  QApplication::processEvents();
  std::printf("form: %s\n", form.Describe().toUtf8().constData());
  std::printf("script objects left after the engine closed: %ld\n", static_cast<long>(context.facades.size()));
  more.Unload();
  host.Unload();
  return succeeded ? 0 : 1;
}

constexpr int kDefaultTimeoutSeconds = 300;

// The attach modes: --launch APP [ARGS...] [--keep] [-- FILE] or --attach TARGET [FILE].
int RunInApplication(const QStringList& args, kwscript::AgentRequestText request, bool needsFile) {
  const bool launch = args.value(0) == "--launch";
  QStringList rest = args.mid(1);
  QString file;
  bool keep = false;
  if (launch) {
    const int separator = rest.indexOf("--");
    if (separator >= 0) {
      file = rest.value(separator + 1);
      rest = rest.mid(0, separator);
    }
    keep = rest.removeAll("--keep") > 0;
  } else {
    file = rest.value(1);
    rest = rest.mid(0, 1);
  }
  if (rest.isEmpty() || (needsFile && file.isEmpty())) {
    std::fprintf(stderr, "%s", kUsage);
    return 2;
  }
  if (needsFile) {
    QFile script(file);
    if (!OpenScript(&script)) return kUsageError;
    QString error;
    if (!kwscript::ScriptText(file, script.readAll(), &request.scriptText, &error)) {
      std::fprintf(stderr, "%s\n", error.toUtf8().constData());
      return 1;
    }
    request.scriptPath = file;
  }
  return launch ? kwscript::LaunchAndRun(rest.first(), rest.mid(1), keep, request)
                : kwscript::AttachAndRun(rest.first(), request);
}

// Takes "NAME VALUE" out of `args`: false when NAME is there without a
// value; `value` stays as it is when NAME is not there.
bool TakeOption(QStringList* args, const QString& name, QString* value) {
  const int at = args->indexOf(name);
  if (at < 0) return true;
  if (at + 1 >= args->size()) return false;
  *value = args->at(at + 1);
  args->removeAt(at);
  args->removeAt(at);
  return true;
}

// Takes "NAME N" out of `args`, N a whole number from `least` on.
bool TakeNumberOption(QStringList* args, const QString& name, int least, int* value) {
  QString text = QString::number(*value);
  bool ok = false;
  if (!TakeOption(args, name, &text)) return false;
  *value = text.toInt(&ok);
  return ok && *value >= least;
}

}  // namespace

int main(int argc, char** argv) {
  kwscript::UseLineFeedsWhenRedirected();
  QStringList args;
  for (int i = 1; i < argc; ++i) args << QString::fromLocal8Bit(argv[i]);
  int timeout = kDefaultTimeoutSeconds, maxItems = kwauto::kDefaultMaxItems;
  QString junit;
  if (!TakeNumberOption(&args, "--timeout", 0, &timeout) || !TakeNumberOption(&args, "--max-items", 0, &maxItems) ||
      !TakeOption(&args, "--junit", &junit)) {
    std::fprintf(stderr, "%s", kUsage);
    return 2;
  }
  const QString mode = args.value(0);
  if (mode == "--launch" || mode == "--attach")
    return kwscript::FinishChecks(RunInApplication(args, {"run", "", "", timeout}, true), junit);
  if (mode == "--publish") return RunInApplication(args.mid(1), {"publish", "", "", 0}, false);
  if (mode == "--tree") {
    const bool json = args.value(1) == "--json";
    return RunInApplication(args.mid(json ? 2 : 1), {"tree", "", "", timeout, json, maxItems}, false);
  }
  if (args.isEmpty() || (mode == "--members" && args.size() < 2) || (mode.startsWith("--") && mode != "--members")) {
    std::fprintf(stderr, "%s", kUsage);
    return 2;
  }
  QApplication application(argc, argv);
  if (mode == "--members") {
    kwhost::ManagerHost host(L"kwQtWrappers.dll");
    if (!host.ready()) {
      std::fprintf(stderr, "kwscript: cannot load kwQtWrappers.dll\n");
      return 2;
    }
    const bool json = args.value(2) == "--json";
    kwscript::MoreWrappers more(host);  // the classes of both sets
    return kwscript::ListMembers(more.either(), args.value(1), json);
  }
  kwscript::ReportUnhandledExceptions(&kwscript::PrintLine, &kwscript::ScriptRunner::GiveCrashToScript);
  return kwscript::FinishChecks(RunOnDemoForm(application, args.first(), timeout), junit);
}
