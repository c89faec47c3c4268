// A list of objects for a script: list.count (also list.length) and
// list.item(i) from 0, usable from JScript and VBScript alike (VBScript may
// also write list(i)). It holds one reference to each object.
#pragma once

#include <windows.h>
#include <oaidl.h>

#include <vector>

namespace kwscript {

class CObjectList final : public IDispatch {
 public:
  // A new list (one reference) taking over one reference to each object.
  static IDispatch* Make(std::vector<IDispatch*> objects);

  STDMETHOD(QueryInterface)(REFIID iid, void** ppv) override;
  STDMETHOD_(ULONG, AddRef)() override;
  STDMETHOD_(ULONG, Release)() override;
  STDMETHOD(GetTypeInfoCount)(UINT* count) override;
  STDMETHOD(GetTypeInfo)(UINT, LCID, ITypeInfo**) override { return DISP_E_BADINDEX; }
  STDMETHOD(GetIDsOfNames)(REFIID iid, LPOLESTR* names, UINT count, LCID lcid, DISPID* ids) override;
  STDMETHOD(Invoke)
  (DISPID id, REFIID iid, LCID lcid, WORD flags, DISPPARAMS* params, VARIANT* result, EXCEPINFO* exception,
   UINT* argumentError) override;

 private:
  explicit CObjectList(std::vector<IDispatch*> objects) : m_objects(std::move(objects)) {}
  ~CObjectList();

  volatile LONG m_refs = 1;
  std::vector<IDispatch*> m_objects;
};

}  // namespace kwscript
