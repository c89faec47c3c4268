// The process-wide registry of the exposers handed out by the library. At
// unload it disconnects them from their remote clients so that COM drops the
// stubs' references, and waits a bounded time for them to go.
#pragma once

#include <objbase.h>

#include <unordered_map>

#include "com/ComSupport.h"

namespace kwInprocHook {

class CStubManager : public kwatl::CComObjectRootEx<kwatl::CComMultiThreadModel>, public IUnknown {
 public:
  static const kwatl::InterfaceEntry* GetInterfaceMap();

  // Destruction waits for, then forgets, whatever is still registered.
  void FinalRelease();

  // Registers `object` with its current interface-table pointer as its
  // fingerprint; an object already registered keeps its first entry.
  void AddObject(IUnknown* object);
  // Forgets `object`, if registered.
  void RemoveObject(IUnknown* object);
  // Disconnects every registered object that still holds its fingerprint;
  // entries that are dead or fail to disconnect are dropped.
  void DisconnectObjects();
  // Disconnects, then waits up to 1000 ms for the registry to empty, pumping
  // COM calls; reports and forgets the survivors. Returns their number.
  unsigned WaitAndClear();
  // Number of registered objects.
  unsigned Count();

  // CoDisconnectObject on a pointer that may be dead: E_POINTER for an
  // unreadable interface table, E_FAIL (and a trace line) for a fault inside.
  static HRESULT SafeCoDisconnectObject(IUnknown* object);
  // The pointer-sized word at `address`, or null when it cannot be read.
  static void* SafeReadPointer(const void* address);
  // True when `object`'s interface table and its IUnknown entries are readable code.
  static bool IsValidInterfacePointer(IUnknown* object);

 private:
  // The registry is guarded by the object's own critical section (m_cs),
  // held only for one access at a time and never while calling an object.
  using Registry = std::unordered_map<IUnknown*, void*>;

  Registry m_registry;
};

using CStubManagerObject = kwatl::CComObject<CStubManager>;

// The one stub manager of the process, or null before start-up and after shut-down.
extern CStubManagerObject* g_pStubManager;

// Creates the stub manager and registers its shut-down with atexit.
void StartStubManager();
// Disconnects and waits for what is left, then releases the stub manager.
void ShutDownStubManager();

}  // namespace kwInprocHook
