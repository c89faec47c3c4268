// What a host program needs to drive the library as a real host would: load and
// unload the DLL, reach its module interface, and host-side COM objects
// (unload listeners, dispatch sinks) that record what the library does to them.
#pragma once

#include <windows.h>
#include <oaidl.h>

#include <string>
#include <vector>

#include "com/Interfaces.h"

namespace kwhost {

// The wrappers DLL, loaded from the program's folder.
class LoadedLibrary {
 public:
  explicit LoadedLibrary(const wchar_t* fileName = L"kwQtWrappers.dll") : m_handle(LoadLibraryW(fileName)) {}
  ~LoadedLibrary() { Unload(); }
  LoadedLibrary(const LoadedLibrary&) = delete;
  LoadedLibrary& operator=(const LoadedLibrary&) = delete;

  HMODULE handle() const { return m_handle; }
  bool loaded() const { return m_handle != nullptr; }

  GetModuleIntfFn entry() const {
    return reinterpret_cast<GetModuleIntfFn>(reinterpret_cast<void*>(GetProcAddress(m_handle, "GetModuleIntf")));
  }

  // Unloads the DLL: unload listeners run, the exit actions follow.
  bool Unload() {
    if (m_handle == nullptr) return true;
    BOOL ok = FreeLibrary(m_handle);
    m_handle = nullptr;
    return ok != FALSE;
  }

 private:
  HMODULE m_handle;
};

// Reference count a host-side object reports, for checks on what the library
// holds: AddRef then Release, returning the count in between minus one.
inline ULONG RefCountOf(IUnknown* object) {
  object->AddRef();
  return object->Release();
}

// Base of the host-side objects: IUnknown answering `Interface` by IID.
template <class Interface>
class HostObject : public Interface {
 public:
  explicit HostObject(const IID& iid) : m_iid(iid) {}
  virtual ~HostObject() = default;
  STDMETHOD(QueryInterface)(REFIID iid, void** ppv) override {
    if (ppv == nullptr) return E_POINTER;
    if (IsEqualIID(iid, IID_IUnknown) || IsEqualIID(iid, m_iid)) {
      *ppv = static_cast<Interface*>(this);
      AddRef();
      return S_OK;
    }
    *ppv = nullptr;
    return E_NOINTERFACE;
  }
  STDMETHOD_(ULONG, AddRef)() override { return static_cast<ULONG>(InterlockedIncrement(&m_refs)); }
  // Host objects live on the test's stack or heap; reaching 0 never deletes.
  STDMETHOD_(ULONG, Release)() override { return static_cast<ULONG>(InterlockedDecrement(&m_refs)); }
  LONG refs() const { return m_refs; }

 private:
  IID m_iid;
  volatile LONG m_refs = 1;  // the test's own reference
};

// One OnModuleUnload call as the listener saw it.
struct UnloadCall {
  std::wstring listener;
  std::wstring folder;
  ImxModuleIntf* module;
};

// An unload listener that appends its calls to a shared log. Optionally it
// removes itself (through the module pointer it is given) while notified.
class RecordingListener : public HostObject<IModuleUnloadListener> {
 public:
  RecordingListener(std::wstring name, std::vector<UnloadCall>* log)
      : HostObject(IID_IUnknown), m_name(std::move(name)), m_log(log) {}

  void RemoveSelfOnUnload(bool primary) {
    m_removeSelf = true;
    m_removeFromPrimary = primary;
  }
  LONG refsDuringCall() const { return m_refsDuringCall; }
  LONG refsAfterRemoval() const { return m_refsAfterRemoval; }

  STDMETHOD(OnModuleUnload)(BSTR folder, ImxModuleIntf* module) override {
    m_log->push_back({m_name, folder != nullptr ? std::wstring(folder, SysStringLen(folder)) : L"<null>", module});
    m_refsDuringCall = refs();
    if (m_removeSelf && module != nullptr) {
      if (m_removeFromPrimary)
        module->RemovePrimaryListener(this);
      else
        module->RemoveSecondaryListener(this);
      m_refsAfterRemoval = refs();
    }
    return S_OK;
  }

 private:
  std::wstring m_name;
  std::vector<UnloadCall>* m_log;
  bool m_removeSelf = false;
  bool m_removeFromPrimary = true;
  LONG m_refsDuringCall = 0;
  LONG m_refsAfterRemoval = 0;
};

// One CreateDispatch call as the sink saw it.
struct SinkCall {
  void* instance;
  void* reserved;
  std::wstring typeName;
  VARIANT_BOOL flags[3];
};

// A dispatch sink that records every request and answers with a fixed result.
class RecordingSink : public HostObject<IQtDispatchSink> {
 public:
  explicit RecordingSink(HRESULT answer = S_OK) : HostObject(IID_IUnknown), m_answer(answer) {}
  std::vector<SinkCall> calls;

  STDMETHOD(CreateDispatch)
  (void* instance, void* reserved, const wchar_t* typeName, VARIANT_BOOL flag1, VARIANT_BOOL flag2, VARIANT_BOOL flag3,
   IDispatch** result) override {
    calls.push_back({instance, reserved, typeName != nullptr ? typeName : L"<null>", {flag1, flag2, flag3}});
    if (result != nullptr) *result = nullptr;
    return m_answer;
  }

 private:
  HRESULT m_answer;
};

// Folder of the running program, ending in a backslash.
inline std::wstring ProgramFolder() {
  wchar_t path[MAX_PATH] = L"";
  GetModuleFileNameW(nullptr, path, MAX_PATH);
  std::wstring folder(path);
  return folder.substr(0, folder.find_last_of(L'\\') + 1);
}

// The interface names an exposer composes, in its type-information order.
inline std::vector<std::wstring> ComposedInterfaces(IDispatch* exposer) {
  std::vector<std::wstring> names;
  UINT count = 0;
  if (exposer == nullptr || FAILED(exposer->GetTypeInfoCount(&count))) return names;
  for (UINT i = 0; i < count; ++i) {
    ITypeInfo* info = nullptr;
    BSTR name = nullptr;
    if (SUCCEEDED(exposer->GetTypeInfo(i, 0, &info)) &&
        SUCCEEDED(info->GetDocumentation(MEMBERID_NIL, &name, nullptr, nullptr, nullptr)))
      names.emplace_back(name, SysStringLen(name));
    SysFreeString(name);
    if (info != nullptr) info->Release();
  }
  return names;
}

}  // namespace kwhost
