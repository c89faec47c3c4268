// The module interface object handed out by GetModuleIntf: listener lists
// (ImxModuleIntf) and the factory of wrappers managers (IWrappersModule).
#pragma once

#include "com/ComSupport.h"
#include "com/InterfaceList.h"
#include "com/Interfaces.h"
#include "module/Module.h"

namespace BaseMX {

// Implements ImxModuleIntf for `T`: two independent lists of listeners,
// compared by pointer identity, guarded by the module critical section.
template <class T>
class ImxModuleIntfImpl : public ImxModuleIntf {
 public:
  STDMETHOD(AddPrimaryListener)(IUnknown* listener) override { return AddListener(m_primary, listener); }
  STDMETHOD(RemovePrimaryListener)(IUnknown* listener) override { return RemoveListener(m_primary, listener); }
  STDMETHOD(AddSecondaryListener)(IUnknown* listener) override { return AddListener(m_secondary, listener); }
  STDMETHOD(RemoveSecondaryListener)(IUnknown* listener) override { return RemoveListener(m_secondary, listener); }

  virtual ~ImxModuleIntfImpl() {
    m_secondary.RemoveAll();
    m_primary.RemoveAll();
  }

  // Tells every listener of one list that the library unloads, in order of
  // registration, from a copy so a listener may remove itself meanwhile.
  HRESULT NotifyPrimaryListeners() { return NotifyUnload(m_primary); }
  HRESULT NotifySecondaryListeners() { return NotifyUnload(m_secondary); }

 private:
  static HRESULT AddListener(kwatl::CInterfaceList& list, IUnknown* listener) {
    ModuleLockGuard guard;
    if (list.Find(listener) != nullptr) return E_FAIL;
    list.AddTail(listener);
    return S_OK;
  }

  static HRESULT RemoveListener(kwatl::CInterfaceList& list, IUnknown* listener) {
    ModuleLockGuard guard;
    if (kwatl::CInterfaceList::Node* node = list.Find(listener)) list.RemoveAt(node);
    return S_OK;
  }

  HRESULT NotifyUnload(kwatl::CInterfaceList& list) {
    ImxModuleIntf* module = static_cast<ImxModuleIntf*>(this);
    ModuleLockGuard guard;
    kwatl::CInterfaceList copy;
    for (auto* node = list.Head(); node != nullptr; node = node->next) copy.AddTail(node->item);
    BSTR folder = SysAllocString(GetModuleFolder());
    if (folder == nullptr) throw static_cast<HRESULT>(E_OUTOFMEMORY);
    for (auto* node = copy.Head(); node != nullptr; node = node->next) {
      // The listener is called through the slot after IUnknown's, whatever
      // interface it was registered with.
      static_cast<IModuleUnloadListener*>(node->item)->OnModuleUnload(folder, module);
    }
    SysFreeString(folder);
    return S_OK;
  }

  kwatl::CInterfaceList m_primary{10};
  kwatl::CInterfaceList m_secondary{10};
};

}  // namespace BaseMX

class CWrappersModuleIntf : public kwatl::CComObjectRootEx<kwatl::CComMultiThreadModel>,
                            public BaseMX::ImxModuleIntfImpl<CWrappersModuleIntf>,
                            public IWrappersModule {
 public:
  static const kwatl::InterfaceEntry* GetInterfaceMap();

  STDMETHOD(CreateWrappersManager)(IUnknown** manager) override;
};

using CWrappersModuleObject = kwatl::CComObject<CWrappersModuleIntf>;
