#include "managers/StubManager.h"

#include <cstdlib>
#include <vector>

#include "com/FaultGuard.h"
#include "trace/TraceLog.h"

namespace kwInprocHook {

CStubManagerObject* g_pStubManager = nullptr;

namespace {

constexpr DWORD kWaitLimitMs = 1000;
constexpr DWORD kPollIntervalMs = 50;

HANDLE g_pumpEvent = nullptr;  // created on first use, closed when the stub manager shuts down

void ClosePumpEvent() {
  if (g_pumpEvent != nullptr) {
    CloseHandle(g_pumpEvent);
    g_pumpEvent = nullptr;
  }
}

// Lets COM deliver calls waiting for this thread (the host's last Release
// calls), without waiting for anything.
void PumpComCalls() {
  if (g_pumpEvent == nullptr) g_pumpEvent = CreateEventW(nullptr, TRUE, FALSE, nullptr);
  if (g_pumpEvent == nullptr) return;
  DWORD index = 0;
  CoWaitForMultipleHandles(0, 0, 1, &g_pumpEvent, &index);
}

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
  // COM may destroy the object inside the call, when its stubs held the last
  // references; nothing here touches it afterwards.
  if (!kwatl::CallFaultGuarded([&] { hr = CoDisconnectObject(object, 0); })) {
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
  // Closed here, not by an exit action of its own: the event is first made
  // while the runtime runs its exit list, which then takes no new entries.
  ClosePumpEvent();
}

}  // namespace kwInprocHook
