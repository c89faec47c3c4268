#include "kwscript/ScriptObject.h"

#include "host/HostSupport.h"
#include "host/ManagerHost.h"
#include "kwscript/CrashReport.h"
#include "kwscript/PlainNames.h"
#include "kwscript/Properties.h"
#include "kwscript/ScriptHost.h"
#include "kwscript/ScriptRunner.h"
#include "kwscript/ValueText.h"

#include <QtCore/QMetaProperty>
#include <QtCore/QString>
#include <QtCore/QStringList>

#include <algorithm>
#include <cstring>
#include <string>

namespace kwscript {

namespace {

// Answered only by this host's facades, so that one passed back as an
// argument can be told from a foreign object.
const IID IID_IScriptFacade = {0x3c1d6a52, 0x8f0e, 0x4b7a, {0x9d, 0x21, 0x5e, 0x47, 0x0b, 0x6c, 0x93, 0xa8}};

// The arguments of one call as the library is to receive them, and what
// they hold for the duration of the call.
class ConvertedArguments {
 public:
  ~ConvertedArguments() {
    for (IDispatch* made : m_made) made->Release();
  }

  // Converts `params` (script values, last argument first) by `kinds`
  // (first argument first). On a refused argument returns
  // DISP_E_TYPEMISMATCH with its DISPPARAMS index in `argumentError`.
  HRESULT Convert(const DISPPARAMS& params, const char* kinds, ScriptContext* context, UINT* argumentError) {
    const UINT count = params.cArgs;
    m_args.assign(params.rgvarg, params.rgvarg + count);
    m_bytes.reserve(count);
    const std::size_t known = std::char_traits<char>::length(kinds);
    for (UINT position = 0; position < count && position < known; ++position) {
      const UINT index = count - 1 - position;
      VARIANT& arg = m_args[index];
      if (V_VT(&arg) == (VT_BYREF | VT_VARIANT)) arg = *V_VARIANTREF(&arg);  // VBScript passes variables so
      HRESULT hr = ConvertOne(&arg, kinds[position], context);
      if (FAILED(hr)) {
        if (argumentError != nullptr) *argumentError = index;
        return hr;
      }
    }
    m_params = DISPPARAMS{m_args.empty() ? nullptr : m_args.data(), params.rgdispidNamedArgs, count, params.cNamedArgs};
    return S_OK;
  }

  DISPPARAMS* params() { return &m_params; }

 private:
  HRESULT ConvertOne(VARIANT* arg, char kind, ScriptContext* context) {
    switch (kind) {
      case 's':
        if (V_VT(arg) == VT_BSTR) return MakeString(arg, context);
        return TakeObject(arg);
      case 'o':
        return TakeObject(arg);
      case 't':
        if (V_VT(arg) == VT_BSTR) {
          const BSTR text = V_BSTR(arg);
          const QByteArray utf8 = QString::fromWCharArray(text, SysStringLen(text)).toUtf8();
          m_bytes.push_back(std::string(utf8.constData(), utf8.size()));
          V_VT(arg) = VT_BYREF | VT_UI1;
          V_UI1REF(arg) = reinterpret_cast<unsigned char*>(&m_bytes.back()[0]);
        }
        return S_OK;
      default:
        return S_OK;  // numbers and booleans: the platform's dispatch converts them
    }
  }

  // A script string where a QString is expected: a new QString object.
  HRESULT MakeString(VARIANT* arg, ScriptContext* context) {
    const BSTR text = V_BSTR(arg);
    QString* value = new QString(QString::fromWCharArray(text, SysStringLen(text)));
    IDispatch* made = nullptr;
    HRESULT hr = context->manager->CreateWrapper(L"QString", value, &made);
    if (FAILED(hr)) {
      delete value;  // no object took it
      return hr;
    }
    m_made.push_back(made);
    V_VT(arg) = VT_DISPATCH;
    V_DISPATCH(arg) = made;
    return S_OK;
  }

  // An object argument must be one of this host's objects: the library
  // trusts what it receives, so nothing else may reach it.
  HRESULT TakeObject(VARIANT* arg) {
    IDispatch* exposer = V_VT(arg) == VT_DISPATCH ? CScriptObject::ExposerOf(V_DISPATCH(arg)) : nullptr;
    if (exposer == nullptr) return DISP_E_TYPEMISMATCH;
    V_DISPATCH(arg) = exposer;
    return S_OK;
  }

  std::vector<VARIANT> m_args;
  std::vector<std::string> m_bytes;  // byte strings, NUL-terminated, alive for the call
  std::vector<IDispatch*> m_made;
  DISPPARAMS m_params{};
};

// Plain names get DISPIDs from here on, far from the library's own.
constexpr DISPID kPlainBase = 0x40000000;

// The instance an exposer stands for (null for a null pointer result, or
// for an object that is not an exposer).
using kwhost::InstanceOf;

// The QObject an instance is, or null: a class with a meta-object has its
// QObject part first, at the instance's own address (moc requires the
// QObject-derived base to come first).
QObject* ObjectBehind(void* instance, const std::vector<const InterfaceInfo*>& interfaces) {
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

CScriptObject::CScriptObject(IDispatch* exposer, void* instance, ScriptContext* context, QObject* object, bool made)
    : CountedDispatch(IID_IScriptFacade),
      m_exposer(exposer), m_instance(instance), m_context(context), m_object(object), m_made(made) {
  m_exposer->AddRef();
  m_context->facades.insert(this);
  for (const std::wstring& name : kwhost::ComposedInterfaces(exposer))
    if (const InterfaceInfo* info = FindInterface(name.c_str())) m_interfaces.push_back(info);
  if (m_object == nullptr) m_object = ObjectBehind(instance, m_interfaces);
}

CScriptObject::~CScriptObject() {
  m_exposer->Release();
  m_context->facades.erase(this);
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

IDispatch* CScriptObject::Wrap(IDispatch* exposer, ScriptContext* context, QObject* object, bool made) {
  void* instance = exposer != nullptr ? InstanceOf(exposer) : nullptr;
  if (instance == nullptr) return nullptr;
  return new CScriptObject(exposer, instance, context, object, made);
}

QString CScriptObject::ClassName() const {
  return m_interfaces.empty() ? QString("the object") : QString::fromLatin1(m_interfaces.back()->name).mid(5);
}

bool CScriptObject::Composes(const QString& className) const {
  for (const InterfaceInfo* info : m_interfaces)
    if (className == QLatin1String(info->name + 5)) return true;
  return false;
}

bool CScriptObject::TextOf(QString* text) const {
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
  return facade != nullptr ? facade->m_object : nullptr;
}

STDMETHODIMP CScriptObject::GetTypeInfoCount(UINT* count) { return m_exposer->GetTypeInfoCount(count); }

STDMETHODIMP CScriptObject::GetTypeInfo(UINT index, LCID lcid, ITypeInfo** info) {
  return m_exposer->GetTypeInfo(index, lcid, info);
}

const MemberInfo* CScriptObject::FindMember(const wchar_t* name) const {
  for (const InterfaceInfo* info : m_interfaces)
    if (const MemberInfo* member = kwscript::FindMember(*info, name)) return member;
  return nullptr;
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
  HRESULT hr = m_exposer->GetIDsOfNames(iid, names, count, lcid, ids);
  if (hr == S_OK && count > 0) {
    if (const MemberInfo* member = FindMember(names[0])) m_members[ids[0]] = member;
    if (count == 1) m_ids.emplace(names[0], ids[0]);
    return hr;
  }
  if (hr != DISP_E_UNKNOWNNAME || count != 1 || names == nullptr || ids == nullptr) return hr;
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
  if (m_destroyed)
    return Refuse(exception, RPC_E_DISCONNECTED,
                  QString("object destroyed: this %1 was destroyed by its destructor member").arg(ClassName()));
  if (id == DISPID_VALUE) return AnswerDefaultValue(*this, flags, params, result);
  if (id >= kPlainBase && static_cast<std::size_t>(id - kPlainBase) < m_plain.size()) {
    DISPPARAMS none{};
    return InvokePlain(id - kPlainBase, flags, params != nullptr ? params : &none, result, exception, argumentError);
  }
  auto known = m_members.find(id);
  const MemberInfo* member = known != m_members.end() ? known->second : nullptr;
  if (member == nullptr || params == nullptr)
    return m_exposer->Invoke(id, iid, lcid, flags, params, result, exception, argumentError);
  return CallMember(*member, id, flags, params, false, result, exception, argumentError);
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
  auto known = plain.ids.find(chosen->member);
  if (known == plain.ids.end()) {
    std::wstring prefixed = QString::fromLatin1(chosen->member->name).toStdWString();
    LPOLESTR name = &prefixed[0];
    DISPID id = DISPID_UNKNOWN;
    const HRESULT hr = m_exposer->GetIDsOfNames(IID_NULL, &name, 1, LOCALE_USER_DEFAULT, &id);
    if (FAILED(hr)) return hr;
    known = plain.ids.emplace(chosen->member, id).first;
  }
  return CallMember(*chosen->member, known->second, DISPATCH_METHOD, params, true, result, exception, argumentError);
}

HRESULT CScriptObject::CallMember(const MemberInfo& member, DISPID id, WORD flags, DISPPARAMS* params, bool plain,
                                  VARIANT* result, EXCEPINFO* exception, UINT* argumentError) {
  const bool destructor = std::strstr(member.name, "_DTOR_") != nullptr;
  if (destructor && !m_made)
    return Refuse(exception, E_ACCESSDENIED,
                  QString("%1 refused: the application owns this %2; a script destroys only the objects it "
                          "made (app.str, values members return)")
                      .arg(member.name, ClassName()));
  ConvertedArguments arguments;
  UINT refused = 0;
  HRESULT hr = arguments.Convert(*params, member.arguments, m_context, &refused);
  if (FAILED(hr)) {
    if (argumentError != nullptr) *argumentError = refused;
    return Refuse(exception, hr,
                  QString("argument %1 of %2 must be an object of this script (not null, Nothing or another object)")
                      .arg(params->cArgs - refused)
                      .arg(member.declaration));
  }
  VARIANT answer;
  VariantInit(&answer);
  NoteCall(member.name);
  hr = m_exposer->Invoke(id, IID_NULL, LOCALE_USER_DEFAULT, flags, arguments.params(), &answer, exception,
                         argumentError);
  NoteCall(nullptr);
  if (hr == DISP_E_EXCEPTION && exception != nullptr) DescribeFailure(member, exception);
  if (hr == DISP_E_BADPARAMCOUNT || hr == DISP_E_TYPEMISMATCH || hr == DISP_E_OVERFLOW) {
    VariantClear(&answer);
    return Refuse(exception, hr,
                  QString("%1 takes %2 argument(s), %3; given %4")
                      .arg(member.name)
                      .arg(std::strlen(member.arguments))
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

}  // namespace kwscript
