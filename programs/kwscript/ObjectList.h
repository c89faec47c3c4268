// A list of objects for a script: list.count (also list.length) and
// list.item(i) from 0, usable from JScript and VBScript alike (VBScript may
// also write list(i)). It holds one reference to each object.
#pragma once

#include <windows.h>
#include <oaidl.h>

#include <vector>

#include "kwscript/ScriptDispatch.h"

namespace kwscript {

class CObjectList final : public CountedDispatch {
 public:
  // A new list (one reference) taking over one reference to each object.
  static IDispatch* Make(std::vector<IDispatch*> objects);

  STDMETHOD(GetIDsOfNames)(REFIID iid, LPOLESTR* names, UINT count, LCID lcid, DISPID* ids) override;
  STDMETHOD(Invoke)
  (DISPID id, REFIID iid, LCID lcid, WORD flags, DISPPARAMS* params, VARIANT* result, EXCEPINFO* exception,
   UINT* argumentError) override;

 private:
  explicit CObjectList(std::vector<IDispatch*> objects) : m_objects(std::move(objects)) {}
  ~CObjectList() override;

  std::vector<IDispatch*> m_objects;
};

}  // namespace kwscript
