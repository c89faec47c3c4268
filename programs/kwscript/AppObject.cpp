#include "kwscript/AppObject.h"

#include "host/HostSupport.h"
#include "host/ManagerHost.h"
#include "kwscript/Output.h"

#include <QtCore/QByteArray>
#include <QtCore/QDir>
#include <QtCore/QElapsedTimer>
#include <QtCore/QEvent>
#include <QtCore/QString>
#include <QtGui/QApplication>
#include <QtGui/QImage>
#include <QtGui/QPixmap>
#include <QtGui/QWidget>

#include <algorithm>
#include <iterator>
#include <vector>

#include "kwscript/Checks.h"
#include "kwscript/CrashReport.h"
#include "automation/InputEvents.h"
#include "kwscript/ObjectList.h"
#include "automation/ObjectQuery.h"
#include "kwscript/ScriptDispatch.h"
#include "kwscript/ScriptRunner.h"
#include "kwscript/ValueText.h"

namespace kwscript {

using kwauto::ChooseMenu;
using kwauto::Click;
using kwauto::ClickItem;
using kwauto::Drag;
using kwauto::Key;
using kwauto::MouseOptions;
using kwauto::ParseButton;
using kwauto::ParseModifiers;
using kwauto::ParseMouseOptions;
using kwauto::QueryObjects;
using kwauto::SelectorError;
using kwauto::Type;
using kwauto::Centre;

namespace {

const wchar_t* const kMethods[] = {L"find",         L"str",         L"text",      L"isNull",  L"processEvents",
                                   L"echo",         L"query",       L"queryAll",  L"waitFor", L"activeModal",
                                   L"activeWindow", L"focusWidget", L"topLevels", L"post",
                                   L"grab",         L"click",       L"doubleClick", L"type",    L"key",
                                   L"clickItem",    L"menu",        L"drag",    L"value"};
enum Method {
  kFind = 1,
  kStr,
  kText,
  kIsNull,
  kProcessEvents,
  kEcho,
  kQuery,
  kQueryAll,
  kWaitFor,
  kActiveModal,
  kActiveWindow,
  kFocusWidget,
  kTopLevels,
  kPost,
  kGrab,
  kClick,
  kDoubleClick,
  kType,
  kKey,
  kClickItem,
  kMenu,
  kDrag,
  kValue,
  kLastMethod = kValue
};

// One call a script posted: made from the event loop on the facade it named,
// with copies of its arguments.
class PostedCall : public QEvent {
 public:
  static const QEvent::Type kType = static_cast<QEvent::Type>(QEvent::User + 0x4B57);
  PostedCall(IDispatch* target, std::wstring member, std::vector<VARIANT> reversed)
      : QEvent(kType), m_target(target), m_member(std::move(member)), m_args(std::move(reversed)) {
    m_target->AddRef();
  }
  ~PostedCall() override {
    for (VARIANT& arg : m_args) VariantClear(&arg);
    m_target->Release();
  }
  void Make() {
    LPOLESTR name = const_cast<LPOLESTR>(m_member.c_str());
    DISPID id = DISPID_UNKNOWN;
    HRESULT hr = m_target->GetIDsOfNames(IID_NULL, &name, 1, LOCALE_USER_DEFAULT, &id);
    EXCEPINFO exception{};
    if (SUCCEEDED(hr)) {
      DISPPARAMS params{m_args.empty() ? nullptr : m_args.data(), nullptr, static_cast<UINT>(m_args.size()), 0};
      VARIANT result;
      VariantInit(&result);
      hr = m_target->Invoke(id, IID_NULL, LOCALE_USER_DEFAULT, DISPATCH_METHOD, &params, &result, &exception, nullptr);
      VariantClear(&result);
    }
    if (FAILED(hr))
      PrintLine(
          QString("kwscript: the posted call %1 failed: 0x%2%3")
              .arg(QString::fromStdWString(m_member))
              .arg(QString::number(static_cast<unsigned long>(exception.scode ? exception.scode : hr), 16).toUpper())
              .arg(exception.bstrDescription ? " (" + QString::fromWCharArray(exception.bstrDescription) + ")"
                                             : QString()));
    SysFreeString(exception.bstrSource);
    SysFreeString(exception.bstrDescription);
    SysFreeString(exception.bstrHelpFile);
  }

 private:
  IDispatch* m_target;
  std::wstring m_member;
  std::vector<VARIANT> m_args;
};

// Makes the posted calls as the event loop delivers them, and counts those
// not yet finished (a call that opens a modal dialog lasts until it closes).
class PostedCalls : public QObject {
 public:
  int pending = 0;
  bool event(QEvent* event) override {
    if (event->type() != PostedCall::kType) return QObject::event(event);
    static_cast<PostedCall*>(event)->Make();
    --pending;
    return true;
  }
};

// Argument `position` (first argument first) of `params`, references followed.
const VARIANT* Argument(const DISPPARAMS* params, UINT position) {
  if (params == nullptr || position >= params->cArgs) return nullptr;
  const VARIANT* arg = &params->rgvarg[params->cArgs - 1 - position];
  return V_VT(arg) == (VT_BYREF | VT_VARIANT) ? V_VARIANTREF(arg) : arg;
}

// Argument `position` as a whole number, or false.
bool NumberArgument(const DISPPARAMS* params, UINT position, int* value) {
  const VARIANT* arg = Argument(params, position);
  VARIANT number;
  VariantInit(&number);
  if (arg == nullptr || FAILED(VariantChangeType(&number, const_cast<VARIANT*>(arg), 0, VT_I4))) return false;
  *value = V_I4(&number);
  return true;
}

// The failure of a call during which the script was asked to stop.
HRESULT RefuseStopped(EXCEPINFO* exception) {
  QString reason;
  ScriptRunner::StopRequested(&reason);
  return Refuse(exception, E_ABORT, reason);
}

QString TextOfVariant(const VARIANT* arg) {
  VARIANT text;
  VariantInit(&text);
  if (FAILED(VariantChangeType(&text, const_cast<VARIANT*>(arg), VARIANT_ALPHABOOL, VT_BSTR))) return "<object>";
  QString out = QString::fromWCharArray(V_BSTR(&text), SysStringLen(V_BSTR(&text)));
  VariantClear(&text);
  return out;
}

// Whether the argument is a number (as against a string or an object).
bool IsNumber(const VARIANT* arg) {
  static const VARTYPE kNumbers[] = {VT_I1,  VT_I2,  VT_I4,   VT_I8, VT_INT, VT_UI1,     VT_UI2,
                                     VT_UI4, VT_UI8, VT_UINT, VT_R4, VT_R8,  VT_DECIMAL, VT_CY};
  return arg != nullptr && std::find(std::begin(kNumbers), std::end(kNumbers), V_VT(arg)) != std::end(kNumbers);
}

// Arguments `*next` and the one after as a place (x, y) when they are
// numbers, moving `*next` past them; false when they are not.
bool PlaceArgument(const DISPPARAMS* params, UINT* next, QPoint* at) {
  int x = 0, y = 0;
  if (!IsNumber(Argument(params, *next)) || !NumberArgument(params, *next, &x) ||
      !NumberArgument(params, *next + 1, &y))
    return false;
  *at = QPoint(x, y);
  *next += 2;
  return true;
}

// A property of a script's own object ({button: "right"} in JScript) as
// text; false when it has none or it is undefined.
bool PropertyText(IDispatch* object, const wchar_t* name, QString* text) {
  LPOLESTR names = const_cast<LPOLESTR>(name);
  DISPID id = DISPID_UNKNOWN;
  if (FAILED(object->GetIDsOfNames(IID_NULL, &names, 1, LOCALE_USER_DEFAULT, &id))) return false;
  DISPPARAMS none{nullptr, nullptr, 0, 0};
  VARIANT value;
  VariantInit(&value);
  HRESULT hr = object->Invoke(id, IID_NULL, LOCALE_USER_DEFAULT, DISPATCH_PROPERTYGET, &none, &value, nullptr, nullptr);
  const bool present = SUCCEEDED(hr) && V_VT(&value) != VT_EMPTY && V_VT(&value) != VT_NULL;
  if (present) *text = TextOfVariant(&value);
  VariantClear(&value);
  return present;
}

// The mouse options argument: a string "button=right modifiers=Shift+Ctrl"
// or an object with the properties button and modifiers.
QString MouseOptionsOf(const VARIANT* arg, MouseOptions* options) {
  if (V_VT(arg) != VT_DISPATCH) return ParseMouseOptions(TextOfVariant(arg), options);
  IDispatch* object = V_DISPATCH(arg);
  if (object == nullptr || CScriptObject::FacadeOf(object) != nullptr)
    return "the options must be a string (\"button=right modifiers=Shift\") or an object ({button: \"right\"})";
  QString button, modifiers, why;
  if (PropertyText(object, L"button", &button)) why = ParseButton(button, &options->button);
  if (why.isEmpty() && PropertyText(object, L"modifiers", &modifiers))
    why = ParseModifiers(modifiers, &options->modifiers);
  return why;
}

void ReturnObject(VARIANT* result, IDispatch* object) {
  if (result == nullptr) {
    if (object != nullptr) object->Release();
    return;
  }
  V_VT(result) = VT_DISPATCH;
  V_DISPATCH(result) = object;  // null: null in JScript, Nothing in VBScript
}

// The text behind a QString, QByteArray or QLatin1String object of this host.
HRESULT TextOfObject(const VARIANT* arg, QString* text) {
  CScriptObject* facade = arg != nullptr && V_VT(arg) == VT_DISPATCH ? CScriptObject::FacadeOf(V_DISPATCH(arg)) : nullptr;
  return facade != nullptr && facade->TextOf(text) ? S_OK : DISP_E_TYPEMISMATCH;
}

// The widget behind an object of this script, or null.
QWidget* WidgetOf(const VARIANT* arg) {
  QObject* object = arg != nullptr && V_VT(arg) == VT_DISPATCH ? CScriptObject::ObjectOf(V_DISPATCH(arg)) : nullptr;
  return object != nullptr && object->isWidgetType() ? static_cast<QWidget*>(object) : nullptr;
}

// Why an argument that should be a widget is none: ": " and what it is.
QString NotAWidget(const VARIANT* arg) {
  const CScriptObject* facade = arg != nullptr && V_VT(arg) == VT_DISPATCH ? CScriptObject::FacadeOf(V_DISPATCH(arg)) : nullptr;
  QString gone;
  if (facade != nullptr && facade->Gone(&gone)) return ": " + gone;
  return ": the first argument must be a widget of this script";
}

}  // namespace

STDMETHODIMP CAppObject::GetIDsOfNames(REFIID, LPOLESTR* names, UINT count, LCID, DISPID* ids) {
  if (count == 1 && names != nullptr && ids != nullptr && CheckMemberId(names[0], ids)) return S_OK;
  return IdsOfFixedNames(kMethods, kLastMethod, names, count, ids);
}

CAppObject::CAppObject(ScriptContext* context)
    : m_context(context), m_calls(new PostedCalls) {}

CAppObject::~CAppObject() { delete m_calls; }  // calls not yet made are dropped with it

int CAppObject::PendingCalls() const {
  return static_cast<PostedCalls*>(m_calls)->pending + ScriptRunner::CallsGivenUp();
}

IDispatch* CAppObject::Wrap(QObject* object) { return WrapObject(object, m_context); }

IDispatch* CAppObject::Find(const QString& name) {
  foreach (QWidget* top, QApplication::topLevelWidgets()) {
    QWidget* widget = top->objectName() == name ? top : top->findChild<QWidget*>(name);
    if (widget != nullptr) return Wrap(widget);
  }
  return nullptr;
}

HRESULT CAppObject::Query(const VARIANT* selector, bool all, int waitMs, VARIANT* result, EXCEPINFO* exception) {
  if (selector == nullptr) return DISP_E_BADPARAMCOUNT;
  const QString text = TextOfVariant(selector);
  QElapsedTimer clock;
  clock.start();
  for (;;) {
    SelectorError error;
    const QList<QObject*> found = QueryObjects(text, &error);
    if (!error.message.isEmpty()) return Refuse(exception, E_INVALIDARG, error.message);
    if (all) {
      std::vector<IDispatch*> objects;
      foreach (QObject* object, found)
        if (IDispatch* wrapped = Wrap(object)) objects.push_back(wrapped);
      ReturnObject(result, CObjectList::Make(std::move(objects)));
      return S_OK;
    }
    if (!found.isEmpty() || clock.elapsed() >= waitMs) {
      ReturnObject(result, found.isEmpty() ? nullptr : Wrap(found.first()));
      return S_OK;
    }
    if (!ScriptRunner::YieldToEventLoop()) return RefuseStopped(exception);
  }
}

HRESULT CAppObject::Post(DISPPARAMS* params, EXCEPINFO* exception) {
  const VARIANT* target = Argument(params, 0);
  const VARIANT* member = Argument(params, 1);
  if (target == nullptr || member == nullptr) return DISP_E_BADPARAMCOUNT;
  if (V_VT(target) != VT_DISPATCH || CScriptObject::ExposerOf(V_DISPATCH(target)) == nullptr)
    return Refuse(exception, DISP_E_TYPEMISMATCH, "app.post: the first argument must be an object of this script");
  std::vector<VARIANT> reversed;  // the member's arguments, last first, as DISPPARAMS holds them
  for (UINT i = 0; i + 2 < params->cArgs; ++i) {
    VARIANT copy;
    VariantInit(&copy);
    const VARIANT* arg = &params->rgvarg[i];
    VariantCopyInd(&copy, const_cast<VARIANT*>(arg));
    reversed.push_back(copy);
  }
  ++static_cast<PostedCalls*>(m_calls)->pending;
  QCoreApplication::postEvent(
      m_calls, new PostedCall(V_DISPATCH(target), TextOfVariant(member).toStdWString(), std::move(reversed)));
  return S_OK;
}

HRESULT CAppObject::Grab(DISPPARAMS* params, VARIANT* result, EXCEPINFO* exception) {
  const VARIANT* file = Argument(params, 1);
  if (file == nullptr) return DISP_E_BADPARAMCOUNT;
  QWidget* widget = WidgetOf(Argument(params, 0));
  if (widget == nullptr)
    return Refuse(exception, DISP_E_TYPEMISMATCH, "app.grab" + NotAWidget(Argument(params, 0)));
  // Pending repaints first, then until two pictures 50 ms apart agree: a
  // style animating a state change (a check box ticking over under the
  // Vista style) has then finished, and the picture shows the state Qt
  // reports. Two seconds at most.
  constexpr int kStepMs = 50, kLimitMs = 2000;
  QElapsedTimer clock;
  clock.start();
  QImage shown = QPixmap::grabWidget(widget).toImage();
  for (;;) {
    const qint64 stepStart = clock.elapsed();
    do
      if (!ScriptRunner::YieldToEventLoop()) return RefuseStopped(exception);
    while (clock.elapsed() - stepStart < kStepMs);
    const QImage next = QPixmap::grabWidget(widget).toImage();
    const bool settled = next == shown;
    shown = next;
    if (settled || clock.elapsed() >= kLimitMs) break;
  }
  const QString path = QDir(m_context->folder).absoluteFilePath(TextOfVariant(file));
  if (!shown.save(path))
    return Refuse(exception, E_FAIL, "app.grab: cannot write " + QDir::toNativeSeparators(path));
  ReturnText(result, QDir::toNativeSeparators(path));
  return S_OK;
}

HRESULT CAppObject::Act(DISPID id, DISPPARAMS* params, EXCEPINFO* exception) {
  static const char* const kUsage[] = {"app.click(widget [, x, y] [, options])",
                                       "app.doubleClick(widget [, x, y] [, options])",
                                       "app.type(widget, text)",
                                       "app.key(widget, \"Ctrl+S\")",
                                       "app.clickItem(view, row, column [, options])",
                                       "app.menu(window, \"File/Save As...\")",
                                       "app.drag(from [, x, y], to [, x, y] [, options])"};
  const QString usage = kUsage[id - kClick];
  QWidget* widget = WidgetOf(Argument(params, 0));
  if (widget == nullptr)
    return Refuse(exception, DISP_E_TYPEMISMATCH, usage + NotAWidget(Argument(params, 0)));
  const VARIANT* second = Argument(params, 1);
  const UINT count = params != nullptr ? params->cArgs : 0;
  QString why;
  int x = 0, y = 0;
  NoteCall(kUsage[id - kClick]);
  struct CallDone {
    ~CallDone() { NoteCall(nullptr); }
  } done;
  // Clicks and drags: places after their widgets, then the options, if any.
  UINT next = 1;
  QPoint at = Centre(widget), end;
  QWidget* to = nullptr;
  MouseOptions options;
  switch (id) {
    case kClick:
    case kDoubleClick:
    case kDrag:
      PlaceArgument(params, &next, &at);
      if (id == kDrag) {
        to = WidgetOf(Argument(params, next++));
        if (to == nullptr) return Refuse(exception, DISP_E_TYPEMISMATCH, usage + ": where to drag to must be a widget");
        end = Centre(to);
        PlaceArgument(params, &next, &end);
      }
      if (next < count) why = MouseOptionsOf(Argument(params, next++), &options);
      if (!why.isEmpty()) return Refuse(exception, E_INVALIDARG, usage + ": " + why);
      if (next != count) return Refuse(exception, DISP_E_BADPARAMCOUNT, usage);
      why = id == kDrag ? Drag(widget, at, to, end, options) : Click(widget, at, id == kDoubleClick, options);
      break;
    case kType:
    case kKey:
    case kMenu:
      if (count != 2 || second == nullptr) return Refuse(exception, DISP_E_BADPARAMCOUNT, usage);
      why = id == kType ? Type(widget, TextOfVariant(second))
                        : id == kKey ? Key(widget, TextOfVariant(second)) : ChooseMenu(widget, TextOfVariant(second));
      break;
    case kClickItem:
      if (count < 3 || count > 4 || !NumberArgument(params, 1, &x) || !NumberArgument(params, 2, &y))
        return Refuse(exception, DISP_E_BADPARAMCOUNT, usage);
      if (count == 4) why = MouseOptionsOf(Argument(params, 3), &options);
      if (!why.isEmpty()) return Refuse(exception, E_INVALIDARG, usage + ": " + why);
      why = ClickItem(widget, x, y, false, options);
      break;
  }
  if (why.isEmpty()) return S_OK;
  // A failure names the call as it was made: the path or keys given, not
  // the usage's example.
  const QString made = id == kMenu || id == kKey || id == kType
                           ? QString("app.%1(%2, %3)")
                                 .arg(id == kMenu ? "menu" : id == kKey ? "key" : "type",
                                      widget->metaObject()->className(), Quoted(TextOfVariant(second)))
                           : usage;
  QString stop;
  return Refuse(exception, ScriptRunner::StopRequested(&stop) ? E_ABORT : E_FAIL, made + ": " + why);
}

// A list of the top-level widgets.
static IDispatch* TopLevels(CAppObject* app) {
  std::vector<IDispatch*> objects;
  foreach (QWidget* top, QApplication::topLevelWidgets())
    if (IDispatch* wrapped = app->Wrap(top)) objects.push_back(wrapped);
  return CObjectList::Make(std::move(objects));
}

STDMETHODIMP CAppObject::Invoke(DISPID id, REFIID, LCID, WORD, DISPPARAMS* params, VARIANT* result,
                                EXCEPINFO* exception, UINT* argumentError) {
  if (result != nullptr) VariantInit(result);
  QString stop;
  if (ScriptRunner::StopRequested(&stop)) return Refuse(exception, E_ABORT, stop);
  if (IsCheckMember(id)) return InvokeCheck(id, params, result, exception);
  const VARIANT* first = Argument(params, 0);
  switch (id) {
    case kValue: {
      if (first == nullptr)
        return Refuse(exception, DISP_E_BADPARAMCOUNT, "app.value(type, arguments...): the type is missing");
      const DISPPARAMS rest{params->rgvarg, nullptr, params->cArgs - 1, 0};  // the arguments after the type
      return MakeValue(m_context, TextOfVariant(first), rest, result, exception);
    }
    case kFind:
    case kStr: {
      if (first == nullptr) return DISP_E_BADPARAMCOUNT;
      const QString text = TextOfVariant(first);
      if (id == kFind) {
        ReturnObject(result, Find(text));
        return S_OK;
      }
      IDispatch* exposer = nullptr;
      QString* made = new QString(text);
      HRESULT hr = MakeExposer(m_context, L"QString", made, &exposer);
      if (FAILED(hr)) {
        delete made;
        return hr;
      }
      ReturnObject(result, CScriptObject::Wrap(exposer, m_context, nullptr, true));
      exposer->Release();
      return S_OK;
    }
    case kText: {
      QString text;
      HRESULT hr = TextOfObject(first, &text);
      if (FAILED(hr)) {
        if (argumentError != nullptr && first != nullptr) *argumentError = params->cArgs - 1;
        const CScriptObject* facade =
            first != nullptr && V_VT(first) == VT_DISPATCH ? CScriptObject::FacadeOf(V_DISPATCH(first)) : nullptr;
        QString why;
        if (facade == nullptr || !facade->Gone(&why))
          why = QString("takes a QString, QByteArray or QLatin1String object; given %1")
                    .arg(facade != nullptr ? "a " + facade->ClassName() : first == nullptr ? "nothing" : "another value");
        return Refuse(exception, first == nullptr ? DISP_E_BADPARAMCOUNT : hr, "app.text(object): " + why);
      }
      ReturnText(result, text);
      return S_OK;
    }
    case kIsNull: {
      bool isNull = first == nullptr || V_VT(first) == VT_NULL || V_VT(first) == VT_EMPTY ||
                    (V_VT(first) == VT_DISPATCH && V_DISPATCH(first) == nullptr);
      if (result != nullptr) {
        V_VT(result) = VT_BOOL;
        V_BOOL(result) = isNull ? VARIANT_TRUE : VARIANT_FALSE;
      }
      return S_OK;
    }
    case kProcessEvents:
      return ScriptRunner::YieldToEventLoop() ? S_OK : RefuseStopped(exception);
    case kQuery:
    case kQueryAll:
      return Query(first, id == kQueryAll, 0, result, exception);
    case kWaitFor: {
      int waitMs = 0;
      if (!NumberArgument(params, 1, &waitMs)) return DISP_E_BADPARAMCOUNT;
      return Query(first, false, waitMs, result, exception);
    }
    case kActiveModal:
      ReturnObject(result, Wrap(QApplication::activeModalWidget()));
      return S_OK;
    case kActiveWindow:
      ReturnObject(result, Wrap(QApplication::activeWindow()));
      return S_OK;
    case kFocusWidget:
      ReturnObject(result, Wrap(QApplication::focusWidget()));
      return S_OK;
    case kTopLevels:
      ReturnObject(result, TopLevels(this));
      return S_OK;
    case kPost:
      return Post(params, exception);
    case kGrab:
      return Grab(params, result, exception);
    case kClick:
    case kDoubleClick:
    case kType:
    case kKey:
    case kClickItem:
    case kMenu:
    case kDrag:
      return Act(id, params, exception);
    case kEcho: {
      QStringList parts;
      for (UINT i = 0; params != nullptr && i < params->cArgs; ++i) parts << ValueText(Argument(params, i));
      // A NUL would end the line wherever it is printed as C text: "\0" instead.
      PrintLine(parts.join(" ").replace(QChar(0), QLatin1String("\\0")));
      return S_OK;
    }
    default:
      return DISP_E_MEMBERNOTFOUND;
  }
}

}  // namespace kwscript
