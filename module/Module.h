// Process-wide state of the library: module object, module critical section,
// module folder and the library's own type library.
#pragma once

#include <objbase.h>
#include <oaidl.h>

#include "com/ComSupport.h"

class CQtWrappersModule : public kwatl::CAtlDllModuleT<CQtWrappersModule> {};

// The library's own instance handle, stored at process attach.
extern HMODULE g_hModule;

// Recursive lock guarding the module singleton and both listener lists.
CRITICAL_SECTION* ModuleCriticalSection();

// RAII holder of the module critical section.
class ModuleLockGuard {
 public:
  ModuleLockGuard() { EnterCriticalSection(ModuleCriticalSection()); }
  ~ModuleLockGuard() { LeaveCriticalSection(ModuleCriticalSection()); }
  ModuleLockGuard(const ModuleLockGuard&) = delete;
  ModuleLockGuard& operator=(const ModuleLockGuard&) = delete;
};

// Drive and directory of the library's own file, ending in a backslash.
// Computed on first use and cached until unload.
const wchar_t* GetModuleFolder();

// Type information of one of the library's interfaces, from the type library
// embedded in the library file (loaded on first need; a failed load gives
// E_FAIL and is retried by the next call).
HRESULT LoadInterfaceTypeInfo(REFGUID guid, ITypeInfo** typeInfo);

namespace module_lifetime {
// Start-up and shut-down steps run by the library's global initialisation.
bool InitModuleCriticalSection();
void DeleteModuleCriticalSection();
void ClearModuleFolder();
void ReleaseTypeLibrary();
}  // namespace module_lifetime
