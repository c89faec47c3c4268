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

#include <vector>

#include "kwscript/Checks.h"
#include "kwscript/CrashReport.h"
#include "kwscript/InputEvents.h"
#include "kwscript/ObjectList.h"
#include "kwscript/ObjectQuery.h"
#include "kwscript/ScriptDispatch.h"
#include "kwscript/ScriptRunner.h"
#include "kwscript/ValueText.h"

namespace kwscript {

namespace {

const wchar_t* const kMethods[] = {L"find",         L"str",         L"text",      L"isNull",  L"processEvents",
                                   L"echo",         L"query",       L"queryAll",  L"waitFor", L"activeModal",
                                   L"activeWindow", L"focusWidget", L"topLevels", L"post",
                                   L"grab",         L"click",       L"doubleClick", L"type",    L"key",
                                   L"clickItem",    L"menu"};
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
  kLastMethod = kMenu
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

}  // namespace

STDMETHODIMP CAppObject::GetTypeInfoCount(UINT* count) {
  if (count == nullptr) return E_POINTER;
  *count = 0;
  return S_OK;
}

STDMETHODIMP CAppObject::GetIDsOfNames(REFIID, LPOLESTR* names, UINT count, LCID, DISPID* ids) {
  if (count == 1 && names != nullptr && ids != nullptr && CheckMemberId(names[0], ids)) return S_OK;
  return IdsOfFixedNames(kMethods, kLastMethod, names, count, ids);
}

CAppObject::CAppObject(ScriptContext* context)
    : HostObject(IID_IDispatch), m_context(context), m_calls(new PostedCalls) {}

CAppObject::~CAppObject() { delete m_calls; }  // calls not yet made are dropped with it

int CAppObject::PendingCalls() const { return static_cast<PostedCalls*>(m_calls)->pending; }

IDispatch* CAppObject::Wrap(QObject* object) {
  for (const QMetaObject* meta = object != nullptr ? object->metaObject() : nullptr; meta != nullptr;
       meta = meta->superClass()) {
    IDispatch* exposer = nullptr;
    const std::wstring type = QString(meta->className()).toStdWString();
    if (m_context->manager->CreateWrapper(type.c_str(), object, &exposer) == S_OK) {
      IDispatch* wrapped = CScriptObject::Wrap(exposer, m_context, object);
      exposer->Release();
      return wrapped;
    }
  }
  return nullptr;
}

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
    return Refuse(exception, DISP_E_TYPEMISMATCH, "app.grab: the first argument must be a widget of this script");
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
  static const char* const kUsage[] = {"app.click(widget [, x, y])", "app.doubleClick(widget [, x, y])",
                                       "app.type(widget, text)",     "app.key(widget, \"Ctrl+S\")",
                                       "app.clickItem(view, row, column)", "app.menu(window, \"File/Save As...\")"};
  const QString usage = kUsage[id - kClick];
  QWidget* widget = WidgetOf(Argument(params, 0));
  if (widget == nullptr)
    return Refuse(exception, DISP_E_TYPEMISMATCH, usage + ": the first argument must be a widget of this script");
  const VARIANT* second = Argument(params, 1);
  const UINT count = params != nullptr ? params->cArgs : 0;
  QString why;
  int x = 0, y = 0;
  NoteCall(kUsage[id - kClick]);
  struct CallDone {
    ~CallDone() { NoteCall(nullptr); }
  } done;
  switch (id) {
    case kClick:
    case kDoubleClick:
      if (count == 1)
        why = Click(widget, Centre(widget), id == kDoubleClick);
      else if (count == 3 && NumberArgument(params, 1, &x) && NumberArgument(params, 2, &y))
        why = Click(widget, QPoint(x, y), id == kDoubleClick);
      else
        return Refuse(exception, DISP_E_BADPARAMCOUNT, usage + ": a widget, or a widget and a place in it");
      break;
    case kType:
    case kKey:
    case kMenu:
      if (count != 2 || second == nullptr) return Refuse(exception, DISP_E_BADPARAMCOUNT, usage);
      why = id == kType ? Type(widget, TextOfVariant(second))
                        : id == kKey ? Key(widget, TextOfVariant(second)) : ChooseMenu(widget, TextOfVariant(second));
      break;
    case kClickItem:
      if (count != 3 || !NumberArgument(params, 1, &x) || !NumberArgument(params, 2, &y))
        return Refuse(exception, DISP_E_BADPARAMCOUNT, usage);
      why = ClickItem(widget, x, y, false);
      break;
  }
  return why.isEmpty() ? S_OK : Refuse(exception, E_FAIL, usage + ": " + why);
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
    case kFind:
    case kStr: {
      if (first == nullptr) return DISP_E_BADPARAMCOUNT;
      const QString text = TextOfVariant(first);
      if (id == kFind) {
        ReturnObject(result, Find(text));
        return S_OK;
      }
      IDispatch* exposer = nullptr;
      HRESULT hr = m_context->manager->CreateWrapper(L"QString", new QString(text), &exposer);
      if (FAILED(hr)) return hr;
      ReturnObject(result, CScriptObject::Wrap(exposer, m_context, nullptr, true));
      exposer->Release();
      return S_OK;
    }
    case kText: {
      QString text;
      HRESULT hr = TextOfObject(first, &text);
      if (FAILED(hr)) {
        if (argumentError != nullptr) *argumentError = params->cArgs - 1;
        return first == nullptr ? DISP_E_BADPARAMCOUNT : hr;
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
      return Act(id, params, exception);
    case kEcho: {
      QStringList parts;
      for (UINT i = 0; params != nullptr && i < params->cArgs; ++i) parts << ValueText(Argument(params, i));
      PrintLine(parts.join(" "));
      return S_OK;
    }
    default:
      return DISP_E_MEMBERNOTFOUND;
  }
}

}  // namespace kwscript
