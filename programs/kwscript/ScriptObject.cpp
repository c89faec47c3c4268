#include "kwscript/ScriptObject.h"

#include "host/HostSupport.h"
#include "kwscript/ScriptHost.h"

#include <QtCore/QString>

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

// Whether the exposer stands for a null instance (a null pointer result).
bool StandsForNothing(IDispatch* exposer) {
  IkwInstanceProxy* proxy = nullptr;
  if (FAILED(exposer->QueryInterface(IID_IkwInstanceProxy, reinterpret_cast<void**>(&proxy)))) return false;
  void* instance = nullptr;
  proxy->GetInstance(&instance);
  proxy->Release();
  return instance == nullptr;
}

// A member that failed reaches the engine as DISP_E_EXCEPTION with its own
// HRESULT in the EXCEPINFO; the description says both, and which Qt
// declaration it was, also where the engine would give none.
void DescribeFailure(const MemberInfo& member, EXCEPINFO* exception) {
  if (exception->bstrDescription != nullptr && SysStringLen(exception->bstrDescription) > 0) return;
  const HRESULT code = exception->scode;
  const char* name = HResultName(code);
  const QString text = QString("DISP_E_EXCEPTION: %1 answered 0x%2 %3 (%4)")
                           .arg(member.name)
                           .arg(static_cast<unsigned long>(code), 8, 16, QChar('0'))
                           .arg(name ? name : "")
                           .arg(HResultMeaning(code) ? HResultMeaning(code) : member.declaration);
  SysFreeString(exception->bstrDescription);
  exception->bstrDescription = SysAllocString(reinterpret_cast<const OLECHAR*>(text.utf16()));
}

}  // namespace

CScriptObject::CScriptObject(IDispatch* exposer, ScriptContext* context) : m_exposer(exposer), m_context(context) {
  m_exposer->AddRef();
  InterlockedIncrement(&m_context->liveObjects);
  m_context->facades.insert(this);
  for (const std::wstring& name : kwhost::ComposedInterfaces(exposer))
    if (const InterfaceInfo* info = FindInterface(name.c_str())) m_interfaces.push_back(info);
}

CScriptObject::~CScriptObject() {
  m_exposer->Release();
  InterlockedDecrement(&m_context->liveObjects);
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

IDispatch* CScriptObject::Wrap(IDispatch* exposer, ScriptContext* context) {
  if (exposer == nullptr || StandsForNothing(exposer)) return nullptr;
  return new CScriptObject(exposer, context);
}

IDispatch* CScriptObject::ExposerOf(IUnknown* object) {
  CScriptObject* facade = nullptr;
  if (object == nullptr || FAILED(object->QueryInterface(IID_IScriptFacade, reinterpret_cast<void**>(&facade))))
    return nullptr;
  IDispatch* exposer = facade->m_exposer;
  facade->Release();
  return exposer;
}

STDMETHODIMP CScriptObject::QueryInterface(REFIID iid, void** ppv) {
  if (ppv == nullptr) return E_POINTER;
  if (IsEqualIID(iid, IID_IUnknown) || IsEqualIID(iid, IID_IDispatch) || IsEqualIID(iid, IID_IScriptFacade)) {
    *ppv = static_cast<IDispatch*>(this);
    AddRef();
    return S_OK;
  }
  *ppv = nullptr;
  return E_NOINTERFACE;
}

STDMETHODIMP_(ULONG) CScriptObject::AddRef() { return InterlockedIncrement(&m_refs); }

STDMETHODIMP_(ULONG) CScriptObject::Release() {
  const ULONG refs = InterlockedDecrement(&m_refs);
  if (refs == 0) delete this;
  return refs;
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
  HRESULT hr = m_exposer->GetIDsOfNames(iid, names, count, lcid, ids);
  if (hr == S_OK && count > 0)
    if (const MemberInfo* member = FindMember(names[0])) m_members[ids[0]] = member;
  return hr;
}

STDMETHODIMP CScriptObject::Invoke(DISPID id, REFIID iid, LCID lcid, WORD flags, DISPPARAMS* params, VARIANT* result,
                                   EXCEPINFO* exception, UINT* argumentError) {
  auto known = m_members.find(id);
  const MemberInfo* member = known != m_members.end() ? known->second : nullptr;
  if (member == nullptr || params == nullptr)
    return m_exposer->Invoke(id, iid, lcid, flags, params, result, exception, argumentError);

  ConvertedArguments arguments;
  HRESULT hr = arguments.Convert(*params, member->arguments, m_context, argumentError);
  if (FAILED(hr)) return hr;
  VARIANT answer;
  VariantInit(&answer);
  hr = m_exposer->Invoke(id, iid, lcid, flags, arguments.params(), &answer, exception, argumentError);
  if (hr == DISP_E_EXCEPTION && exception != nullptr) DescribeFailure(*member, exception);
  if (FAILED(hr) || result == nullptr) {
    VariantClear(&answer);
    return hr;
  }
  if (member->result == 'b' && V_VT(&answer) == VT_I4) {
    const bool value = V_I4(&answer) != 0;
    V_VT(&answer) = VT_BOOL;
    V_BOOL(&answer) = value ? VARIANT_TRUE : VARIANT_FALSE;
  } else if (V_VT(&answer) == VT_DISPATCH && V_DISPATCH(&answer) != nullptr) {
    IDispatch* exposer = V_DISPATCH(&answer);
    V_DISPATCH(&answer) = Wrap(exposer, m_context);  // null for a null pointer result
    exposer->Release();
  }
  *result = answer;
  return hr;
}

}  // namespace kwscript
