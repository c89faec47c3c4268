#include "managers/StaticWrappersManager.h"

#include <cstring>
#include <string>

namespace {

// Widens a narrow type name as stored in the chain (the names are ASCII).
std::wstring Widen(const char* text) {
  std::wstring wide;
  wide.reserve(std::strlen(text));
  for (const char* c = text; *c != '\0'; ++c) wide.push_back(static_cast<unsigned char>(*c));
  return wide;
}

}  // namespace

HRESULT CStaticWrappersManager::CreateWrapper(const wchar_t* typeName, void* instance, IDispatch** result) {
  const std::wstring requested = typeName != nullptr ? typeName : L"";
  for (std::size_t i = 0; i < g_typeNameChainLength; ++i) {
    const TypeNameTest& test = g_typeNameChain[i];
    if (Widen(test.typeName) != requested) continue;
    if (test.createExposer == nullptr) break;  // known name without an exposer here
    return test.createExposer(instance, this, result);
  }
  return E_NOINTERFACE;
}

CSinkAwareWrappersManager::~CSinkAwareWrappersManager() { ReplaceSink(nullptr); }

HRESULT CSinkAwareWrappersManager::CreateWrapper(const wchar_t* typeName, void* instance, IDispatch** result) {
  if (m_sink != nullptr) {
    return static_cast<IQtDispatchSink*>(m_sink)->CreateDispatch(instance, nullptr, typeName, VARIANT_TRUE,
                                                                 VARIANT_TRUE, VARIANT_TRUE, result);
  }
  return CStaticWrappersManager::CreateWrapper(typeName, instance, result);
}

void CSinkAwareWrappersManager::ReplaceSink(IUnknown* sink) {
  if (m_sink != nullptr) {
    IUnknown* old = m_sink;
    m_sink = nullptr;
    old->Release();
  }
  if (sink != nullptr) {
    sink->AddRef();
    m_sink = sink;
  }
}

const kwatl::InterfaceEntry* CkwQtStaticWrappersManager::GetInterfaceMap() {
  static const kwatl::InterfaceEntry map[] = {
      kwatl::FaceEntry<CkwQtStaticWrappersManager, IkwQtDispatchNotificator>(IID_IkwQtDispatchNotificator),
      kwatl::FaceEntry<CkwQtStaticWrappersManager, IWrappersManager>(IID_IWrappersManager),
      {nullptr, nullptr},
  };
  return map;
}

HRESULT CkwQtStaticWrappersManager::SetDispatchSink(IUnknown* sink) {
  ReplaceSink(sink);
  return S_OK;
}
