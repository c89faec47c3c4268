#include "host/ManagerHost.h"

#include <cstdarg>
#include <iterator>
#include <utility>
#include <vector>

namespace kwhost {

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

// A VARIANT of type `type` whose value `store` writes.
template <class Store>
VARIANT Typed(VARTYPE type, Store store) {
  VARIANT v;
  VariantInit(&v);
  V_VT(&v) = type;
  store(v);
  return v;
}

}  // namespace

VARIANT I4(int value) {
  return Typed(VT_I4, [&](VARIANT& v) { V_I4(&v) = value; });
}
VARIANT I8(long long value) {
  return Typed(VT_I8, [&](VARIANT& v) { V_I8(&v) = value; });
}
VARIANT R4(float value) {
  return Typed(VT_R4, [&](VARIANT& v) { V_R4(&v) = value; });
}
VARIANT R8(double value) {
  return Typed(VT_R8, [&](VARIANT& v) { V_R8(&v) = value; });
}
VARIANT UI1(unsigned char value) {
  return Typed(VT_UI1, [&](VARIANT& v) { V_UI1(&v) = value; });
}
VARIANT UI2(unsigned short value) {
  return Typed(VT_UI2, [&](VARIANT& v) { V_UI2(&v) = value; });
}
VARIANT Object(IDispatch* object) {
  return Typed(VT_DISPATCH, [&](VARIANT& v) { V_DISPATCH(&v) = object; });
}
VARIANT LongRef(LONG* location) {
  return Typed(VT_BYREF | VT_I4, [&](VARIANT& v) { V_I4REF(&v) = location; });
}

VARIANT BytesRef(const char* bytes) {
  return Typed(VT_BYREF | VT_UI1,
               [&](VARIANT& v) { V_UI1REF(&v) = reinterpret_cast<unsigned char*>(const_cast<char*>(bytes)); });
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

HRESULT CallWithArgumentList(IDispatch* object, const wchar_t* member, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  VARIANT result;
  VariantInit(&result);
  HRESULT hr =
      CallByName(object, member, {BytesRef(format), BytesRef(reinterpret_cast<const char*>(arguments))}, &result);
  VariantClear(&result);
  va_end(arguments);
  return hr;
}

void* InstanceOf(IUnknown* exposer) {
  IkwInstanceProxy* proxy = nullptr;
  if (FAILED(exposer->QueryInterface(IID_IkwInstanceProxy, reinterpret_cast<void**>(&proxy)))) return nullptr;
  void* instance = nullptr;
  proxy->GetInstance(&instance);
  proxy->Release();
  return instance;
}

}  // namespace kwhost
