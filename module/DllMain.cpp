// Entry points of the library and the order of its start-up and shut-down.
//
// Start-up runs as the static objects of this file are constructed, in the
// order they are declared; every step that needs undoing registers it with
// atexit (or, for the module object, through its destructor), so the C
// runtime undoes them in reverse order after DllMain has returned from
// DLL_PROCESS_DETACH:
//   1. the trace log opens (and registers its closing),
//   2. the module object is constructed,
//   3. the module critical section is initialised,
//   4. the clearing of the module folder cache is registered,
//   5. the stub manager is created (and registers its shut-down),
//   6. the release of the type library is registered.
#include <windows.h>

#include <cstdlib>

#include "managers/StubManager.h"
#include "module/ModuleInterface.h"
#include "trace/TraceLog.h"

namespace {

CWrappersModuleObject* g_moduleSingleton = nullptr;
LONG g_terminated = 0;  // set at process detach; a marker of the shut-down state
bool g_startupFailed = false;

struct TraceLogStart {
  TraceLogStart() { OpenTraceLog(); }
} g_traceLogStart;

CQtWrappersModule g_module;

struct FrameStart {
  FrameStart() {
    if (!module_lifetime::InitModuleCriticalSection()) {
      g_startupFailed = true;
      return;
    }
    std::atexit(module_lifetime::DeleteModuleCriticalSection);
    std::atexit(module_lifetime::ClearModuleFolder);
    kwInprocHook::StartStubManager();
    std::atexit(module_lifetime::ReleaseTypeLibrary);
  }
} g_frameStart;

// Creates the module interface object at reference count 0.
HRESULT CreateModuleSingleton() {
  g_moduleSingleton = nullptr;
  CWrappersModuleObject* created = nullptr;
  HRESULT hr = CWrappersModuleObject::CreateInstance(&created);
  if (FAILED(hr)) return hr;
  g_moduleSingleton = created;
  return S_OK;
}

void NotifyUnloadListeners() {
  ModuleLockGuard guard;
  if (g_moduleSingleton == nullptr) return;
  try {
    g_moduleSingleton->NotifyPrimaryListeners();
    g_moduleSingleton->NotifySecondaryListeners();
  } catch (HRESULT) {
    // Out of memory while copying a list or the folder text: the remaining
    // listeners cannot be told.
  }
}

void ReleaseModuleSingleton() {
  ModuleLockGuard guard;
  g_terminated = 1;
  if (g_moduleSingleton != nullptr) {
    g_moduleSingleton->Release();
    g_moduleSingleton = nullptr;
  }
}

}  // namespace

extern "C" HRESULT WINAPI GetModuleIntf(void** ppv) {
  HRESULT hr = S_OK;
  {
    ModuleLockGuard guard;
    if (g_moduleSingleton == nullptr) {
      hr = CreateModuleSingleton();
      if (SUCCEEDED(hr)) g_moduleSingleton->AddRef();  // the library's own reference
    }
  }
  if (FAILED(hr)) {
    if (ppv != nullptr) *ppv = nullptr;
    return hr;
  }
  return g_moduleSingleton->QueryInterface(IID_IUnknown, ppv);
}

extern "C" BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, LPVOID) {
  switch (reason) {
    case DLL_PROCESS_ATTACH: {
      g_hModule = instance;
      return (g_module.InitFailed() || g_startupFailed) ? FALSE : TRUE;
    }
    case DLL_PROCESS_DETACH:
      NotifyUnloadListeners();
      ReleaseModuleSingleton();
      return TRUE;
    default:
      return TRUE;
  }
}
