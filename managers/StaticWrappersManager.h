// Wrappers managers: turn a raw instance pointer and its type name into an
// automation object, optionally through a host-installed dispatch sink.
#pragma once

#include "managers/TypeNameChain.h"
#include "com/ComSupport.h"
#include "com/Interfaces.h"

// The chain of type-name tests. Wrappers and exposers keep a borrowed pointer
// to this part of their manager and wrap returned values through the virtual
// CreateWrapper, which a manager with a sink overrides.
class CStaticWrappersManager {
 public:
  virtual ~CStaticWrappersManager() = default;
  // Exact, case-sensitive comparison with the known names (through their
  // index: constant time, no allocation); a match creates that type's
  // exposer bound to `instance`. Unknown, empty or null names give
  // E_NOINTERFACE with `result` untouched.
  virtual HRESULT CreateWrapper(const wchar_t* typeName, void* instance, IDispatch** result);
};

// The manager part that hands library-internal requests to the host's sink.
class CSinkAwareWrappersManager : public CStaticWrappersManager {
 public:
  ~CSinkAwareWrappersManager() override;
  // With a sink installed, the request goes to its CreateDispatch (three
  // VARIANT_TRUE flags, null second argument); otherwise to the chain.
  HRESULT CreateWrapper(const wchar_t* typeName, void* instance, IDispatch** result) override;

 protected:
  void ReplaceSink(IUnknown* sink);

 private:
  IUnknown* m_sink = nullptr;
};

// The IWrappersManager face: the host's own requests run the chain directly.
template <class T>
class CHostWrappersManagerFace : public IWrappersManager {
 public:
  STDMETHOD(CreateWrapper)(const wchar_t* typeName, void* instance, IDispatch** result) final {
    return static_cast<T*>(this)->CStaticWrappersManager::CreateWrapper(typeName, instance, result);
  }
};

class CkwQtStaticWrappersManager : public kwatl::CComObjectRootEx<kwatl::CComMultiThreadModel>,
                                   public IkwQtDispatchNotificator,
                                   public CHostWrappersManagerFace<CkwQtStaticWrappersManager>,
                                   public CSinkAwareWrappersManager {
 public:
  static const kwatl::InterfaceEntry* GetInterfaceMap();

  // Replaces the installed sink (a null sink leaves none). Always S_OK.
  STDMETHOD(SetDispatchSink)(IUnknown* sink) override;
};

using CWrappersManagerObject = kwatl::CComObject<CkwQtStaticWrappersManager>;
