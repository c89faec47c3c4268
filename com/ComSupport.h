// The library's own small COM object support (mingw-w64 has no ATL).
//
// Every COM object class of the library is written as a plain class deriving
// from CComObjectRootEx<CComMultiThreadModel> and its interfaces, declaring its
// interface map, and is instantiated as CComObject<Class>:
//   - CComObject<Class>::CreateInstance makes the object at reference count 0;
//     the creator takes the first reference.
//   - The constructor takes one module lock, the destructor releases it.
//   - The destructor first sets the reference count to kDestroyedRefCount, so a
//     stray AddRef/Release pair during destruction cannot destroy it twice.
//   - QueryInterface walks the class's interface map: E_POINTER for a null
//     out-parameter, the first entry for IID_IUnknown, E_NOINTERFACE (with the
//     out-parameter cleared) for anything else.
#pragma once

#include <objbase.h>
#include <new>

namespace kwatl {

// Reference count value set at the start of every destructor.
constexpr LONG kDestroyedRefCount = static_cast<LONG>(0xC0000001);

// HRESULT of a failed Win32 call whose error code is `code`.
inline HRESULT HResultFromWin32Code(DWORD code) { return static_cast<HRESULT>(0x80070000u | (code & 0xFFFFu)); }

// Initialises `cs` with spin count 0. Returns S_OK, or the HRESULT of the
// error code when initialisation fails with a non-zero code.
HRESULT InitializeObjectLock(CRITICAL_SECTION* cs);

// The module's lock count and shut-down list, one instance per DLL.
class CAtlModule {
 public:
  CAtlModule();
  virtual ~CAtlModule();
  virtual LONG Lock();
  virtual LONG Unlock();
  virtual LONG GetLockCount();
  // Global Interface Table of the process, created on first request.
  virtual HRESULT GetGITPtr(IGlobalInterfaceTable** git);

  // Registers `func(arg)` to run when the module terminates, in registration order.
  HRESULT AddTermFunc(void (*func)(void* arg), void* arg);
  // Runs and frees the termination callbacks, releases the GIT. Runs once.
  void Term();

  // True when the module's own structures could not be initialised.
  bool InitFailed() const { return m_initFailed; }

 protected:
  struct TermFunc {
    void (*func)(void*);
    void* arg;
    TermFunc* next;
  };

  UINT m_structSize = 0;  // non-zero until Term has run
  volatile LONG m_lockCount = 0;
  CRITICAL_SECTION m_staticDataLock;
  bool m_staticDataLockReady = false;
  bool m_initFailed = false;
  TermFunc* m_termFuncs = nullptr;
  IGlobalInterfaceTable* m_git = nullptr;
};

// The DLL flavour of the module object.
template <class T>
class CAtlDllModuleT : public CAtlModule {};

// The module object of this DLL; every object class locks and unlocks it.
extern CAtlModule* g_pAtlModule;

struct CComMultiThreadModel {
  static ULONG Increment(volatile LONG* value) { return static_cast<ULONG>(InterlockedIncrement(value)); }
  static ULONG Decrement(volatile LONG* value) { return static_cast<ULONG>(InterlockedDecrement(value)); }
};

class CComObjectRootBase;

// One row of an interface map: the IID and how to reach that face.
struct InterfaceEntry {
  const IID* iid;
  HRESULT (*query)(CComObjectRootBase* object, REFIID iid, void** ppv);
};

// Interface-map row function for a face that `Owner` derives from.
template <class Owner, class Interface>
HRESULT QueryFace(CComObjectRootBase* object, REFIID, void** ppv) {
  Interface* face = static_cast<Interface*>(static_cast<Owner*>(object));
  face->AddRef();
  *ppv = face;
  return S_OK;
}

// Interface-map row for `Interface` implemented directly by `Owner`.
template <class Owner, class Interface>
constexpr InterfaceEntry FaceEntry(const IID& iid) {
  return InterfaceEntry{&iid, &QueryFace<Owner, Interface>};
}

class CComObjectRootBase {
 public:
  // Looks `iid` up in `map` (terminated by a row with a null iid).
  static HRESULT InternalQueryInterface(CComObjectRootBase* object, const InterfaceEntry* map, REFIID iid, void** ppv);

  HRESULT FinalConstruct() { return S_OK; }
  // Runs first thing in destruction, right after the guard value is set and
  // before the module lock is released.
  void FinalRelease() {}

  volatile LONG m_dwRef = 0;
};

template <class ThreadModel>
class CComObjectRootEx : public CComObjectRootBase {
 public:
  ~CComObjectRootEx() {
    if (m_csReady) DeleteCriticalSection(&m_cs);
  }

  ULONG InternalAddRef() { return ThreadModel::Increment(&m_dwRef); }
  ULONG InternalRelease() { return ThreadModel::Decrement(&m_dwRef); }

  // Initialises the object's own critical section.
  HRESULT _AtlInitialConstruct() {
    HRESULT hr = InitializeObjectLock(&m_cs);
    m_csReady = SUCCEEDED(hr);
    return hr;
  }

  void Lock() { EnterCriticalSection(&m_cs); }
  void Unlock() { LeaveCriticalSection(&m_cs); }

 protected:
  CRITICAL_SECTION m_cs{};
  bool m_csReady = false;
};

// The instantiable object: supplies IUnknown over `Base`'s interface map,
// which `Base` declares as `static const kwatl::InterfaceEntry* GetInterfaceMap()`.
template <class Base>
class CComObject final : public Base {
 public:
  CComObject() { g_pAtlModule->Lock(); }
  ~CComObject() {
    this->m_dwRef = kDestroyedRefCount;
    this->FinalRelease();
    g_pAtlModule->Unlock();
  }

  STDMETHOD(QueryInterface)(REFIID iid, void** ppv) override {
    return CComObjectRootBase::InternalQueryInterface(static_cast<CComObjectRootBase*>(this), Base::GetInterfaceMap(),
                                                      iid, ppv);
  }
  STDMETHOD_(ULONG, AddRef)() override { return this->InternalAddRef(); }
  STDMETHOD_(ULONG, Release)() override {
    ULONG count = this->InternalRelease();
    if (count == 0) delete this;
    return count;
  }

  // Creates an object at reference count 0. E_POINTER for a null `object`,
  // E_OUTOFMEMORY when it cannot be allocated, the HRESULT of a failed
  // initialisation (the half-made object is destroyed).
  static HRESULT CreateInstance(CComObject** object) {
    if (object == nullptr) return E_POINTER;
    *object = nullptr;
    CComObject* created = nullptr;
    try {
      created = new CComObject();
    } catch (const std::bad_alloc&) {
      return E_OUTOFMEMORY;
    }
    created->InternalAddRef();
    HRESULT hr = created->_AtlInitialConstruct();
    if (SUCCEEDED(hr)) hr = created->FinalConstruct();
    created->InternalRelease();
    if (FAILED(hr)) {
      delete created;
      return hr;
    }
    *object = created;
    return S_OK;
  }
};

}  // namespace kwatl
