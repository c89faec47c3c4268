#include "module/Module.h"

#include <stdlib.h>
#include <wchar.h>

HMODULE g_hModule = nullptr;

namespace {

CRITICAL_SECTION g_moduleLock;
wchar_t g_moduleFolder[MAX_PATH] = L"";
ITypeLib* g_typeLibrary = nullptr;

}  // namespace

CRITICAL_SECTION* ModuleCriticalSection() { return &g_moduleLock; }

const wchar_t* GetModuleFolder() {
  if (g_moduleFolder[0] == L'\0') {
    wchar_t path[MAX_PATH] = L"";
    GetModuleFileNameW(g_hModule, path, MAX_PATH);
    wchar_t drive[3] = L"";
    wchar_t directory[256] = L"";
    wchar_t name[256] = L"";
    wchar_t extension[256] = L"";
    _wsplitpath_s(path, drive, 3, directory, 256, name, 256, extension, 256);
    _snwprintf(g_moduleFolder, MAX_PATH - 1, L"%s%s", drive, directory);
    g_moduleFolder[MAX_PATH - 1] = L'\0';
  }
  return g_moduleFolder;
}

HRESULT LoadInterfaceTypeInfo(REFGUID guid, ITypeInfo** typeInfo) {
  if (g_typeLibrary == nullptr) {
    wchar_t path[MAX_PATH] = L"";
    GetModuleFileNameW(g_hModule, path, MAX_PATH);
    ITypeLib* loaded = nullptr;
    if (SUCCEEDED(LoadTypeLib(path, &loaded))) g_typeLibrary = loaded;
  }
  if (g_typeLibrary == nullptr) return E_FAIL;
  return g_typeLibrary->GetTypeInfoOfGuid(guid, typeInfo);
}

namespace module_lifetime {

bool InitModuleCriticalSection() { return SUCCEEDED(kwatl::InitializeObjectLock(&g_moduleLock)); }

void DeleteModuleCriticalSection() { DeleteCriticalSection(&g_moduleLock); }

void ClearModuleFolder() { g_moduleFolder[0] = L'\0'; }

void ReleaseTypeLibrary() {
  if (g_typeLibrary != nullptr) {
    g_typeLibrary->Release();
    g_typeLibrary = nullptr;
  }
}

}  // namespace module_lifetime
