#include "com/ComSupport.h"

namespace kwatl {

CAtlModule* g_pAtlModule = nullptr;

HRESULT InitializeObjectLock(CRITICAL_SECTION* cs) {
  if (!InitializeCriticalSectionAndSpinCount(cs, 0)) {
    DWORD code = GetLastError();
    if (code != 0) return HResultFromWin32Code(code);
  }
  return S_OK;
}

CAtlModule::CAtlModule() {
  m_structSize = sizeof(*this);
  if (FAILED(InitializeObjectLock(&m_staticDataLock))) {
    m_initFailed = true;
  } else {
    m_staticDataLockReady = true;
  }
  g_pAtlModule = this;
}

CAtlModule::~CAtlModule() { Term(); }

LONG CAtlModule::Lock() { return InterlockedIncrement(&m_lockCount); }
LONG CAtlModule::Unlock() { return InterlockedDecrement(&m_lockCount); }
LONG CAtlModule::GetLockCount() { return m_lockCount; }

HRESULT CAtlModule::GetGITPtr(IGlobalInterfaceTable** git) {
  if (git == nullptr) return E_POINTER;
  HRESULT hr = S_OK;
  if (m_git == nullptr) {
    hr = CoCreateInstance(CLSID_StdGlobalInterfaceTable, nullptr, CLSCTX_INPROC_SERVER, IID_IGlobalInterfaceTable,
                          reinterpret_cast<void**>(&m_git));
    if (FAILED(hr)) {
      m_git = nullptr;
      return hr;
    }
  }
  m_git->AddRef();
  *git = m_git;
  return hr;
}

HRESULT CAtlModule::AddTermFunc(void (*func)(void*), void* arg) {
  TermFunc* entry = new (std::nothrow) TermFunc{func, arg, nullptr};
  if (entry == nullptr) return E_OUTOFMEMORY;
  if (m_staticDataLockReady) EnterCriticalSection(&m_staticDataLock);
  TermFunc** tail = &m_termFuncs;
  while (*tail != nullptr) tail = &(*tail)->next;
  *tail = entry;
  if (m_staticDataLockReady) LeaveCriticalSection(&m_staticDataLock);
  return S_OK;
}

void CAtlModule::Term() {
  if (m_structSize == 0) return;
  m_structSize = 0;
  while (m_termFuncs != nullptr) {
    TermFunc* entry = m_termFuncs;
    m_termFuncs = entry->next;
    entry->func(entry->arg);
    delete entry;
  }
  if (m_git != nullptr) {
    m_git->Release();
    m_git = nullptr;
  }
  if (m_staticDataLockReady) {
    DeleteCriticalSection(&m_staticDataLock);
    m_staticDataLockReady = false;
  }
}

HRESULT CComObjectRootBase::InternalQueryInterface(CComObjectRootBase* object, const InterfaceEntry* map, REFIID iid,
                                                   void** ppv) {
  if (object == nullptr || map == nullptr) return E_INVALIDARG;
  if (ppv == nullptr) return E_POINTER;
  *ppv = nullptr;
  if (IsEqualIID(iid, IID_IUnknown)) return map[0].query(object, iid, ppv);
  for (const InterfaceEntry* entry = map; entry->iid != nullptr; ++entry) {
    if (IsEqualIID(iid, *entry->iid)) {
      HRESULT hr = entry->query(object, iid, ppv);
      if (hr != E_NOINTERFACE) return hr;
    }
  }
  return E_NOINTERFACE;
}

}  // namespace kwatl
