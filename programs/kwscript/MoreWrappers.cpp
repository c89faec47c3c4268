#include "kwscript/MoreWrappers.h"

#include <string>

namespace kwscript {

namespace {

// The second set's manager while one is loaded (kwscript runs one script at
// a time, on the GUI thread), for CreateExposer.
IWrappersManager* g_more = nullptr;

// The folder of the DLL `manager` lives in, ending in a backslash ("" when
// it cannot be told).
std::wstring FolderOf(IUnknown* manager) {
  HMODULE module = nullptr;
  if (manager == nullptr ||
      !GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                          *reinterpret_cast<LPCWSTR*>(manager), &module))
    return L"";
  wchar_t path[MAX_PATH] = L"";
  GetModuleFileNameW(module, path, MAX_PATH);
  std::wstring folder(path);
  return folder.substr(0, folder.find_last_of(L'\\') + 1);
}

// Each manager's own chain, the library's first. The host's face of a
// manager runs the chain directly, never the sink, so this cannot loop.
HRESULT FromEither(IWrappersManager* library, IWrappersManager* more, const wchar_t* typeName, void* instance,
                   IDispatch** result) {
  if (result == nullptr) return E_POINTER;
  HRESULT hr = library != nullptr ? library->CreateWrapper(typeName, instance, result) : E_NOINTERFACE;
  if (hr == S_OK || more == nullptr) return hr;
  const HRESULT second = more->CreateWrapper(typeName, instance, result);
  return second == S_OK ? second : hr;
}

}  // namespace

// Answers both managers' requests from inside their DLLs (a manager calls
// its sink without querying it: IUnknown is all it needs to answer).
class MoreWrappers::Sink final : public kwhost::HostObject<IQtDispatchSink> {
 public:
  Sink(IWrappersManager* library, IWrappersManager* more)
      : HostObject(IID_IUnknown), m_library(library), m_more(more) {}

  STDMETHOD(CreateDispatch)
  (void* instance, void*, const wchar_t* typeName, VARIANT_BOOL, VARIANT_BOOL, VARIANT_BOOL,
   IDispatch** result) override {
    return FromEither(m_library, m_more, typeName, instance, result);
  }

 private:
  IWrappersManager* m_library;
  IWrappersManager* m_more;
};

// The host's face of both managers in one.
class MoreWrappers::Either final : public kwhost::HostObject<IWrappersManager> {
 public:
  explicit Either(IWrappersManager* library) : HostObject(IID_IWrappersManager), m_library(library) {}
  STDMETHOD(CreateWrapper)(const wchar_t* typeName, void* instance, IDispatch** result) override {
    return FromEither(m_library, g_more, typeName, instance, result);
  }

 private:
  IWrappersManager* m_library;
};

namespace {

// Installs `sink` (null: none) on the manager behind `manager`.
void SetSink(IWrappersManager* manager, IUnknown* sink) {
  IkwQtDispatchNotificator* notificator = nullptr;
  if (manager == nullptr ||
      FAILED(manager->QueryInterface(IID_IkwQtDispatchNotificator, reinterpret_cast<void**>(&notificator))))
    return;
  notificator->SetDispatchSink(sink);
  notificator->Release();
}

}  // namespace

MoreWrappers::MoreWrappers(kwhost::ManagerHost& library)
    : m_library(library), m_either(new Either(library.manager())) {
  if (!library.ready()) return;
  m_more.reset(new kwhost::ManagerHost((FolderOf(library.manager()) + L"kwQtMoreWrappers.dll").c_str()));
  if (!m_more->ready()) {
    m_more.reset();
    return;
  }
  m_sink.reset(new Sink(library.manager(), m_more->manager()));
  SetSink(library.manager(), m_sink.get());
  SetSink(m_more->manager(), m_sink.get());
  g_more = m_more->manager();
}

MoreWrappers::~MoreWrappers() { Unload(); }

IWrappersManager* MoreWrappers::either() const { return m_either.get(); }

void MoreWrappers::Unload() {
  if (m_more == nullptr) return;
  if (g_more == m_more->manager()) g_more = nullptr;
  SetSink(m_library.manager(), nullptr);
  SetSink(m_more->manager(), nullptr);
  m_more->Unload();
  m_more.reset();
  m_sink.reset();
}

HRESULT CreateExposer(IWrappersManager* library, const wchar_t* typeName, void* instance, IDispatch** result) {
  return FromEither(library, g_more, typeName, instance, result);
}

}  // namespace kwscript
