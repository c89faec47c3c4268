#include "ManagerHost.h"

#include <iterator>
#include <utility>
#include <vector>

namespace kwtest {

ManagerHost::ManagerHost(const wchar_t* dllName) : library_(dllName) {
  if (!library_.loaded()) return;
  IUnknown* module = nullptr;
  if (FAILED(library_.entry()(reinterpret_cast<void**>(&module)))) return;
  IWrappersModule* wrappers = nullptr;
  IUnknown* manager = nullptr;
  if (SUCCEEDED(module->QueryInterface(IID_IWrappersModule, reinterpret_cast<void**>(&wrappers)))) {
    if (SUCCEEDED(wrappers->CreateWrappersManager(&manager))) {
      manager->QueryInterface(IID_IWrappersManager, reinterpret_cast<void**>(&manager_));
      manager->QueryInterface(IID_IkwQtDispatchNotificator, reinterpret_cast<void**>(&notificator_));
      manager->Release();
    }
    wrappers->Release();
  }
  module->Release();
}

ManagerHost::~ManagerHost() { Unload(); }

void ManagerHost::Unload() {
  if (notificator_ != nullptr) notificator_->Release();
  if (manager_ != nullptr) manager_->Release();
  notificator_ = nullptr;
  manager_ = nullptr;
  library_.Unload();
}

IDispatch* ManagerHost::Wrap(const wchar_t* typeName, void* instance, HRESULT* hr) {
  IDispatch* result = nullptr;
  HRESULT created = manager_ != nullptr ? manager_->CreateWrapper(typeName, instance, &result) : E_FAIL;
  if (hr != nullptr) *hr = created;
  return SUCCEEDED(created) ? result : nullptr;
}

namespace {

VARIANT Typed(VARTYPE type) {
  VARIANT v;
  VariantInit(&v);
  V_VT(&v) = type;
  return v;
}

}  // namespace

#define KW_VARIANT_MAKER(Name, Type, vt, Field) \
  VARIANT Name(Type value) {                    \
    VARIANT v = Typed(vt);                      \
    Field(&v) = value;                          \
    return v;                                   \
  }

KW_VARIANT_MAKER(I4, int, VT_I4, V_I4)
KW_VARIANT_MAKER(I8, long long, VT_I8, V_I8)
KW_VARIANT_MAKER(R4, float, VT_R4, V_R4)
KW_VARIANT_MAKER(R8, double, VT_R8, V_R8)
KW_VARIANT_MAKER(UI1, unsigned char, VT_UI1, V_UI1)
KW_VARIANT_MAKER(UI2, unsigned short, VT_UI2, V_UI2)
KW_VARIANT_MAKER(Object, IDispatch*, VT_DISPATCH, V_DISPATCH)
KW_VARIANT_MAKER(LongRef, LONG*, VT_BYREF | VT_I4, V_I4REF)

VARIANT BytesRef(const char* bytes) {
  VARIANT v = Typed(VT_BYREF | VT_UI1);
  V_UI1REF(&v) = reinterpret_cast<unsigned char*>(const_cast<char*>(bytes));
  return v;
}

HRESULT IdOf(IDispatch* object, const wchar_t* name, DISPID* id) {
  LPOLESTR names[] = {const_cast<LPOLESTR>(name)};
  return object->GetIDsOfNames(IID_NULL, names, 1, LOCALE_USER_DEFAULT, id);
}

namespace {

// Invoke with arguments already in DISPPARAMS order (last argument first).
HRESULT InvokeReversed(IDispatch* object, DISPID id, WORD flags, std::vector<VARIANT> reversed, VARIANT* result,
                       UINT* argumentError, SCODE* exceptionCode = nullptr) {
  DISPPARAMS params{reversed.empty() ? nullptr : reversed.data(), nullptr, static_cast<UINT>(reversed.size()), 0};
  EXCEPINFO exception{};
  UINT error = 0;
  HRESULT hr = object->Invoke(id, IID_NULL, LOCALE_USER_DEFAULT, flags, &params, result, &exception, &error);
  if (argumentError != nullptr) *argumentError = error;
  if (exceptionCode != nullptr) *exceptionCode = hr == DISP_E_EXCEPTION ? exception.scode : 0;
  SysFreeString(exception.bstrSource);
  SysFreeString(exception.bstrDescription);
  SysFreeString(exception.bstrHelpFile);
  return hr;
}

}  // namespace

HRESULT InvokeWithVariants(IDispatch* object, DISPID id, WORD flags, std::initializer_list<VARIANT> args,
                           VARIANT* result, SCODE* exceptionCode) {
  std::vector<VARIANT> reversed(std::rbegin(args), std::rend(args));
  return InvokeReversed(object, id, flags, std::move(reversed), result, nullptr, exceptionCode);
}

HRESULT InvokeWith(IDispatch* object, DISPID id, WORD flags, std::initializer_list<int> args, VARIANT* result,
                   UINT* argumentError) {
  std::vector<VARIANT> reversed(args.size());
  size_t position = args.size();
  for (int value : args) reversed[--position] = I4(value);
  return InvokeReversed(object, id, flags, std::move(reversed), result, argumentError);
}

HRESULT Call(IDispatch* object, const wchar_t* name, std::initializer_list<int> args, VARIANT* result) {
  DISPID id = DISPID_UNKNOWN;
  HRESULT hr = IdOf(object, name, &id);
  if (FAILED(hr)) return hr;
  return InvokeWith(object, id, DISPATCH_METHOD, args, result);
}

HRESULT CallByName(IDispatch* object, const wchar_t* name, std::initializer_list<VARIANT> args, VARIANT* result,
                   SCODE* memberResult) {
  return CallByName(object, name, std::vector<VARIANT>(args), result, memberResult);
}

HRESULT CallByName(IDispatch* object, const wchar_t* name, const std::vector<VARIANT>& args, VARIANT* result,
                   SCODE* memberResult) {
  DISPID id = DISPID_UNKNOWN;
  HRESULT hr = IdOf(object, name, &id);
  if (FAILED(hr)) return hr;
  return InvokeReversed(object, id, DISPATCH_METHOD, std::vector<VARIANT>(args.rbegin(), args.rend()), result, nullptr,
                        memberResult);
}

void* InstanceOf(IUnknown* exposer) {
  IkwInstanceProxy* proxy = nullptr;
  if (FAILED(exposer->QueryInterface(IID_IkwInstanceProxy, reinterpret_cast<void**>(&proxy)))) return nullptr;
  void* instance = nullptr;
  proxy->GetInstance(&instance);
  proxy->Release();
  return instance;
}

}  // namespace kwtest
