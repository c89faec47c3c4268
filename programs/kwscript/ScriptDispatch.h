// What kwscript's own IDispatch objects share: a reference count that
// deletes the object at zero, QueryInterface for IUnknown, IDispatch and one
// interface of the class's own, no type information; and the DISPIDs of a
// fixed list of member names.
#pragma once

#include <windows.h>
#include <oaidl.h>

#include <cstddef>

#include "host/HostSupport.h"

namespace kwscript {

class CountedDispatch : public IDispatch {
 public:
  STDMETHOD(QueryInterface)(REFIID iid, void** ppv) override {
    if (ppv == nullptr) return E_POINTER;
    if (IsEqualIID(iid, IID_IUnknown) || IsEqualIID(iid, IID_IDispatch) || IsEqualIID(iid, m_own)) {
      *ppv = static_cast<IDispatch*>(this);
      AddRef();
      return S_OK;
    }
    *ppv = nullptr;
    return E_NOINTERFACE;
  }
  STDMETHOD_(ULONG, AddRef)() override { return InterlockedIncrement(&m_refs); }
  STDMETHOD_(ULONG, Release)() override {
    const ULONG refs = InterlockedDecrement(&m_refs);
    if (refs == 0) delete this;
    return refs;
  }
  STDMETHOD(GetTypeInfoCount)(UINT* count) override {
    if (count == nullptr) return E_POINTER;
    *count = 0;
    return S_OK;
  }
  STDMETHOD(GetTypeInfo)(UINT, LCID, ITypeInfo**) override { return DISP_E_BADINDEX; }

 protected:
  // `own`: the one interface of the class's own it also answers.
  explicit CountedDispatch(const IID& own = IID_IDispatch) : m_own(own) {}
  virtual ~CountedDispatch() = default;

 private:
  IID m_own;
  volatile LONG m_refs = 1;
};

// A named item the run hands the script engine ("app" and kwscript's own
// helpers): the run owns it, so the engine's last reference does not delete
// it; no type information.
class ScriptItem : public kwhost::HostObject<IDispatch> {
 public:
  STDMETHOD(GetTypeInfoCount)(UINT* count) override {
    if (count == nullptr) return E_POINTER;
    *count = 0;
    return S_OK;
  }
  STDMETHOD(GetTypeInfo)(UINT, LCID, ITypeInfo**) override { return E_NOTIMPL; }

 protected:
  ScriptItem() : HostObject(IID_IDispatch) {}
};

// GetIDsOfNames for an object whose members are `names` (any case): DISPID
// 1 + the name's index, DISP_E_UNKNOWNNAME for another name or for named
// arguments.
inline HRESULT IdsOfFixedNames(const wchar_t* const* names, std::size_t count, LPOLESTR* asked, UINT askedCount,
                               DISPID* ids) {
  if (asked == nullptr || ids == nullptr || askedCount == 0) return E_INVALIDARG;
  for (UINT i = 0; i < askedCount; ++i) ids[i] = DISPID_UNKNOWN;
  for (std::size_t i = 0; i < count; ++i)
    if (lstrcmpiW(asked[0], names[i]) == 0) ids[0] = static_cast<DISPID>(i + 1);
  return ids[0] == DISPID_UNKNOWN || askedCount > 1 ? DISP_E_UNKNOWNNAME : S_OK;
}

}  // namespace kwscript
