#include "managers/StubManager.h"

#include <cstdlib>
#include <vector>

#include "module/FaultGuard.h"
#include "trace/TraceLog.h"

namespace kwInprocHook {

CStubManagerObject* g_pStubManager = nullptr;

namespace {

constexpr DWORD kWaitLimitMs = 1000;
constexpr DWORD kPollIntervalMs = 50;

HANDLE g_pumpEvent = nullptr;

void ClosePumpEvent() {
  if (g_pumpEvent != nullptr) {
    CloseHandle(g_pumpEvent);
    g_pumpEvent = nullptr;
  }
}

// Lets COM deliver calls waiting for this thread (the host's last Release
// calls), without waiting for anything.
void PumpComCalls() {
  if (g_pumpEvent == nullptr) {
    g_pumpEvent = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    if (g_pumpEvent == nullptr) return;
    std::atexit(ClosePumpEvent);
  }
  DWORD index = 0;
  CoWaitForMultipleHandles(0, 0, 1, &g_pumpEvent, &index);
}

// Stands for a registered object towards CoDisconnectObject: it answers
// IUnknown with the object's identity and has no IMarshal, so COM disconnects
// the standard marshaler's stubs of that identity. An exposer's own IMarshal
// is the free-threaded marshaler, whose DisconnectObject does not reach those
// stubs on every platform (under Wine it does nothing).
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

class RegistryLock {
 public:
  explicit RegistryLock(CRITICAL_SECTION* cs) : m_cs(cs) { EnterCriticalSection(m_cs); }
  ~RegistryLock() { LeaveCriticalSection(m_cs); }
  RegistryLock(const RegistryLock&) = delete;
  RegistryLock& operator=(const RegistryLock&) = delete;

 private:
  CRITICAL_SECTION* m_cs;
};

}  // namespace

const kwatl::InterfaceEntry* CStubManager::GetInterfaceMap() {
  static const kwatl::InterfaceEntry map[] = {
      kwatl::FaceEntry<CStubManager, IUnknown>(IID_IUnknown),
      {nullptr, nullptr},
  };
  return map;
}

void CStubManager::FinalRelease() { WaitAndClear(); }

void CStubManager::AddObject(IUnknown* object) {
  void* fingerprint = SafeReadPointer(object);
  RegistryLock lock(&m_cs);
  m_registry.emplace(object, fingerprint);
}

void CStubManager::RemoveObject(IUnknown* object) {
  RegistryLock lock(&m_cs);
  m_registry.erase(object);
}

unsigned CStubManager::Count() {
  RegistryLock lock(&m_cs);
  return static_cast<unsigned>(m_registry.size());
}

void CStubManager::DisconnectObjects() {
  std::vector<std::pair<IUnknown*, void*>> snapshot;
  {
    RegistryLock lock(&m_cs);
    snapshot.assign(m_registry.begin(), m_registry.end());
  }
  for (const auto& [object, fingerprint] : snapshot) {
    {
      RegistryLock lock(&m_cs);
      if (m_registry.find(object) == m_registry.end()) continue;
    }
    if (SafeReadPointer(object) != fingerprint) {
      RemoveObject(object);  // the address no longer holds the registered object
      continue;
    }
    if (SafeCoDisconnectObject(object) != S_OK) RemoveObject(object);
  }
}

unsigned CStubManager::WaitAndClear() {
  unsigned left = Count();
  if (left == 0) return 0;
  DisconnectObjects();
  const DWORD start = GetTickCount();
  DWORD now = start;
  for (;;) {
    if (now - start > kWaitLimitMs) {
      TraceWrite(L"WARNING! %u object are not removed from stub manager during %u ms!", left, kWaitLimitMs);
      break;
    }
    PumpComCalls();
    left = Count();
    if (left == 0) break;
    Sleep(kPollIntervalMs);
    now = GetTickCount();
  }
  RegistryLock lock(&m_cs);
  m_registry.clear();
  return left;
}

void* CStubManager::SafeReadPointer(const void* address) {
  if (IsBadReadPtr(address, sizeof(void*))) return nullptr;
  void* word = nullptr;
  // The memory may go away between the test and the read.
  if (!kwatl::CallFaultGuarded([&] { word = *static_cast<void* const volatile*>(address); })) return nullptr;
  return word;
}

bool CStubManager::IsValidInterfacePointer(IUnknown* object) {
  void* table = SafeReadPointer(object);
  if (table == nullptr) return false;
  if (IsBadReadPtr(table, 3 * sizeof(void*))) return false;
  FARPROC* entries = static_cast<FARPROC*>(table);
  for (int slot = 0; slot < 3; ++slot)
    if (IsBadCodePtr(entries[slot])) return false;
  return true;
}

HRESULT CStubManager::SafeCoDisconnectObject(IUnknown* object) {
  if (!IsValidInterfacePointer(object)) return E_POINTER;
  HRESULT hr = E_FAIL;
  // The object is held across both disconnects: the first may drop the last
  // reference a stub had, and the second must not reach a destroyed object.
  // If ours is the last reference, the object goes when it is released here.
  if (!kwatl::CallFaultGuarded([&] {
        object->AddRef();
        hr = CoDisconnectObject(object, 0);
        if (hr == S_OK) {
          StandardStubsOf stubs(object);
          CoDisconnectObject(&stubs, 0);
        }
        object->Release();
      })) {
    TraceWrite(L"Exception in SafeCoDisconnectObject, pUnk = 0x%p", object);
    return E_FAIL;
  }
  return hr;
}

void StartStubManager() {
  CStubManagerObject* created = nullptr;
  if (SUCCEEDED(CStubManagerObject::CreateInstance(&created))) {
    created->AddRef();
    g_pStubManager = created;
  }
  std::atexit(ShutDownStubManager);
}

void ShutDownStubManager() {
  if (g_pStubManager == nullptr) return;
  g_pStubManager->DisconnectObjects();
  g_pStubManager->WaitAndClear();
  g_pStubManager->Release();
  g_pStubManager = nullptr;
}

}  // namespace kwInprocHook
