// executeScript and executeAsyncScript: the script's text runs as the body
// of a JScript function inside the application, with kwscript's "app"
// object and facades (the first script of a session loads the library and
// starts the engine; the session's end unloads them). `arguments` holds
// the command's args, element references as the facades of their widgets;
// what the function returns (or, for an asynchronous script, what it hands
// the callback it gets as its last argument) comes back as JSON, a facade
// of a QObject as an element reference.
#include <windows.h>

#include <QtCore/QObject>
#include <QtCore/QRegExp>
#include <QtCore/QTimerEvent>
#include <QtGui/QAbstractItemView>

#include <memory>
#include <vector>

#include "agent/ScriptCommands.h"
#include "agentkit/Launcher.h"
#include "automation/ItemViews.h"
#include "host/ManagerHost.h"
#include "kwscript/AppObject.h"
#include "kwscript/MoreWrappers.h"
#include "kwscript/ScriptHost.h"
#include "kwscript/ScriptObject.h"
#include "kwscript/ScriptRunner.h"
#include "kwscript/ValueText.h"

namespace kwagent {

std::wstring AgentFolder() {
  static const char anchor = 0;
  return kwagentkit::ModuleFolder(&anchor);
}

namespace {

// What a session's scripts run with, on the GUI thread: COM, the library
// and the second wrappers set, the "app" object and the kept engine; torn
// down in the opposite order.
class ScriptScope {
 public:
  ScriptScope() {
    m_comStarted = SUCCEEDED(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED));
    m_host.reset(new kwhost::ManagerHost((AgentFolder() + L"kwQtWrappers.dll").c_str()));
    if (!m_host->ready()) {
      m_failure = "the agent cannot load kwQtWrappers.dll beside it";
      return;
    }
    m_more.reset(new kwscript::MoreWrappers(*m_host));
    m_context.manager = m_host->manager();
    m_app.reset(new kwscript::CAppObject(&m_context));
    m_functions.reset(new kwscript::ScriptFunctions(m_app.get()));
    m_failure = m_functions->failure();
  }
  ~ScriptScope() {
    m_functions.reset();
    kwscript::DisconnectFacades(&m_context);
    m_app.reset();
    m_more.reset();
    m_host.reset();
    if (m_comStarted) CoUninitialize();
  }

  const QString& failure() const { return m_failure; }
  // Whether no call a script posted or gave up is still under way (in a
  // modal dialog's loop): the library must stay loaded until then.
  bool idle() const { return m_app == nullptr || m_app->PendingCalls() == 0; }
  kwscript::ScriptFunctions& functions() { return *m_functions; }
  kwscript::ScriptContext& context() { return m_context; }

 private:
  QString m_failure;
  bool m_comStarted = false;
  kwscript::ScriptContext m_context;
  std::unique_ptr<kwhost::ManagerHost> m_host;
  std::unique_ptr<kwscript::MoreWrappers> m_more;  // unloaded before the library
  std::unique_ptr<kwscript::CAppObject> m_app;
  std::unique_ptr<kwscript::ScriptFunctions> m_functions;
};

// Deletes a session's scope once its scripts' calls have all returned.
class ScopeReaper : public QObject {
 public:
  explicit ScopeReaper(ScriptScope* scope) : m_scope(scope) { startTimer(50); }

 protected:
  void timerEvent(QTimerEvent*) override {
    if (!m_scope->idle()) return;
    delete m_scope;
    deleteLater();
  }

 private:
  ScriptScope* m_scope;
};

void EndScope(ScriptScope* scope) {
  if (scope->idle())
    delete scope;
  else
    new ScopeReaper(scope);
}

ScriptScope& ScopeOf(SessionState& session) {
  if (!session.scripts) session.scripts = std::shared_ptr<ScriptScope>(new ScriptScope, &EndScope);
  auto& scope = *static_cast<ScriptScope*>(session.scripts.get());
  if (!scope.failure().isEmpty()) Fail("javascript error", "scripts cannot run: " + scope.failure());
  return scope;
}

// Script values that clear themselves.
class Values {
 public:
  ~Values() {
    for (VARIANT& value : m_values) VariantClear(&value);
  }
  VARIANT* Add() {
    m_values.emplace_back();
    VariantInit(&m_values.back());
    return &m_values.back();
  }
  const std::vector<VARIANT>& all() const { return m_values; }

 private:
  std::vector<VARIANT> m_values;
};

// How the session's values cross between JSON and the script: arrays and
// objects of the engine, element references as facades and back.
kwscript::JsonValueHooks HooksFor(ScriptScope& scope, SessionState& session) {
  kwscript::JsonValueHooks hooks;
  kwscript::ScriptFunctions* functions = &scope.functions();
  kwscript::ScriptContext* context = &scope.context();
  ElementTable* elements = &session.elements;
  hooks.newContainer = [functions](bool array) { return array ? functions->NewArray() : functions->NewObject(); };
  hooks.put = [functions](IDispatch* container, const VARIANT& key, const VARIANT& value) {
    return functions->Put(container, key, value);
  };
  hooks.isArray = [functions](IDispatch* object) { return functions->IsArray(object); };
  // An item arrives as {view, row, column, text, selected}, its view a facade.
  const kwscript::JsonValueHooks plain = hooks;
  hooks.hostObject = [elements, context, plain](const Json& object, VARIANT* value, QString* why) {
    if (!object.contains(kElementKey)) return false;
    const Element element = elements->ResolveReference(object);
    VARIANT facade;
    V_VT(&facade) = VT_DISPATCH;
    V_DISPATCH(&facade) = kwscript::WrapObject(element.object.data(), context);
    if (!element.item) {
      *value = facade;
      return true;
    }
    const auto* view = qobject_cast<QAbstractItemView*>(element.object.data());
    const Json item = {{"row", element.index.row()},
                       {"column", element.index.column()},
                       {"text", Utf8(kwauto::ItemText(element.index))},
                       {"selected", view != nullptr && kwauto::ItemSelected(view, element.index)}};
    *why = kwscript::VariantOfJson(item, plain, value);
    if (why->isEmpty() && V_VT(value) == VT_DISPATCH) {
      VARIANT key;
      V_VT(&key) = VT_BSTR;
      V_BSTR(&key) = kwscript::NewBstr("view");
      plain.put(V_DISPATCH(value), key, facade);
      VariantClear(&key);
    }
    VariantClear(&facade);
    return true;
  };
  hooks.facadeJson = [elements](kwscript::CScriptObject& facade, Json* json, QString* why) {
    QString gone;
    if (facade.Gone(&gone)) {
      *why = gone;
      return true;
    }
    QObject* object = kwscript::CScriptObject::ObjectOf(&facade);
    if (object == nullptr) return false;
    *json = elements->Reference(object);
    return true;
  };
  return hooks;
}

// The error of a script that failed or was stopped.
[[noreturn]] void FailScript(const QString& report) {
  QString reason;
  if (kwscript::ScriptRunner::StopRequested(&reason)) Fail("script timeout", "the script did not finish in time");
  Fail("javascript error", report);
}

// A syntax error's report, with a word on the cause when the script is
// written in a later JavaScript than JScript's (a client's function sent as
// an arrow function, say): the engine reads ECMAScript 3 with some of 5.
QString WithSyntaxHint(const QString& report, const QString& script) {
  // JScript's compile errors are 0x800A03E8 and on (JS 1000 to 1099).
  static const QRegExp compileError("0x800A(03E[89A-F]|03F[0-9A-F]|04[0-4][0-9A-F])", Qt::CaseInsensitive);
  if (compileError.indexIn(report) < 0) return report;
  static const QRegExp later("=>|`|\\b(let|const|class)\\s|\\.\\.\\.");
  if (later.indexIn(script) < 0) return report;
  return report + " (scripts run in JScript, which reads ECMAScript 3 with some of 5: write function () {...} "
                  "for an arrow function, var for let and const, strings joined with + for a template literal)";
}

Json Execute(const Json& params, SessionState& session, bool async) {
  const QString script = StringParam(params, "script");
  const Json args = params.contains("args") ? params["args"] : Json::array();
  if (!args.is_array()) Fail("invalid argument", "\"args\" must be an array");
  ScriptScope& scope = ScopeOf(session);
  const kwscript::JsonValueHooks hooks = HooksFor(scope, session);
  Values arguments;
  for (const Json& arg : args) {
    const QString why = kwscript::VariantOfJson(arg, hooks, arguments.Add());
    if (!why.isEmpty()) Fail("invalid argument", "an argument cannot be handed to the script: " + why);
  }
  kwscript::ScriptFunctions& functions = scope.functions();
  if (async) {
    VARIANT* callback = arguments.Add();
    V_VT(callback) = VT_DISPATCH;
    V_DISPATCH(callback) = functions.NewCallback();
  }
  Values outcome;
  VARIANT* result = outcome.Add();
  QString error;
  if (!functions.Call(L"script", script.toStdWString(), arguments.all(), result, &error))
    FailScript(WithSyntaxHint(error, script));
  if (async) {
    // The answer comes through the callback: from the body itself, from a
    // timer function, or from neither before the time runs out.
    VariantClear(result);
    for (;;) {
      if (functions.Answered(result)) break;
      bool pending = false;
      if (!functions.RunDueTimers(&pending, &error)) FailScript(error);
      if (functions.Answered(result)) break;
      if (!kwscript::ScriptRunner::YieldToEventLoop()) FailScript(QString());
    }
  }
  Json value;
  const QString why = kwscript::JsonOfVariant(result, hooks, &value);
  if (!why.isEmpty()) Fail("javascript error", "the script's value cannot be sent: " + why);
  return value;
}

Json ExecuteScript(const Json& params, SessionState& session) { return Execute(params, session, false); }

Json ExecuteAsyncScript(const Json& params, SessionState& session) { return Execute(params, session, true); }

}  // namespace

void ForgetCutOffScripts(SessionState& session) {
  static auto* const kept = new std::vector<std::shared_ptr<void>>;  // for the process's life
  kept->push_back(std::move(session.scripts));
  session.scripts.reset();
}

void AddScriptCommands(CommandTable& table) {
  table.Add("executeScript", &ExecuteScript);
  table.Add("executeAsyncScript", &ExecuteAsyncScript);
  AddAlertCommands(table);
  AddActionCommands(table);
}

}  // namespace kwagent
