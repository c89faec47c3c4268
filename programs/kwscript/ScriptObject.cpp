#include "kwscript/ScriptObject.h"

#include "host/HostSupport.h"
#include "kwscript/Arguments.h"
#include "host/ManagerHost.h"
#include "kwscript/CrashReport.h"
#include "kwscript/DirectCall.h"
#include "kwscript/MoreWrappers.h"
#include "kwscript/ObjectList.h"
#include "kwscript/PlainNames.h"
#include "kwscript/Properties.h"
#include "kwscript/ScriptHost.h"
#include "kwscript/ScriptRunner.h"
#include "kwscript/ValueText.h"

#include <QtCore/QMetaProperty>
#include <QtCore/QPointer>
#include <QtGui/QWidget>
#include <QtCore/QString>
#include <QtCore/QStringList>

#include <algorithm>
#include <cstring>
#include <memory>
#include <string>

namespace kwscript {

namespace {

// Answered only by this host's facades, so that one passed back as an
// argument can be told from a foreign object.
const IID IID_IScriptFacade = {0x3c1d6a52, 0x8f0e, 0x4b7a, {0x9d, 0x21, 0x5e, 0x47, 0x0b, 0x6c, 0x93, 0xa8}};

// Plain names get DISPIDs from here on, far from the library's own, and
// the members routed to an exposer from kRouteBase on.
constexpr DISPID kPlainBase = 0x40000000;
constexpr DISPID kRouteBase = 0x20000000;

// The instance an exposer stands for (null for a null pointer result, or
// for an object that is not an exposer).
using kwhost::InstanceOf;

// The QObject an instance is, or null: through its class's QObject base,
// or for a class with a meta-object the instance itself (moc requires
// the QObject-derived base to come first).
QObject* ObjectBehind(void* instance, const std::vector<const InterfaceInfo*>& interfaces) {
  if (interfaces.empty()) return nullptr;
  const InterfaceInfo* own = interfaces.back();
  if (std::strcmp(own->typeName, "QObject") == 0) return static_cast<QObject*>(instance);
  for (std::size_t i = 0; i < own->baseCount; ++i)
    if (std::strcmp(own->bases[i].typeName, "QObject") == 0) return static_cast<QObject*>(own->bases[i].up(instance));
  for (const InterfaceInfo* info : interfaces)
    if (info->meta != nullptr) return static_cast<QObject*>(instance);
  return nullptr;
}


// A member that failed reaches the engine as DISP_E_EXCEPTION with its own
// HRESULT in the EXCEPINFO; the description says both, and which Qt
// declaration it was, also where the engine would give none.
void DescribeFailure(const MemberInfo& member, EXCEPINFO* exception) {
  if (exception->bstrSource == nullptr) exception->bstrSource = SysAllocString(L"kwscript");
  if (exception->bstrDescription != nullptr && SysStringLen(exception->bstrDescription) > 0) return;
  const HRESULT code = exception->scode;
  const char* name = HResultName(code);
  const QString text = QString("DISP_E_EXCEPTION: %1 answered 0x%2 %3 (%4)")
                           .arg(member.name)
                           .arg(static_cast<unsigned long>(code), 8, 16, QChar('0'))
                           .arg(name ? name : "")
                           .arg(HResultMeaning(code) ? HResultMeaning(code) : member.declaration);
  SysFreeString(exception->bstrDescription);
  exception->bstrDescription = NewBstr(text);
}

}  // namespace

HRESULT MakeExposer(ScriptContext* context, const wchar_t* typeName, void* instance, IDispatch** exposer) {
  return CreateExposer(context->manager, typeName, instance, exposer);
}

BSTR NewBstr(const QString& text) {
  return SysAllocStringLen(reinterpret_cast<const OLECHAR*>(text.utf16()), text.size());
}

void ReturnText(VARIANT* result, const QString& text) {
  if (result == nullptr) return;
  V_VT(result) = VT_BSTR;
  V_BSTR(result) = NewBstr(text);
}

HRESULT Refuse(EXCEPINFO* exception, HRESULT code, const QString& description) {
  if (exception == nullptr) return code;
  *exception = EXCEPINFO{};
  exception->scode = code;
  exception->bstrSource = SysAllocString(L"kwscript");
  exception->bstrDescription = NewBstr(description);
  return DISP_E_EXCEPTION;
}

CScriptObject::CScriptObject(IDispatch* exposer, void* instance, ScriptContext* context, QObject* object, bool made,
                             void (*destroy)(void*))
    : CountedDispatch(IID_IScriptFacade),
      m_exposer(exposer), m_instance(instance), m_context(context), m_object(object), m_made(made), m_free(destroy) {
  m_exposer->AddRef();
  m_context->facades.insert(this);
  for (const std::wstring& name : kwhost::ComposedInterfaces(exposer))
    if (const InterfaceInfo* info = FindInterface(name.c_str())) {
      m_interfaces.push_back(info);
      m_answering.push_back(exposer);
    }
  m_own = m_interfaces.empty() ? nullptr : m_interfaces.back();
  if (m_object == nullptr) m_object = ObjectBehind(instance, m_interfaces);
  if (m_object != nullptr) {
    m_guard = m_object;
    m_objectName = m_object->objectName();
  }
  if (m_own != nullptr && !made) m_item = ItemGuard::For(m_own->typeName, instance);
  if (m_made && m_free == nullptr && m_object == nullptr && m_own != nullptr) m_free = m_own->destroy;
  if (!m_made) m_free = nullptr;
}

CScriptObject::~CScriptObject() {
  for (IDispatch* extra : m_extra) extra->Release();
  m_exposer->Release();
  m_context->facades.erase(this);
  // A copy the script made goes with its facade; one its destructor member
  // already destroyed only gives its memory back.
  if (m_free != nullptr) {
    if (m_destroyed)
      ::operator delete(m_instance);
    else
      m_free(m_instance);
  }
}

bool CScriptObject::Gone(QString* why) const {
  if (m_destroyed) {
    *why = QString("object destroyed: this %1 was destroyed by its destructor member").arg(ClassName());
    return true;
  }
  if (m_item.Lost(why)) return true;
  if (m_object != nullptr && m_guard.isNull()) {
    *why = QString("object destroyed: the %1 %2 was destroyed by the application")
               .arg(ClassName(), m_objectName.isEmpty() ? QString("(unnamed)") : "\"" + m_objectName + "\"");
    return true;
  }
  return false;
}

const std::vector<CScriptObject::Base>& CScriptObject::Chain() const {
  if (m_chained || m_own == nullptr) return m_chain;
  m_chained = true;
  for (const ChainLink& link : WholeChain(*m_own, m_instance)) m_chain.push_back(Base{link.typeName, link.part});
  return m_chain;
}

int CScriptObject::ChainIndex(const char* typeName) const {
  const std::vector<Base>& chain = Chain();
  for (std::size_t i = 0; i < chain.size(); ++i)
    if (std::strcmp(chain[i].typeName, typeName) == 0) return static_cast<int>(i);
  return -1;
}

void CScriptObject::ComposeWholeClass() {
  if (m_whole || m_own == nullptr) return;
  m_whole = true;
  auto composed = [this](const char* typeName) {
    for (const InterfaceInfo* info : m_interfaces)
      if (std::strcmp(info->typeName, typeName) == 0) return true;
    return false;
  };
  for (std::size_t i = 0; i < Chain().size(); ++i) {
    if (composed(m_chain[i].typeName)) continue;
    IDispatch* extra = BaseExposer(i);
    if (extra == nullptr) continue;
    for (const std::wstring& name : kwhost::ComposedInterfaces(extra)) {
      const InterfaceInfo* info = FindInterface(name.c_str());
      if (info == nullptr || composed(info->typeName)) continue;
      m_interfaces.push_back(info);
      m_answering.push_back(extra);
    }
  }
  // Bases first, the farthest first; its own class last. Interfaces that
  // are no base of it keep their places in front.
  const InterfaceInfo* own = m_own;
  auto rank = [this, own](const InterfaceInfo* info) {
    const int index = info == own ? -1 : ChainIndex(info->typeName);
    return info == own ? -1 : index >= 0 ? index : 1 << 20;
  };
  std::vector<std::size_t> order(m_interfaces.size());
  for (std::size_t i = 0; i < order.size(); ++i) order[i] = i;
  std::stable_sort(order.begin(), order.end(),
                   [&](std::size_t a, std::size_t b) { return rank(m_interfaces[a]) > rank(m_interfaces[b]); });
  std::vector<const InterfaceInfo*> interfaces;
  std::vector<IDispatch*> answering;
  for (std::size_t i : order) {
    interfaces.push_back(m_interfaces[i]);
    answering.push_back(m_answering[i]);
  }
  m_interfaces.swap(interfaces);
  m_answering.swap(answering);
}

bool CScriptObject::IsA(const char* typeName) const {
  for (const InterfaceInfo* info : m_interfaces)
    if (std::strcmp(info->typeName, typeName) == 0) return true;
  if (ChainIndex(typeName) >= 0) return true;
  return m_object != nullptr && m_object->inherits(typeName);
}

IDispatch* CScriptObject::BaseExposer(std::size_t index) {
  Base& base = m_chain[index];
  if (base.asked) return base.exposer;
  base.asked = true;
  const std::wstring type = QString::fromLatin1(base.typeName).toStdWString();
  if (FAILED(MakeExposer(m_context, type.c_str(), base.part, &base.exposer))) base.exposer = nullptr;
  if (base.exposer != nullptr) m_extra.push_back(base.exposer);  // null: neither set knows the type
  return base.exposer;
}

IDispatch* CScriptObject::ExposerFor(const char* typeName) {
  const int index = ChainIndex(typeName);
  if (index < 0) return IsA(typeName) ? m_exposer : nullptr;  // its own class, or a QObject class at its start
  if (IDispatch* exposer = BaseExposer(index)) return exposer;
  return m_chain[index].part == m_instance ? m_exposer : nullptr;
}

void DisconnectFacades(ScriptContext* context) {
  // A disconnection may delete the facade, so each is held while it is cut.
  const std::vector<IDispatch*> facades(context->facades.begin(), context->facades.end());
  for (IDispatch* facade : facades) facade->AddRef();
  for (IDispatch* facade : facades) {
    CoDisconnectObject(facade, 0);
    facade->Release();
  }
}

IDispatch* WrapObject(QObject* object, ScriptContext* context) {
  for (const QMetaObject* meta = object != nullptr ? object->metaObject() : nullptr; meta != nullptr;
       meta = meta->superClass()) {
    IDispatch* exposer = nullptr;
    const std::wstring type = QString(meta->className()).toStdWString();
    if (MakeExposer(context, type.c_str(), object, &exposer) == S_OK) {
      IDispatch* wrapped = CScriptObject::Wrap(exposer, context, object);
      exposer->Release();
      return wrapped;
    }
  }
  return nullptr;
}

IDispatch* CScriptObject::Wrap(IDispatch* exposer, ScriptContext* context, QObject* object, bool made,
                               void (*destroy)(void*)) {
  void* instance = exposer != nullptr ? InstanceOf(exposer) : nullptr;
  if (instance == nullptr) return nullptr;
  return new CScriptObject(exposer, instance, context, object, made, destroy);
}

QString CScriptObject::ClassName() const {
  return m_own == nullptr ? QString("the object") : QString::fromLatin1(m_own->typeName);
}

bool CScriptObject::TextOf(QString* text) const {
  QString gone;
  if (Gone(&gone)) return false;
  const QString own = ClassName();
  if (own == "QString")
    *text = *static_cast<QString*>(m_instance);
  else if (own == "QByteArray")
    *text = QString::fromUtf8(*static_cast<QByteArray*>(m_instance));
  else if (own == "QLatin1String")
    *text = QString(*static_cast<QLatin1String*>(m_instance));
  else
    return false;
  return true;
}

CScriptObject* CScriptObject::FacadeOf(IUnknown* object) {
  CScriptObject* facade = nullptr;
  if (object == nullptr || FAILED(object->QueryInterface(IID_IScriptFacade, reinterpret_cast<void**>(&facade))))
    return nullptr;
  facade->Release();  // the caller holds the object
  return facade;
}

IDispatch* CScriptObject::ExposerOf(IUnknown* object) {
  CScriptObject* facade = FacadeOf(object);
  return facade != nullptr ? facade->m_exposer : nullptr;
}

QObject* CScriptObject::ObjectOf(IUnknown* object) {
  CScriptObject* facade = FacadeOf(object);
  QString ignored;
  return facade != nullptr && !facade->Gone(&ignored) ? facade->m_object : nullptr;
}

STDMETHODIMP CScriptObject::GetTypeInfoCount(UINT* count) { return m_exposer->GetTypeInfoCount(count); }

STDMETHODIMP CScriptObject::GetTypeInfo(UINT index, LCID lcid, ITypeInfo** info) {
  return m_exposer->GetTypeInfo(index, lcid, info);
}

const MemberInfo* CScriptObject::FindMember(const wchar_t* name, IDispatch** exposer) const {
  for (std::size_t i = m_interfaces.size(); i-- > 0;)
    if (const MemberInfo* member = kwscript::FindMember(*m_interfaces[i], name)) {
      *exposer = m_answering[i];
      return member;
    }
  return nullptr;
}

IDispatch* CScriptObject::ExposerOfMember(const MemberInfo* member) const {
  for (std::size_t i = 0; i < m_interfaces.size(); ++i)
    if (member >= m_interfaces[i]->members && member < m_interfaces[i]->members + m_interfaces[i]->count)
      return m_answering[i];
  return m_exposer;
}

int CScriptObject::RouteTo(const MemberInfo* member, IDispatch* exposer, const wchar_t* name) {
  LPOLESTR asked = const_cast<LPOLESTR>(name);
  DISPID id = DISPID_UNKNOWN;
  if (member->direct == nullptr && FAILED(exposer->GetIDsOfNames(IID_NULL, &asked, 1, LOCALE_USER_DEFAULT, &id)))
    return -1;
  m_routes.push_back(Route{member, exposer, id});
  return static_cast<int>(m_routes.size() - 1);
}

STDMETHODIMP CScriptObject::GetIDsOfNames(REFIID iid, LPOLESTR* names, UINT count, LCID lcid, DISPID* ids) {
  // Engines ask for the name before every call; each is resolved once.
  if (count == 1 && names != nullptr && ids != nullptr && names[0] != nullptr) {
    auto known = m_ids.find(names[0]);
    if (known != m_ids.end()) {
      ids[0] = known->second;
      return S_OK;
    }
  }
  if (count != 1 || names == nullptr || ids == nullptr || names[0] == nullptr)
    return m_exposer->GetIDsOfNames(iid, names, count, lcid, ids);
  QString gone;
  if (Gone(&gone)) {  // its call says so; nothing of it may be read now
    m_plain.push_back(PlainName{QString::fromWCharArray(names[0]), nullptr, -1, {}});
    ids[0] = kPlainBase + static_cast<DISPID>(m_plain.size() - 1);
    return S_OK;
  }
  ComposeWholeClass();
  // A prefixed name of any class of the chain, through the exposer that has it.
  IDispatch* answering = nullptr;
  if (const MemberInfo* member = FindMember(names[0], &answering)) {
    const int route = RouteTo(member, answering, names[0]);
    if (route >= 0) {
      ids[0] = kRouteBase + route;
      m_ids.emplace(names[0], ids[0]);
      return S_OK;
    }
  }
  HRESULT hr = m_exposer->GetIDsOfNames(iid, names, count, lcid, ids);
  if (hr == S_OK) {
    m_ids.emplace(names[0], ids[0]);
    return hr;
  }
  if (hr != DISP_E_UNKNOWNNAME) return hr;
  // A plain name: a property of the QObject behind, overloads of a
  // composed class, or both. A name the object does not answer gets a
  // DISPID too, so that the call can say which names come nearest.
  const QString name = QString::fromWCharArray(names[0]);
  const OverloadGroup* overloads = FindOverloads(m_interfaces, names[0]);
  const int property = m_object != nullptr ? FindProperty(m_object, name) : -1;
  m_plain.push_back(PlainName{name, overloads, property, {}});
  ids[0] = kPlainBase + static_cast<DISPID>(m_plain.size() - 1);
  m_ids.emplace(names[0], ids[0]);
  return S_OK;
}

STDMETHODIMP CScriptObject::Invoke(DISPID id, REFIID iid, LCID lcid, WORD flags, DISPPARAMS* params, VARIANT* result,
                                   EXCEPINFO* exception, UINT* argumentError) {
  QString stop;
  if (ScriptRunner::StopRequested(&stop)) return Refuse(exception, E_ABORT, stop);
  if (Gone(&stop)) return Refuse(exception, RPC_E_DISCONNECTED, stop);
  if (id == DISPID_VALUE) return AnswerDefaultValue(*this, flags, params, result);
  DISPPARAMS none{};
  if (id >= kPlainBase && static_cast<std::size_t>(id - kPlainBase) < m_plain.size())
    return InvokePlain(id - kPlainBase, flags, params != nullptr ? params : &none, result, exception, argumentError);
  if (id >= kRouteBase && static_cast<std::size_t>(id - kRouteBase) < m_routes.size())
    return CallMember(m_routes[id - kRouteBase], flags, params != nullptr ? params : &none, false, result, exception,
                      argumentError);
  return m_exposer->Invoke(id, iid, lcid, flags, params, result, exception, argumentError);
}

HRESULT CScriptObject::InvokePlain(std::size_t entry, WORD flags, DISPPARAMS* params, VARIANT* result,
                                   EXCEPINFO* exception, UINT* argumentError) {
  PlainName& plain = m_plain[entry];
  if (result != nullptr) VariantInit(result);
  QString why;
  if (plain.overloads == nullptr && plain.property < 0) {
    QStringList properties;
    for (int i = 0; m_object != nullptr && i < m_object->metaObject()->propertyCount(); ++i)
      properties << m_object->metaObject()->property(i).name();
    return Refuse(exception, DISP_E_UNKNOWNNAME,
                  QString("%1 has no member or property \"%2\"; the nearest names: %3")
                      .arg(ClassName(), plain.name, NearestNames(m_interfaces, properties, plain.name, 5).join(", ")));
  }
  if (flags & (DISPATCH_PROPERTYPUT | DISPATCH_PROPERTYPUTREF)) {
    if (plain.property < 0)
      return Refuse(exception, DISP_E_MEMBERNOTFOUND, QString("%1 is not a property of this object").arg(plain.name));
    if (params->cArgs != 1) return DISP_E_BADPARAMCOUNT;
    const HRESULT hr = WriteProperty(m_object, plain.property, &params->rgvarg[0], &why);
    return FAILED(hr) ? Refuse(exception, hr, why) : S_OK;
  }
  // Read without a call: the property; called: the member.
  const bool read = (flags & DISPATCH_PROPERTYGET) && params->cArgs == 0;
  if (plain.property >= 0 && (read || plain.overloads == nullptr)) {
    if (params->cArgs != 0) return DISP_E_BADPARAMCOUNT;
    const HRESULT hr = ReadProperty(m_object, plain.property, m_context, result, &why);
    return FAILED(hr) ? Refuse(exception, hr, why) : S_OK;
  }
  const Overload* chosen = ChooseOverload(*plain.overloads, *params, plain.name, &why);
  if (chosen == nullptr) return Refuse(exception, DISP_E_TYPEMISMATCH, why);
  auto known = plain.routes.find(chosen->member);
  if (known == plain.routes.end()) {
    const std::wstring prefixed = QString::fromLatin1(chosen->member->name).toStdWString();
    const int route = RouteTo(chosen->member, ExposerOfMember(chosen->member), prefixed.c_str());
    if (route < 0) return DISP_E_MEMBERNOTFOUND;
    known = plain.routes.emplace(chosen->member, route).first;
  }
  return CallMember(m_routes[known->second], DISPATCH_METHOD, params, true, result, exception, argumentError);
}

namespace {

// What a direct call gave, as a script value: a number, boolean or text as
// it is, an object as a facade (a QObject under its most derived class,
// anything else under its own), a list as a list of those.
HRESULT Deliver(const MemberInfo& member, DirectResult& out, ScriptContext* context, VARIANT* result,
                EXCEPINFO* exception) {
  std::vector<VARIANT> values;
  QString refused;
  std::size_t text = 0;
  for (const DirectItem& item : out.items) {
    VARIANT value;
    VariantInit(&value);
    if (item.type == nullptr) {
      ReturnText(&value, out.texts[text++]);
    } else {
      IDispatch* wrapped = nullptr;
      if (item.object != nullptr) {
        wrapped = WrapObject(item.object, context);
      } else if (item.instance != nullptr) {
        IDispatch* exposer = nullptr;
        const std::wstring type = QString::fromLatin1(item.type).toStdWString();
        if (SUCCEEDED(MakeExposer(context, type.c_str(), item.instance, &exposer)) && exposer != nullptr) {
          wrapped = CScriptObject::Wrap(exposer, context, nullptr, item.destroy != nullptr, item.destroy);
          exposer->Release();
        } else if (item.destroy != nullptr) {
          item.destroy(item.instance);
        }
      }
      if (wrapped == nullptr && item.instance != nullptr)
        refused = QString("%1 gave a %2, which scripts cannot hold").arg(member.declaration, item.type);
      V_VT(&value) = VT_DISPATCH;
      V_DISPATCH(&value) = wrapped;  // null: null in JScript, Nothing in VBScript
    }
    values.push_back(value);
  }
  if (!refused.isEmpty() && !out.list) {
    for (VARIANT& value : values) VariantClear(&value);
    return Refuse(exception, DISP_E_TYPEMISMATCH, refused);
  }
  if (result == nullptr) {
    for (VARIANT& value : values) VariantClear(&value);
    return S_OK;
  }
  if (out.list) {
    V_VT(result) = VT_DISPATCH;
    V_DISPATCH(result) = CObjectList::MakeOfValues(std::move(values));
  } else if (!values.empty()) {
    *result = values.front();
  } else {
    *result = out.value;
    VariantInit(&out.value);
  }
  return S_OK;
}


// A member call as the script's thread makes it (ScriptRunner::CallOffScript),
// owning its arguments and what it gives: given up while a modal dialog it
// opened is open, it outlives the script's call.
class MemberCall final : public FiberCall {
 public:
  MemberCall(IDispatch* exposer, DISPID id, WORD flags, const MemberInfo& member)
      : exposer(exposer), id(id), flags(flags), member(member) {
    exposer->AddRef();
    VariantInit(&answer);
  }
  ~MemberCall() override {
    VariantClear(&answer);
    HandOverException(nullptr);
    exposer->Release();
  }
  void Make() override {
    NoteCall(member.name);
    if (member.direct != nullptr)
      hr = member.direct(InstanceOf(exposer), arguments.forward(), &out);
    else
      hr = exposer->Invoke(id, IID_NULL, LOCALE_USER_DEFAULT, flags, arguments.params(), &answer, &exception,
                           &argumentError);
    NoteCall(nullptr);
  }
  // Moves the failure the call described to `to` (when given), else frees it.
  void HandOverException(EXCEPINFO* to) {
    if (to != nullptr) {
      *to = exception;
    } else {
      SysFreeString(exception.bstrSource);
      SysFreeString(exception.bstrDescription);
      SysFreeString(exception.bstrHelpFile);
    }
    exception = EXCEPINFO{};
  }

  IDispatch* exposer;
  DISPID id;
  WORD flags;
  const MemberInfo& member;
  ConvertedArguments arguments;
  HRESULT hr = E_FAIL;
  VARIANT answer;
  EXCEPINFO exception{};
  UINT argumentError = 0;
  DirectResult out;
};

// Why a call that opened a modal window (or a popup) fails while it waits
// for it: what the call and the window are, and what to do instead.
QString GivenUp(const MemberInfo& member, QWidget* window) {
  QString what = "a window that is gone";
  if (window != nullptr) {
    what = QString("the %1 %2").arg(window->isModal() ? "modal" : "popup", window->metaObject()->className());
    if (!window->objectName().isEmpty()) what += " \"" + window->objectName() + "\"";
    if (!window->windowTitle().isEmpty()) what += " titled \"" + window->windowTitle() + "\"";
  }
  return QString("%1 did not return: it opened %2 and waits until it closes. The window stays open for the "
                 "script to answer (app.activeModal(), app.waitFor); to open it, use app.click or "
                 "app.post(object, \"%3\"), which return while it is open")
      .arg(member.declaration, what, QString::fromLatin1(member.name).section('_', 1, 1));
}

}  // namespace

bool CScriptObject::MakesCycle(const MemberInfo& member, const DISPPARAMS& params, QString* why) const {
  // Qt's setParent loops forever once an object is its own ancestor.
  if (m_object == nullptr || params.cArgs == 0 || std::strstr(member.name, "_setParent") == nullptr) return false;
  const VARIANT* first = &params.rgvarg[params.cArgs - 1];
  if (V_VT(first) == (VT_BYREF | VT_VARIANT)) first = V_VARIANTREF(first);
  QObject* parent = V_VT(first) == VT_DISPATCH ? ObjectOf(V_DISPATCH(first)) : nullptr;
  for (QObject* up = parent; up != nullptr; up = up->parent())
    if (up == m_object) {
      *why = QString("%1 refused: the %2 %3 would become a child of %4 (Qt would loop forever)")
                 .arg(member.name, ClassName(), m_objectName.isEmpty() ? QString("(unnamed)") : "\"" + m_objectName + "\"",
                      parent == m_object ? QString("itself") : QString("its own descendant"));
      return true;
    }
  return false;
}

bool CScriptObject::MakesOrphan(const MemberInfo& member, const DISPPARAMS& params, QString* why) const {
  // overrideWindowFlags changes the flags behind Qt's back: a widget with no
  // parent left without Qt::Window is neither a window nor a child, and Qt
  // crashes on it (raising a child of it, for one).
  if (m_object == nullptr || !m_object->isWidgetType() || params.cArgs == 0 ||
      std::strstr(member.name, "_overrideWindowFlags") == nullptr)
    return false;
  const auto* widget = static_cast<const QWidget*>(m_object);
  if (widget->parentWidget() != nullptr) return false;
  const VARIANT* first = &params.rgvarg[params.cArgs - 1];
  if (V_VT(first) == (VT_BYREF | VT_VARIANT)) first = V_VARIANTREF(first);
  int flags = 0;
  VARIANT number;
  VariantInit(&number);
  if (V_VT(first) == VT_BSTR) {
    if (!EnumeratorValue("Qt::WindowType", QString::fromWCharArray(V_BSTR(first), SysStringLen(V_BSTR(first))), &flags))
      return false;  // the conversion says what is wrong with it
  } else if (SUCCEEDED(VariantChangeType(&number, const_cast<VARIANT*>(first), 0, VT_I4))) {
    flags = V_I4(&number);
  } else {
    return false;
  }
  if (flags & Qt::Window) return false;
  *why = QString("%1 refused: the %2 %3 has no parent, and flags without Qt::Window would leave it neither a "
                 "window nor a child (Qt would crash on it)")
             .arg(member.name, ClassName(), m_objectName.isEmpty() ? QString("(unnamed)") : "\"" + m_objectName + "\"");
  return true;
}

HRESULT CScriptObject::CallMember(const Route& route, WORD flags, DISPPARAMS* params, bool plain, VARIANT* result,
                                  EXCEPINFO* exception, UINT* argumentError) {
  const MemberInfo& member = *route.member;
  const bool destructor = std::strstr(member.name, "_DTOR_") != nullptr;
  if (destructor && !m_made)
    return Refuse(exception, E_ACCESSDENIED,
                  QString("%1 refused: the application owns this %2; a script destroys only the objects it "
                          "made (app.str, values members return)")
                      .arg(member.name, ClassName()));
  QString why;
  if (MakesCycle(member, *params, &why) || MakesOrphan(member, *params, &why))
    return Refuse(exception, E_INVALIDARG, why);
  std::unique_ptr<MemberCall> call(new MemberCall(route.exposer, route.id, flags, member));
  UINT refused = 0;
  HRESULT hr = call->arguments.Convert(*params, member, m_context, &refused, &why);
  if (FAILED(hr)) {
    if (argumentError != nullptr) *argumentError = refused;
    return Refuse(exception, hr, QString("argument %1 of %2 %3").arg(params->cArgs - refused).arg(member.declaration).arg(why));
  }
  if (!ScriptRunner::CallOffScript(call.get())) {
    const QPointer<QWidget> window = call->window;
    call.release();  // the runner's now: it waits in the window's loop
    return Refuse(exception, E_PENDING, GivenUp(member, window));
  }
  if (member.direct != nullptr) {
    if (FAILED(call->hr)) return Refuse(exception, call->hr, QString("%1 failed").arg(member.declaration));
    return Deliver(member, call->out, m_context, result, exception);
  }
  VARIANT answer = call->answer;
  VariantInit(&call->answer);
  hr = call->hr;
  call->HandOverException(exception);
  if (argumentError != nullptr && (hr == DISP_E_TYPEMISMATCH || hr == DISP_E_PARAMNOTFOUND)) *argumentError = call->argumentError;
  if (hr == DISP_E_EXCEPTION && exception != nullptr) DescribeFailure(member, exception);
  if (hr == DISP_E_BADVARTYPE) {
    VariantClear(&answer);
    return Refuse(exception, hr,
                  QString("%1 cannot be called from a script: the platform's dispatch cannot carry its %2")
                      .arg(member.declaration, member.result == 'p' ? "result (an address)" : "arguments"));
  }
  if (hr == DISP_E_BADPARAMCOUNT || hr == DISP_E_TYPEMISMATCH || hr == DISP_E_OVERFLOW ||
      hr == DISP_E_PARAMNOTFOUND) {
    VariantClear(&answer);
    const std::size_t required = RequiredArguments(member), all = std::strlen(member.arguments);
    return Refuse(exception, hr,
                  QString("%1 takes %2 argument(s), %3; given %4")
                      .arg(member.name)
                      .arg(required == all ? QString::number(all) : QString("%1 to %2").arg(required).arg(all))
                      .arg(member.declaration)
                      .arg(params->cArgs - params->cNamedArgs));
  }
  if (destructor && SUCCEEDED(hr)) m_destroyed = true;
  if (FAILED(hr) || result == nullptr) {
    VariantClear(&answer);
    return hr;
  }
  if (member.result == 'b' && V_VT(&answer) == VT_I4) {
    const bool value = V_I4(&answer) != 0;
    V_VT(&answer) = VT_BOOL;
    V_BOOL(&answer) = value ? VARIANT_TRUE : VARIANT_FALSE;
  } else if (V_VT(&answer) == VT_DISPATCH && V_DISPATCH(&answer) != nullptr) {
    // A value result is a copy the script owns; a pointer, the application's.
    IDispatch* exposer = V_DISPATCH(&answer);
    IDispatch* wrapped = Wrap(exposer, m_context, nullptr, member.result == 'o');  // null for a null pointer
    exposer->Release();
    V_DISPATCH(&answer) = wrapped;
    QString text;
    if (plain && wrapped != nullptr && static_cast<CScriptObject*>(wrapped)->TextOf(&text)) {
      wrapped->Release();  // a plain-name call gives strings as strings
      ReturnText(&answer, text);
    }
  }
  *result = answer;
  return hr;
}


HRESULT MakeValue(ScriptContext* context, const QString& type, const DISPPARAMS& params, VARIANT* result,
                  EXCEPINFO* exception) {
  const InterfaceInfo* info = FindInterfaceOfType(type.toLatin1().constData());
  const OverloadGroup* group = info != nullptr ? ConstructorOverloads(*info) : nullptr;
  if (group == nullptr) {
    QStringList values;
    for (std::size_t i = 0; i < kInterfaceCount; ++i)
      if (kInterfaces[i].makerCount > 0) values << kInterfaces[i].typeName;
    for (std::size_t i = 0; i < kMoreInterfaceCount; ++i)
      if (kMoreInterfaces[i].makerCount > 0) values << kMoreInterfaces[i].typeName;
    return Refuse(exception, E_INVALIDARG,
                  QString("app.value: \"%1\" is no value class a script can make; the nearest: %2")
                      .arg(type, NearestNames({}, values, type, 5).join(", ")));
  }
  QString why;
  const Overload* chosen = ChooseOverload(*group, params, QString("app.value(\"%1\", ...)").arg(type), &why);
  if (chosen == nullptr) return Refuse(exception, DISP_E_TYPEMISMATCH, why);
  ConvertedArguments arguments;
  UINT refused = 0;
  HRESULT hr = arguments.Convert(params, *chosen->member, context, &refused, &why);
  if (FAILED(hr))
    return Refuse(exception, hr,
                  QString("argument %1 of %2 %3").arg(params.cArgs - refused).arg(chosen->member->declaration).arg(why));
  DirectResult out;
  NoteCall(chosen->member->name);
  hr = chosen->member->direct(nullptr, arguments.forward(), &out);
  NoteCall(nullptr);
  if (FAILED(hr)) return Refuse(exception, hr, QString("%1 failed").arg(chosen->member->declaration));
  return Deliver(*chosen->member, out, context, result, exception);
}

}  // namespace kwscript
