#include "wrappers/WrapperExposer.h"

#include "managers/StubManager.h"
#include "trace/TraceLog.h"

const kwatl::InterfaceEntry* CBaseWrapperExposer::GetInterfaceMap() {
  static const kwatl::InterfaceEntry map[] = {
      kwatl::FaceEntry<CBaseWrapperExposer, IDispatch>(IID_IDispatch),
      kwatl::FaceEntry<CBaseWrapperExposer, IkwInstanceProxy>(IID_IkwInstanceProxy),
      {&IID_IMarshal, &CBaseWrapperExposer::QueryMarshaler},
      {nullptr, nullptr},
  };
  return map;
}

namespace {

// Stands for an exposer towards CoDisconnectObject: it answers IUnknown with
// the exposer's identity and has no IMarshal, so COM disconnects the
// standard marshaler's stubs of that identity.
class StandardStubsOf final : public IUnknown {
 public:
  explicit StandardStubsOf(IUnknown* object) : m_object(object) {}
  STDMETHOD(QueryInterface)(REFIID iid, void** ppv) override {
    if (ppv == nullptr) return E_POINTER;
    *ppv = nullptr;
    if (IsEqualIID(iid, IID_IUnknown)) return m_object->QueryInterface(iid, ppv);
    return E_NOINTERFACE;
  }
  STDMETHOD_(ULONG, AddRef)() override { return 1; }
  STDMETHOD_(ULONG, Release)() override { return 1; }

 private:
  IUnknown* m_object;
};

}  // namespace

HRESULT CBaseWrapperExposer::QueryMarshaler(kwatl::CComObjectRootBase* object, REFIID, void** ppv) {
  auto* exposer = static_cast<CBaseWrapperExposer*>(object);
  if (exposer->m_pMarshaler == nullptr) return E_NOINTERFACE;
  IMarshal* face = exposer;
  face->AddRef();
  *ppv = face;
  return S_OK;
}

IMarshal* CBaseWrapperExposer::FreeThreadedMarshal() {
  IMarshal* marshal = nullptr;
  if (m_pMarshaler != nullptr) m_pMarshaler->QueryInterface(IID_IMarshal, reinterpret_cast<void**>(&marshal));
  return marshal;
}

// Each IMarshal call goes to the aggregated marshaler as it is.
template <class Call>
static HRESULT ForwardToMarshaler(IMarshal* marshal, Call&& call) {
  if (marshal == nullptr) return E_FAIL;
  HRESULT hr = call(marshal);
  marshal->Release();
  return hr;
}

HRESULT CBaseWrapperExposer::GetUnmarshalClass(REFIID iid, void* object, DWORD context, void* reserved, DWORD flags,
                                               CLSID* clsid) {
  return ForwardToMarshaler(FreeThreadedMarshal(), [&](IMarshal* m) {
    return m->GetUnmarshalClass(iid, object, context, reserved, flags, clsid);
  });
}

HRESULT CBaseWrapperExposer::GetMarshalSizeMax(REFIID iid, void* object, DWORD context, void* reserved, DWORD flags,
                                               DWORD* size) {
  return ForwardToMarshaler(FreeThreadedMarshal(), [&](IMarshal* m) {
    return m->GetMarshalSizeMax(iid, object, context, reserved, flags, size);
  });
}

HRESULT CBaseWrapperExposer::MarshalInterface(IStream* stream, REFIID iid, void* object, DWORD context, void* reserved,
                                              DWORD flags) {
  return ForwardToMarshaler(FreeThreadedMarshal(), [&](IMarshal* m) {
    return m->MarshalInterface(stream, iid, object, context, reserved, flags);
  });
}

HRESULT CBaseWrapperExposer::UnmarshalInterface(IStream* stream, REFIID iid, void** object) {
  return ForwardToMarshaler(FreeThreadedMarshal(),
                            [&](IMarshal* m) { return m->UnmarshalInterface(stream, iid, object); });
}

HRESULT CBaseWrapperExposer::ReleaseMarshalData(IStream* stream) {
  return ForwardToMarshaler(FreeThreadedMarshal(), [&](IMarshal* m) { return m->ReleaseMarshalData(stream); });
}

HRESULT CBaseWrapperExposer::DisconnectObject(DWORD reserved) {
  HRESULT hr = ForwardToMarshaler(FreeThreadedMarshal(), [&](IMarshal* m) { return m->DisconnectObject(reserved); });
  // The stubs may hold the last references: the exposer goes, if it goes,
  // when this call lets go of it, and nothing touches it after that.
  IUnknown* self = static_cast<IDispatch*>(this);
  self->AddRef();
  StandardStubsOf stubs(self);
  CoDisconnectObject(&stubs, reserved);
  self->Release();
  return hr;
}

HRESULT CBaseWrapperExposer::FinalConstruct() {
  if (kwInprocHook::g_pStubManager != nullptr) kwInprocHook::g_pStubManager->AddObject(static_cast<IDispatch*>(this));
  return S_OK;
}

void CBaseWrapperExposer::FinalRelease() {
  if (kwInprocHook::g_pStubManager != nullptr)
    kwInprocHook::g_pStubManager->RemoveObject(static_cast<IDispatch*>(this));
}

CBaseWrapperExposer::~CBaseWrapperExposer() {
  m_routes.clear();
  for (IDispatch* object : m_contained)
    if (object != nullptr) object->Release();
  m_contained.clear();
  m_contained.shrink_to_fit();
  if (m_pMarshaler != nullptr) {
    IUnknown* marshaler = m_pMarshaler;
    m_pMarshaler = nullptr;
    marshaler->Release();
  }
}

HRESULT CBaseWrapperExposer::Init(void* instance, CStaticWrappersManager* manager) {
  m_pInstance = instance;
  m_pManager = manager;
  if (m_pMarshaler == nullptr) CoCreateFreeThreadedMarshaler(static_cast<IDispatch*>(this), &m_pMarshaler);
  return S_OK;
}

void CBaseWrapperExposer::AddWrapper(WrapperFactory factory) {
  IDispatch* dispatch = nullptr;
  if (FAILED(factory(m_pInstance, m_pManager, &dispatch)) || dispatch == nullptr) return;
  AppendContained(dispatch);
  dispatch->Release();
}

HRESULT CBaseWrapperExposer::InitComposed(void* instance, CStaticWrappersManager* manager,
                                          const WrapperFactory* factories, std::size_t count, CMemberNameTable* names) {
  CBaseWrapperExposer::Init(instance, manager);
  for (std::size_t i = 0; i < count; ++i) AddWrapper(factories[i]);
  m_names = m_contained.size() == count ? names : nullptr;
  return S_OK;
}

void CBaseWrapperExposer::AppendContained(IDispatch* object) {
  try {
    m_contained.push_back(object);
  } catch (const std::bad_alloc&) {
    return;
  }
  object->AddRef();
}

HRESULT CBaseWrapperExposer::GetInstance(void** instance) {
  if (instance == nullptr) return E_POINTER;
  *instance = m_pInstance;
  return S_OK;
}

HRESULT CBaseWrapperExposer::GetTypeInfoCount(UINT* count) {
  if (count == nullptr) return E_POINTER;
  *count = static_cast<UINT>(m_contained.size());
  return S_OK;
}

HRESULT CBaseWrapperExposer::GetTypeInfo(UINT index, LCID lcid, ITypeInfo** typeInfo) {
  if (index >= m_contained.size()) return E_INVALIDARG;
  if (typeInfo == nullptr) return E_POINTER;
  IDispatch* object = m_contained[index];
  if (object == nullptr) return E_FAIL;
  object->AddRef();
  HRESULT hr = object->GetTypeInfo(0, lcid, typeInfo);
  object->Release();
  return hr;
}

HRESULT CBaseWrapperExposer::GetIDsOfNames(REFIID, LPOLESTR* names, UINT count, LCID, DISPID* dispIds) {
  // One name: the class's table answers as the search below would.
  if (count == 1 && names != nullptr && dispIds != nullptr && m_names != nullptr) {
    auto typeInfoOf = [this](unsigned index) -> ITypeInfo* {
      ITypeInfo* info = nullptr;
      return SUCCEEDED(GetTypeInfo(index, 0, &info)) ? info : nullptr;
    };
    unsigned index = 0;
    DISPID dispId = DISPID_UNKNOWN;
    switch (m_names->Find(names[0], static_cast<unsigned>(m_contained.size()), typeInfoOf, &index, &dispId)) {
      case CMemberNameTable::Lookup::kFound:
        dispIds[0] = dispId;
        SetRoute(dispId, index);
        return S_OK;
      case CMemberNameTable::Lookup::kUnknown:
        dispIds[0] = DISPID_UNKNOWN;  // as the type information answers an unknown name
        return DISP_E_UNKNOWNNAME;
      case CMemberNameTable::Lookup::kNotAnswered:
        break;
    }
  }
  UINT objects = 0;
  HRESULT hr = GetTypeInfoCount(&objects);
  if (FAILED(hr)) return hr;
  if (objects == 0) return DISP_E_UNKNOWNNAME;
  for (UINT index = 0; index < objects; ++index) {
    ITypeInfo* info = nullptr;
    hr = GetTypeInfo(index, 0, &info);
    if (FAILED(hr)) return hr;
    hr = info->GetIDsOfNames(names, count, dispIds);
    info->Release();
    if (hr == S_OK) {  // success codes other than S_OK do not count as found
      SetRoute(dispIds[0], index);
      return S_OK;
    }
  }
  return DISP_E_UNKNOWNNAME;
}

HRESULT CBaseWrapperExposer::Invoke(DISPID dispId, REFIID iid, LCID lcid, WORD flags, DISPPARAMS* params,
                                    VARIANT* result, EXCEPINFO* exceptionInfo, UINT* argumentError) {
  unsigned routed = 0;
  if (FindRoute(dispId, &routed) && routed < m_contained.size()) {
    IDispatch* object = m_contained[routed];
    if (object == nullptr) return DISP_E_MEMBERNOTFOUND;
    object->AddRef();
    HRESULT hr = object->Invoke(dispId, iid, lcid, flags, params, result, exceptionInfo, argumentError);
    object->Release();
    return hr;
  }
  for (unsigned index = 0; index < m_contained.size(); ++index) {
    IDispatch* object = m_contained[index];
    if (object == nullptr) continue;
    object->AddRef();
    HRESULT hr = object->Invoke(dispId, iid, lcid, flags, params, result, exceptionInfo, argumentError);
    object->Release();
    if (hr == DISP_E_MEMBERNOTFOUND) continue;
    SetRoute(dispId, index);
    return hr;
  }
  DebugWrite(L"Invoke: no composed wrapper of the exposer 0x%p answers DISPID 0x%08X (flags 0x%X)",
             static_cast<IDispatch*>(this), static_cast<unsigned>(dispId), static_cast<unsigned>(flags));
  return DISP_E_MEMBERNOTFOUND;
}

bool CBaseWrapperExposer::FindRoute(DISPID dispId, unsigned* index) {
  AcquireSRWLockShared(&m_routesLock);
  auto route = m_routes.find(dispId);
  const bool found = route != m_routes.end();
  if (found) *index = route->second;
  ReleaseSRWLockShared(&m_routesLock);
  return found;
}

void CBaseWrapperExposer::SetRoute(DISPID dispId, unsigned index) {
  AcquireSRWLockExclusive(&m_routesLock);
  try {
    m_routes[dispId] = index;
  } catch (const std::bad_alloc&) {
  }
  ReleaseSRWLockExclusive(&m_routesLock);
}
