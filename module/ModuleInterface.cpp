#include "module/ModuleInterface.h"

#include "managers/StaticWrappersManager.h"

const kwatl::InterfaceEntry* CWrappersModuleIntf::GetInterfaceMap() {
  static const kwatl::InterfaceEntry map[] = {
      kwatl::FaceEntry<CWrappersModuleIntf, ImxModuleIntf>(IID_ImxModuleIntf),
      kwatl::FaceEntry<CWrappersModuleIntf, IWrappersModule>(IID_IWrappersModule),
      {nullptr, nullptr},
  };
  return map;
}

HRESULT CWrappersModuleIntf::CreateWrappersManager(IUnknown** manager) {
  CWrappersManagerObject* created = nullptr;
  HRESULT hr = CWrappersManagerObject::CreateInstance(&created);
  if (FAILED(hr)) return hr;
  // A null `manager` fails here with E_POINTER and leaves the new object
  // at reference count 0, unowned.
  return created->QueryInterface(IID_IUnknown, reinterpret_cast<void**>(manager));
}
