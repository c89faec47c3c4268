#include "kwscript/ScriptHost.h"

#include <activscp.h>

#include <fstream>
#include <sstream>
#include <vector>

#include <QtCore/QString>

#include "host/HostSupport.h"
#include "kwscript/Checks.h"
#include "kwscript/Output.h"
#include "kwscript/StackGuard.h"
#include "kwscript/ThrownValues.h"
#include "kwscript/ValueText.h"

namespace kwscript {

namespace {

const CLSID CLSID_JScriptEngine = {0xf414c260, 0x6ac0, 0x11cf, {0xb6, 0xd1, 0x00, 0xaa, 0x00, 0xbb, 0xbb, 0x58}};
const CLSID CLSID_VBScriptEngine = {0xb54f3741, 0x5b07, 0x11cf, {0xa4, 0xb0, 0x00, 0xaa, 0x00, 0x4a, 0x55, 0xe8}};
// IActiveScriptParse64, which mingw-w64's uuid library does not define.
const IID IID_ScriptParse64 = {0xc7ef7658, 0xe1ee, 0x480e, {0x97, 0xea, 0xd5, 0x2c, 0xb4, 0xd7, 0x6d, 0x17}};

struct Known {
  HRESULT hr;
  const char* name;
  const char* meaning;
};

const Known kKnown[] = {
    {DISP_E_TYPEMISMATCH, "DISP_E_TYPEMISMATCH", "an argument has a type the member does not take"},
    {DISP_E_BADPARAMCOUNT, "DISP_E_BADPARAMCOUNT",
     "the member takes another number of arguments"},
    {DISP_E_UNKNOWNNAME, "DISP_E_UNKNOWNNAME", "the object has no member of that name"},
    {DISP_E_MEMBERNOTFOUND, "DISP_E_MEMBERNOTFOUND", "the object has no such member"},
    {DISP_E_EXCEPTION, "DISP_E_EXCEPTION", "the member failed; its own code follows"},
    {DISP_E_PARAMNOTOPTIONAL, "DISP_E_PARAMNOTOPTIONAL", "an argument is missing"},
    {DISP_E_BADVARTYPE, "DISP_E_BADVARTYPE", "the platform's dispatch cannot carry a type of this member"},
    {DISP_E_OVERFLOW, "DISP_E_OVERFLOW", "a number does not fit the member's argument"},
    {E_NOINTERFACE, "E_NOINTERFACE", "the library knows no such type name"},
    {E_INVALIDARG, "E_INVALIDARG", "an argument is not valid"},
    {E_FAIL, "E_FAIL", "unspecified failure"},
    {E_ABORT, "E_ABORT", "the script was stopped"},
    {E_PENDING, "E_PENDING", "the call is still under way in a window it opened"},
    {E_ACCESSDENIED, "E_ACCESSDENIED", "the call is refused on this object"},
    {RPC_E_DISCONNECTED, "RPC_E_DISCONNECTED", "the object is gone"},
    {static_cast<HRESULT>(0x800A01AE), "VBS 430", "a member failed (VBScript's word for DISP_E_EXCEPTION)"},
    {static_cast<HRESULT>(0x800A01B6), "JS/VBS 438", "the object does not support this property or method"},
    {static_cast<HRESULT>(0x800A01A8), "JS/VBS 424", "an object is required"},
    {static_cast<HRESULT>(0x800A000D), "JS/VBS 13", "type mismatch"},
    {static_cast<HRESULT>(0x800A01C2), "JS/VBS 450", "wrong number of arguments or invalid property assignment"},
    {static_cast<HRESULT>(0x800A138F), "JS 5007", "an object is expected"},
    {static_cast<HRESULT>(0x800A1391), "JS 5009", "undefined identifier"},
    {static_cast<HRESULT>(0x800A03EC), "JS 1004", "syntax error: ';' expected"},
    {static_cast<HRESULT>(0x800A03EA), "JS 1002", "syntax error"},
    {static_cast<HRESULT>(0x800A139E), "JS 5022", "exception thrown and not caught"},
    {static_cast<HRESULT>(0x800A001C), "JS/VBS 28", "the script's calls nest too deep"},
};

constexpr HRESULT kThrownNotCaught = static_cast<HRESULT>(0x800A139E);

const Known* Lookup(HRESULT hr) {
  for (const Known& known : kKnown)
    if (known.hr == hr) return &known;
  return nullptr;
}

// Whether an error is the script's own (JScript's throw of an Error,
// VBScript's Err.Raise), which its message says all about: it comes
// neither from an object of this host (whose failures name "kwscript" as
// their source) nor from the engine itself (whose sources are its
// "Microsoft ... error" names), and it has a message.
bool ThrownByScript(const EXCEPINFO& info) {
  const QString source = info.bstrSource != nullptr ? QString::fromWCharArray(info.bstrSource) : QString();
  return source != "kwscript" && !source.startsWith("Microsoft") && info.bstrDescription != nullptr &&
         SysStringLen(info.bstrDescription) > 0;
}

// The site the engine reports to: it hands out "app" and prints errors
// (or, for a kept engine, keeps the last report for its caller).
}  // namespace

class ScriptFunctions::Site final : public kwhost::HostObject<IActiveScriptSite> {
 public:
  Site(std::wstring path, IDispatch* app, std::vector<CheckCallMark> marks, bool print = true)
      : HostObject(IID_IActiveScriptSite), m_path(std::move(path)), m_app(app), m_marks(std::move(marks)),
        m_print(print) {}
  bool failed() const { return m_failed; }
  const QString& report() const { return m_report; }
  // Before the next text of a kept engine: its name, where it differs from
  // what its writer wrote, and no failure yet.
  void Reset(std::wstring path, std::vector<CheckCallMark> marks) {
    m_path = std::move(path);
    m_marks = std::move(marks);
    ClearFailure();
  }
  void ClearFailure() {
    m_failed = false;
    m_report.clear();
  }

  STDMETHOD(GetLCID)(LCID*) override { return E_NOTIMPL; }
  STDMETHOD(GetItemInfo)(LPCOLESTR name, DWORD mask, IUnknown** item, ITypeInfo** info) override {
    IDispatch* object = lstrcmpiW(name, L"app") == 0          ? m_app
                        : lstrcmpiW(name, kStackItem) == 0    ? StackGuard()
                        : lstrcmpiW(name, kThrownItem) == 0   ? ThrownValues()
                                                              : nullptr;
    if (object == nullptr) return TYPE_E_ELEMENTNOTFOUND;
    if ((mask & SCRIPTINFO_IUNKNOWN) && item != nullptr) {
      *item = object;
      object->AddRef();
    }
    if ((mask & SCRIPTINFO_ITYPEINFO) && info != nullptr) *info = nullptr;
    return S_OK;
  }
  STDMETHOD(GetDocVersionString)(BSTR*) override { return E_NOTIMPL; }
  STDMETHOD(OnScriptTerminate)(const VARIANT*, const EXCEPINFO*) override { return S_OK; }
  STDMETHOD(OnStateChange)(SCRIPTSTATE) override { return S_OK; }
  STDMETHOD(OnEnterScript)() override { return S_OK; }
  STDMETHOD(OnLeaveScript)() override { return S_OK; }

  STDMETHOD(OnScriptError)(IActiveScriptError* error) override {
    m_failed = true;
    EXCEPINFO info{};
    error->GetExceptionInfo(&info);
    if (info.pfnDeferredFillIn != nullptr) info.pfnDeferredFillIn(&info);
    DWORD context = 0;
    ULONG line = 0;
    LONG column = 0;
    error->GetSourcePosition(&context, &line, &column);
    const QString where = QString("%1:%2:%3")
                              .arg(QString::fromStdWString(m_path))
                              .arg(line + 1)
                              .arg(OriginalColumn(m_marks, static_cast<int>(line), column) + 1);
    const QString description =
        info.bstrDescription != nullptr ? QString::fromWCharArray(info.bstrDescription, SysStringLen(info.bstrDescription))
                                        : QString();
    QString report;
    if (ThrownByScript(info)) {
      report = where + ": " + description;
    } else {
      const HRESULT hr = info.scode != 0 ? info.scode : static_cast<HRESULT>(0x800A0000 | info.wCode);
      const Known* known = Lookup(hr);
      report = QString("%1: script error 0x%2 %3: %4")
                   .arg(where)
                   .arg(QString::number(static_cast<unsigned long>(hr), 16).toUpper().rightJustified(8, '0'))
                   .arg(known ? known->name : "(no name)", known ? known->meaning : "see the description");
      QString thrown;
      if (hr == kThrownNotCaught && ThrownValueOn(static_cast<int>(line) + 1, &thrown))
        report += ": " + thrown;  // the value itself, which the engine does not give
      else if (!description.isEmpty())
        report += QString(" (%1)").arg(description);
    }
    m_report = report;
    if (m_print) {
      PrintLine(report);
      CurrentChecks().scriptError = report;
    }
    SysFreeString(info.bstrSource);
    SysFreeString(info.bstrDescription);
    SysFreeString(info.bstrHelpFile);
    return S_OK;
  }

 private:
  std::wstring m_path;
  IDispatch* m_app;
  std::vector<CheckCallMark> m_marks;  // where the text differs from the file's
  bool m_print;
  bool m_failed = false;
  QString m_report;
};

namespace {

using CScriptSite = ScriptFunctions::Site;

bool ReadText(const std::wstring& path, std::wstring* text, QString* error) {
  std::ifstream in(QString::fromStdWString(path).toLocal8Bit().constData(), std::ios::binary);
  if (!in) return false;
  std::stringstream bytes;
  bytes << in.rdbuf();
  const std::string all = bytes.str();
  QString decoded;
  if (!ScriptText(QString::fromStdWString(path), QByteArray(all.data(), static_cast<int>(all.size())), &decoded, error))
    return false;
  *text = decoded.toStdWString();
  return true;
}

}  // namespace

bool ScriptText(const QString& path, const QByteArray& bytes, QString* text, QString* error) {
  const int nul = bytes.indexOf('\0');
  if (nul < 0) {
    *text = QString::fromUtf8(bytes.constData(), bytes.size());
    return true;
  }
  const QString before = QString::fromUtf8(bytes.constData(), nul);
  const int line = before.count('\n') + 1;
  const int column = before.size() - (before.lastIndexOf('\n') + 1) + 1;
  *error = QString("%1:%2:%3: the script holds a NUL byte (byte %4 of the file); nothing of it ran")
               .arg(path)
               .arg(line)
               .arg(column)
               .arg(nul + 1);
  return false;
}

const char* HResultName(HRESULT hr) {
  const Known* known = Lookup(hr);
  return known ? known->name : nullptr;
}

const char* HResultMeaning(HRESULT hr) {
  const Known* known = Lookup(hr);
  return known ? known->meaning : nullptr;
}

bool RunScriptFile(const std::wstring& path, IDispatch* app) {
  std::wstring code;
  QString error;
  if (!ReadText(path, &code, &error)) {
    PrintError(error.isEmpty() ? QString("kwscript: cannot read %1").arg(QString::fromStdWString(path)) : error);
    return false;
  }
  return RunScript(path, code, app);
}

bool RunScript(const std::wstring& path, const std::wstring& code, IDispatch* app) {
  const bool vbscript = path.size() > 4 && lstrcmpiW(path.c_str() + path.size() - 4, L".vbs") == 0;
  IActiveScript* engine = nullptr;
  HRESULT hr = CoCreateInstance(vbscript ? CLSID_VBScriptEngine : CLSID_JScriptEngine, nullptr, CLSCTX_INPROC_SERVER,
                                IID_IActiveScript, reinterpret_cast<void**>(&engine));
  if (FAILED(hr)) {
    PrintError(QString("kwscript: no %1 engine (0x%2)")
                  .arg(vbscript ? "VBScript" : "JScript")
                  .arg(QString::number(static_cast<unsigned long>(hr), 16).toUpper()));
    return false;
  }
  std::vector<CheckCallMark> marks, guardMarks;
  const std::wstring marked =
      MarkCheckCalls(vbscript ? GuardProcedures(code, &guardMarks) : NoteThrows(code, &guardMarks), vbscript, &marks);
  ForgetThrownValue();
  SetScriptLanguage(vbscript ? ScriptLanguage::kVBScript : ScriptLanguage::kJScript);
  CheckLog& checks = CurrentChecks();
  checks = CheckLog();
  checks.script = QString::fromStdWString(path);
  checks.checking = !marks.empty();
  marks.insert(marks.end(), guardMarks.begin(), guardMarks.end());
  CScriptSite site(path, app, std::move(marks));
  IActiveScriptParse* parser = nullptr;
  engine->QueryInterface(IID_ScriptParse64, reinterpret_cast<void**>(&parser));
  bool ran = parser != nullptr && SUCCEEDED(parser->InitNew()) && SUCCEEDED(engine->SetScriptSite(&site)) &&
             SUCCEEDED(engine->AddNamedItem(L"app", SCRIPTITEM_ISVISIBLE)) &&
             SUCCEEDED(engine->AddNamedItem(vbscript ? kStackItem : kThrownItem, SCRIPTITEM_ISVISIBLE));
  if (ran) {
    EXCEPINFO exception{};
    hr = parser->ParseScriptText(marked.c_str(), nullptr, nullptr, nullptr, 0, 0, SCRIPTTEXT_ISVISIBLE, nullptr,
                                 &exception);
    SysFreeString(exception.bstrSource);
    SysFreeString(exception.bstrDescription);
    SysFreeString(exception.bstrHelpFile);
    ran = SUCCEEDED(hr) && SUCCEEDED(engine->SetScriptState(SCRIPTSTATE_CONNECTED));
  }
  engine->Close();
  if (parser != nullptr) parser->Release();
  engine->Release();
  return ran && !site.failed();
}

namespace {

// What a kept engine's scripts have besides JScript's own: the helpers the
// host calls to make and read their values, the answer of an asynchronous
// script, and timers.
const wchar_t kPrelude[] = LR"js(
function kwscriptArray() { return []; }
function kwscriptObject() { return {}; }
function kwscriptPut(o, k, v) { o[k] = v; }
function kwscriptIsArray(v) { return Object.prototype.toString.call(v) == "[object Array]"; }
var kwscriptAnswer = {given: false};
function kwscriptCallback() {
  var record = {given: false};
  kwscriptAnswer = record;
  return function (value) {
    if (!record.given) { record.given = true; record.value = value; }
  };
}
function kwscriptAnswered() { return kwscriptAnswer.given; }
function kwscriptAnswerValue() { return kwscriptAnswer.value; }
var kwscriptTimers = [], kwscriptTimerId = 0;
function setTimeout(f, ms) {
  kwscriptTimers.push({id: ++kwscriptTimerId, f: f, at: new Date().getTime() + (ms > 0 ? ms : 0)});
  return kwscriptTimerId;
}
function clearTimeout(id) {
  var left = [];
  for (var i = 0; i < kwscriptTimers.length; i++) if (kwscriptTimers[i].id != id) left.push(kwscriptTimers[i]);
  kwscriptTimers = left;
}
function kwscriptRunTimers() {
  var now = new Date().getTime(), due = [], left = [];
  for (var i = 0; i < kwscriptTimers.length; i++) (kwscriptTimers[i].at <= now ? due : left).push(kwscriptTimers[i]);
  kwscriptTimers = left;
  for (var j = 0; j < due.length; j++) if (typeof due[j].f == "function") due[j].f();
  return kwscriptTimers.length > 0;
}
)js";

// The function a body runs as; it starts on the body's first line.
const wchar_t kBodyFunction[] = L"kwscriptBody";

void FreeException(EXCEPINFO* exception) {
  SysFreeString(exception->bstrSource);
  SysFreeString(exception->bstrDescription);
  SysFreeString(exception->bstrHelpFile);
}

}  // namespace

ScriptFunctions::ScriptFunctions(IDispatch* app) : m_app(app) {
  HRESULT hr = CoCreateInstance(CLSID_JScriptEngine, nullptr, CLSCTX_INPROC_SERVER, IID_IActiveScript,
                                reinterpret_cast<void**>(&m_engine));
  if (FAILED(hr)) {
    m_failure = QString("no JScript engine (0x%1)").arg(QString::number(static_cast<unsigned long>(hr), 16).toUpper());
    return;
  }
  m_site = new Site(L"prelude", app, {}, false);
  m_engine->QueryInterface(IID_ScriptParse64, reinterpret_cast<void**>(&m_parser));
  EXCEPINFO exception{};
  const bool ready =
      m_parser != nullptr && SUCCEEDED(m_parser->InitNew()) && SUCCEEDED(m_engine->SetScriptSite(m_site)) &&
      (app == nullptr || SUCCEEDED(m_engine->AddNamedItem(L"app", SCRIPTITEM_ISVISIBLE))) &&
      SUCCEEDED(m_engine->AddNamedItem(kThrownItem, SCRIPTITEM_ISVISIBLE)) &&
      SUCCEEDED(m_parser->ParseScriptText(kPrelude, nullptr, nullptr, nullptr, 0, 0, SCRIPTTEXT_ISVISIBLE, nullptr,
                                          &exception)) &&
      SUCCEEDED(m_engine->SetScriptState(SCRIPTSTATE_CONNECTED)) &&
      SUCCEEDED(m_engine->GetScriptDispatch(nullptr, &m_global));
  FreeException(&exception);
  if (!ready) m_failure = "the JScript engine did not start" + (m_site->report().isEmpty() ? QString() : ": " + m_site->report());
}

ScriptFunctions::~ScriptFunctions() {
  if (m_global != nullptr) m_global->Release();
  if (m_engine != nullptr) m_engine->Close();
  if (m_parser != nullptr) m_parser->Release();
  if (m_engine != nullptr) m_engine->Release();
  delete m_site;
}

bool ScriptFunctions::CallGlobal(const wchar_t* function, std::vector<VARIANT> args, VARIANT* result,
                                 QString* error) {
  if (!m_failure.isEmpty()) {
    *error = m_failure;
    return false;
  }
  LPOLESTR name = const_cast<LPOLESTR>(function);
  DISPID id = DISPID_UNKNOWN;
  HRESULT hr = m_global->GetIDsOfNames(IID_NULL, &name, 1, LOCALE_USER_DEFAULT, &id);
  if (FAILED(hr)) {
    *error = QString("the engine has no function %1").arg(QString::fromWCharArray(function));
    return false;
  }
  m_site->ClearFailure();
  std::vector<VARIANT> reversed(args.rbegin(), args.rend());
  DISPPARAMS params{reversed.empty() ? nullptr : reversed.data(), nullptr, static_cast<UINT>(reversed.size()), 0};
  EXCEPINFO exception{};
  VARIANT ignored;
  VariantInit(&ignored);
  VariantInit(result != nullptr ? result : &ignored);
  hr = m_global->Invoke(id, IID_NULL, LOCALE_USER_DEFAULT, DISPATCH_METHOD, &params, result != nullptr ? result : &ignored,
                        &exception, nullptr);
  VariantClear(&ignored);
  if (exception.pfnDeferredFillIn != nullptr) exception.pfnDeferredFillIn(&exception);
  if (SUCCEEDED(hr) && !m_site->failed()) {
    FreeException(&exception);
    return true;
  }
  // Reported to the site with its place; or, should the engine not report
  // an error of a call from outside, as the call's exception says.
  if (m_site->failed()) {
    *error = m_site->report();
  } else {
    const HRESULT code = exception.scode != 0 ? exception.scode : hr;
    const char* known = HResultName(code);
    *error = QString("script error 0x%1%2%3")
                 .arg(QString::number(static_cast<unsigned long>(code), 16).toUpper().rightJustified(8, '0'))
                 .arg(known != nullptr ? QString(" ") + known : QString())
                 .arg(exception.bstrDescription != nullptr ? ": " + QString::fromWCharArray(exception.bstrDescription)
                                                           : QString());
  }
  FreeException(&exception);
  if (result != nullptr) VariantClear(result);
  return false;
}

bool ScriptFunctions::Call(const std::wstring& name, const std::wstring& body, const std::vector<VARIANT>& args,
                           VARIANT* result, QString* error) {
  VariantInit(result);
  if (!m_failure.isEmpty()) {
    *error = m_failure;
    return false;
  }
  // The function's head sits on the body's first line, so that the
  // engine's lines are the body's; its columns there are set back by the
  // head's length.
  const std::wstring head = std::wstring(L"function ") + kBodyFunction + L"() {";
  std::vector<CheckCallMark> marks{{0, 0, static_cast<int>(head.size())}};
  const std::wstring text = head + NoteThrows(body, &marks) + L"\n}";
  ForgetThrownValue();
  SetScriptLanguage(ScriptLanguage::kJScript);
  m_site->Reset(name, marks);
  EXCEPINFO exception{};
  HRESULT hr = m_parser->ParseScriptText(text.c_str(), nullptr, nullptr, nullptr, 0, 0, SCRIPTTEXT_ISVISIBLE, nullptr,
                                         &exception);
  FreeException(&exception);
  if (FAILED(hr) || m_site->failed()) {
    *error = m_site->failed() ? m_site->report() : QString("the script could not be parsed (0x%1)").arg(ulong(hr), 8, 16, QChar('0'));
    return false;
  }
  std::vector<VARIANT> copies(args.size());
  for (std::size_t i = 0; i < args.size(); ++i) {
    VariantInit(&copies[i]);
    VariantCopy(&copies[i], const_cast<VARIANT*>(&args[i]));
  }
  const bool called = CallGlobal(kBodyFunction, copies, result, error);
  for (VARIANT& copy : copies) VariantClear(&copy);
  return called;
}

namespace {

VARIANT DispatchValue(IDispatch* object) {
  VARIANT value;
  V_VT(&value) = VT_DISPATCH;
  V_DISPATCH(&value) = object;
  return value;
}

}  // namespace

IDispatch* ScriptFunctions::NewArray() {
  VARIANT made;
  QString error;
  if (!CallGlobal(L"kwscriptArray", {}, &made, &error) || V_VT(&made) != VT_DISPATCH) return nullptr;
  return V_DISPATCH(&made);
}

IDispatch* ScriptFunctions::NewObject() {
  VARIANT made;
  QString error;
  if (!CallGlobal(L"kwscriptObject", {}, &made, &error) || V_VT(&made) != VT_DISPATCH) return nullptr;
  return V_DISPATCH(&made);
}

bool ScriptFunctions::Put(IDispatch* container, const VARIANT& key, const VARIANT& value) {
  QString error;
  return CallGlobal(L"kwscriptPut", {DispatchValue(container), key, value}, nullptr, &error);
}

bool ScriptFunctions::IsArray(IDispatch* object) {
  VARIANT answer;
  QString error;
  if (!CallGlobal(L"kwscriptIsArray", {DispatchValue(object)}, &answer, &error)) return false;
  const bool array = V_VT(&answer) == VT_BOOL && V_BOOL(&answer) == VARIANT_TRUE;
  VariantClear(&answer);
  return array;
}

IDispatch* ScriptFunctions::NewCallback() {
  VARIANT made;
  QString error;
  if (!CallGlobal(L"kwscriptCallback", {}, &made, &error) || V_VT(&made) != VT_DISPATCH) return nullptr;
  return V_DISPATCH(&made);
}

bool ScriptFunctions::Answered(VARIANT* value) {
  VARIANT given;
  QString error;
  VariantInit(value);
  if (!CallGlobal(L"kwscriptAnswered", {}, &given, &error)) return false;
  const bool answered = V_VT(&given) == VT_BOOL && V_BOOL(&given) == VARIANT_TRUE;
  VariantClear(&given);
  return answered && CallGlobal(L"kwscriptAnswerValue", {}, value, &error);
}

bool ScriptFunctions::RunDueTimers(bool* pending, QString* error) {
  VARIANT left;
  if (!CallGlobal(L"kwscriptRunTimers", {}, &left, error)) {
    *pending = false;
    return false;
  }
  *pending = V_VT(&left) == VT_BOOL && V_BOOL(&left) == VARIANT_TRUE;
  VariantClear(&left);
  return true;
}

}  // namespace kwscript
