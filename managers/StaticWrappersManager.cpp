#include "managers/StaticWrappersManager.h"

namespace {

// Whether the narrow (ASCII) `known` name has exactly the code units of `name`.
bool SameName(const char* known, const wchar_t* name) {
  for (; *known != '\0'; ++known, ++name)
    if (static_cast<unsigned char>(*known) != static_cast<std::uint16_t>(*name)) return false;
  return *name == L'\0';
}

}  // namespace

const TypeNameTest* FindTypeName(const wchar_t* name) {
  if (name == nullptr || *name == L'\0') return nullptr;
  for (std::size_t slot = TypeNameHash(name) & g_typeNameSlotMask;; slot = (slot + 1) & g_typeNameSlotMask) {
    const std::uint16_t position = g_typeNameSlots[slot];
    if (position == kEmptyTypeNameSlot) return nullptr;
    if (SameName(g_typeNameChain[position].typeName, name)) return &g_typeNameChain[position];
  }
}

HRESULT CStaticWrappersManager::CreateWrapper(const wchar_t* typeName, void* instance, IDispatch** result) {
  const TypeNameTest* test = FindTypeName(typeName);
  if (test == nullptr || test->createExposer == nullptr) return E_NOINTERFACE;
  return test->createExposer(instance, this, result);
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
