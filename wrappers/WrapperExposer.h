// The exposer: the one automation object the host holds for one instance.
// It composes the instance wrappers of the instance's class and of a fixed
// list of its wrapped base classes, all bound to the same instance, and
// answers IDispatch as their union, plus IkwInstanceProxy (the raw instance
// pointer) and IMarshal (the aggregated free-threaded marshaler's, which also
// disconnects the standard stubs it made for other processes).
//
// What the exposer answers by itself (every other answer is the composed
// wrapper's, passed through unchanged):
//   QueryInterface      E_NOINTERFACE for any other interface, E_POINTER for a null out-pointer
//   GetTypeInfoCount    E_POINTER for a null count; else S_OK with the number of composed wrappers
//   GetTypeInfo         E_INVALIDARG for an index not below that number, then E_POINTER for a
//                       null out-pointer, E_FAIL for a wrapper that could not be made
//   GetIDsOfNames       DISP_E_UNKNOWNNAME when no composed wrapper knows the name (its slot
//                       then reads DISPID_UNKNOWN); a wrapper's failure to give its type
//                       information (E_FAIL when the type library cannot be loaded) as it is
//   Invoke              DISP_E_MEMBERNOTFOUND for a DISPID no composed wrapper answers (with a
//                       trace folder set, a trace line names the DISPID and the flags)
//   GetInstance         E_POINTER for a null out-pointer; else S_OK
//
// A concrete exposer declares its composition list, own wrapper last, either
// by wrapper classes:
//   class QPushButtonExposer
//       : public CComposedExposer<wrp_QWidget, wrp_QAbstractButton, wrp_QPushButton> {};
// or, where the wrapper classes live in other translation units, by their
// factories, in an Init that calls InitComposed.
// and its factory for the chain of type-name tests is one line:
//   HRESULT QPushButtonExposer_CreateBound(void* i, CStaticWrappersManager* m, IDispatch** r) {
//     return CreateBound<QPushButtonExposer>(i, m, r);
//   }
#pragma once

#include <objbase.h>
#include <oaidl.h>

#include <map>
#include <new>
#include <vector>

#include "com/ComSupport.h"
#include "com/Interfaces.h"
#include "wrappers/MemberNameTable.h"
#include "wrappers/WrapperBase.h"

class CStaticWrappersManager;

class CBaseWrapperExposer : public kwatl::CComObjectRootEx<kwatl::CComMultiThreadModel>,
                            public IDispatch,
                            public IkwInstanceProxy,
                            public IMarshal {
 public:
  // IDispatch (also IUnknown), IkwInstanceProxy, IMarshal of the marshaler.
  static const kwatl::InterfaceEntry* GetInterfaceMap();

  // Registers the IDispatch face with the stub manager.
  HRESULT FinalConstruct();
  // Leaves the stub manager; runs before the module lock is released and
  // before the contained wrappers go.
  void FinalRelease();

  // Composite dispatch over the contained wrappers, routed by DISPID.
  STDMETHOD(GetTypeInfoCount)(UINT* count) override;
  STDMETHOD(GetTypeInfo)(UINT index, LCID lcid, ITypeInfo** typeInfo) override;
  STDMETHOD(GetIDsOfNames)(REFIID iid, LPOLESTR* names, UINT count, LCID lcid, DISPID* dispIds) override;
  STDMETHOD(Invoke)
  (DISPID dispId, REFIID iid, LCID lcid, WORD flags, DISPPARAMS* params, VARIANT* result, EXCEPINFO* exceptionInfo,
   UINT* argumentError) override;

  // Binds the exposer: stores the instance and the manager and aggregates
  // the free-threaded marshaler. Composing exposers add their wrappers.
  virtual HRESULT Init(void* instance, CStaticWrappersManager* manager);

  // IkwInstanceProxy: the instance this exposer stands for.
  STDMETHOD(GetInstance)(void** instance) override;

  // IMarshal: the free-threaded marshaler's. Within the process it hands over
  // the exposer itself; for another process it marshals through the
  // standard marshaler, whose stubs DisconnectObject disconnects as well
  // (the free-threaded marshaler's own does not reach them on every
  // platform; under Wine it does nothing).
  STDMETHOD(GetUnmarshalClass)
  (REFIID iid, void* object, DWORD context, void* reserved, DWORD flags, CLSID* clsid) override;
  STDMETHOD(GetMarshalSizeMax)
  (REFIID iid, void* object, DWORD context, void* reserved, DWORD flags, DWORD* size) override;
  STDMETHOD(MarshalInterface)
  (IStream* stream, REFIID iid, void* object, DWORD context, void* reserved, DWORD flags) override;
  STDMETHOD(UnmarshalInterface)(IStream* stream, REFIID iid, void** object) override;
  STDMETHOD(ReleaseMarshalData)(IStream* stream) override;
  STDMETHOD(DisconnectObject)(DWORD reserved) override;

  // Releases the routing map, the contained objects in order, then the marshaler.
  virtual ~CBaseWrapperExposer();

 protected:
  // Creates one wrapper through `factory`, bound to this exposer's instance
  // and manager, and appends its IDispatch. A wrapper that cannot be made is
  // left out: its class's names stay unanswered.
  void AddWrapper(WrapperFactory factory);

  // Init of an exposer composing the wrappers of `factories`, in that order.
  // `names` is the exposer class's own name table; it serves this object
  // only when every composed wrapper could be made (its indexes are the
  // composition's).
  HRESULT InitComposed(void* instance, CStaticWrappersManager* manager, const WrapperFactory* factories,
                       std::size_t count, CMemberNameTable* names);

  // Appends `object` with a reference of the array's own.
  void AppendContained(IDispatch* object);

  IUnknown* m_pMarshaler = nullptr;              // inner unknown of the free-threaded marshaler
  std::vector<IDispatch*> m_contained;           // composed wrappers, creation order
  std::map<DISPID, unsigned> m_routes;           // DISPID -> index of the owning wrapper, under m_routesLock
  SRWLOCK m_routesLock = SRWLOCK_INIT;           // hosts call one exposer from many threads
  CMemberNameTable* m_names = nullptr;           // the names of this exposer class, shared; null: search in order
  void* m_pInstance = nullptr;                   // not owned
  CStaticWrappersManager* m_pManager = nullptr;  // borrowed

 private:
  static HRESULT QueryMarshaler(kwatl::CComObjectRootBase* object, REFIID iid, void** ppv);
  // The aggregated marshaler's IMarshal (a reference added), or null.
  IMarshal* FreeThreadedMarshal();

  // The routing map's entry for `dispId`, or false when it has none.
  bool FindRoute(DISPID dispId, unsigned* index);
  // Records (or overwrites) the route of `dispId`; without memory, none.
  void SetRoute(DISPID dispId, unsigned index);
};

// An exposer composing the wrappers `Wrappers...`, created in that order.
template <class... Wrappers>
class CComposedExposer : public CBaseWrapperExposer {
 public:
  HRESULT Init(void* instance, CStaticWrappersManager* manager) override {
    static const WrapperFactory factories[] = {&CreateBound<Wrappers>...};
    return InitComposed(instance, manager, factories, sizeof...(Wrappers), &s_names);
  }

 private:
  // The class's name table: made when the DLL is loaded, not at a first
  // call, since a function's own static would take the runtime's
  // thread-safe guard, whose pthreads emulation leaves handles behind on
  // every thread that passes it once the DLL is unloaded.
  static CMemberNameTable s_names;
};

template <class... Wrappers>
CMemberNameTable CComposedExposer<Wrappers...>::s_names;
