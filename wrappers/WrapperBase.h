// Base of every instance wrapper `wrp_<Class>`: one object bound to one
// instance and answering the dual interface `Iwrp_<Class>` of the library's
// type library. A wrapper class derives from
//   CWrapperBase<Iwrp_<Class>, &IID_Iwrp_<Class>>
// implements the interface's own methods on `m_pInstance`, and is made as
// kwatl::CComObject<wrp_<Class>>. The exposer that creates it binds it to
// its instance and manager; the wrapper never frees or destroys the instance.
// Each wrapper class has a factory of type WrapperFactory (CreateBound).
#pragma once

#include <objbase.h>
#include <oaidl.h>

#include "com/ComSupport.h"
#include "module/Module.h"

class CStaticWrappersManager;

template <class Interface, const IID* InterfaceId>
class CWrapperBase : public kwatl::CComObjectRootEx<kwatl::CComMultiThreadModel>, public Interface {
 public:
  using WrapperInterface = Interface;

  // IUnknown, IDispatch and the wrapper's own interface, all one table.
  static const kwatl::InterfaceEntry* GetInterfaceMap() {
    static const kwatl::InterfaceEntry map[] = {
        kwatl::FaceEntry<CWrapperBase, Interface>(IID_IUnknown),
        kwatl::FaceEntry<CWrapperBase, IDispatch>(IID_IDispatch),
        kwatl::FaceEntry<CWrapperBase, Interface>(*InterfaceId),
        {nullptr, nullptr},
    };
    return map;
  }

  // Sets the bound instance and the manager that wraps returned values. Done
  // once by the exposer right after creation.
  void Init(void* instance, CStaticWrappersManager* manager) {
    m_pInstance = instance;
    m_pManager = manager;
  }

  // The type information of the wrapper's interface with a reference added,
  // or null when it cannot be had (a failed load is retried by the next call).
  ITypeInfo* GetWrapperTypeInfo() {
    if (m_pTypeInfo == nullptr) LoadInterfaceTypeInfo(*InterfaceId, &m_pTypeInfo);
    if (m_pTypeInfo != nullptr) m_pTypeInfo->AddRef();
    return m_pTypeInfo;
  }

  STDMETHOD(GetTypeInfoCount)(UINT* count) override {
    if (count == nullptr) return E_POINTER;
    *count = 1;
    return S_OK;
  }

  // Any index gives the one type information of the interface.
  STDMETHOD(GetTypeInfo)(UINT, LCID, ITypeInfo** typeInfo) override {
    ITypeInfo* info = GetWrapperTypeInfo();
    if (info == nullptr) return E_FAIL;
    if (typeInfo == nullptr) {
      info->Release();
      return E_POINTER;
    }
    *typeInfo = info;  // the reference GetWrapperTypeInfo added
    return S_OK;
  }

  STDMETHOD(GetIDsOfNames)(REFIID, LPOLESTR* names, UINT count, LCID, DISPID* dispIds) override {
    ITypeInfo* info = GetWrapperTypeInfo();
    if (info == nullptr) return E_FAIL;
    HRESULT hr = info->GetIDsOfNames(names, count, dispIds);
    info->Release();
    return hr;
  }

  // Argument conversion is the platform's standard dispatch against the
  // interface's type information, which calls this object's own method.
  STDMETHOD(Invoke)
  (DISPID dispId, REFIID, LCID, WORD flags, DISPPARAMS* params, VARIANT* result, EXCEPINFO* exceptionInfo,
   UINT* argumentError) override {
    ITypeInfo* info = GetWrapperTypeInfo();
    if (info == nullptr) return E_FAIL;
    HRESULT hr =
        info->Invoke(static_cast<Interface*>(this), dispId, flags, params, result, exceptionInfo, argumentError);
    info->Release();
    return hr;
  }

  // The last slot of the table; the host never calls it. The instance is left alone.
  virtual ~CWrapperBase() {
    if (m_pTypeInfo != nullptr) {
      m_pTypeInfo->Release();
      m_pTypeInfo = nullptr;
    }
  }

 protected:
  void* m_pInstance = nullptr;
  ITypeInfo* m_pTypeInfo = nullptr;
  CStaticWrappersManager* m_pManager = nullptr;
};

// Creates a wrapper, binds it to an instance and a manager and hands out its
// IDispatch: the shape of every wrapper class's factory, through which the
// exposers compose their wrappers.
using WrapperFactory = HRESULT (*)(void* instance, CStaticWrappersManager* manager, IDispatch** result);

// The factory of a wrapper or exposer class `T` (made as kwatl::CComObject<T>):
// creates it, takes a reference, binds it to `instance` and `manager` with
// its Init, queries IDispatch into `result` (which then holds the only
// reference) and drops its own reference. Returns the creation HRESULT or
// that of the query.
template <class T>
HRESULT CreateBound(void* instance, CStaticWrappersManager* manager, IDispatch** result) {
  kwatl::CComObject<T>* object = nullptr;
  HRESULT hr = kwatl::CComObject<T>::CreateInstance(&object);
  if (FAILED(hr)) return hr;
  object->AddRef();
  object->Init(instance, manager);
  hr = object->QueryInterface(IID_IDispatch, reinterpret_cast<void**>(result));
  object->Release();
  return hr;
}
