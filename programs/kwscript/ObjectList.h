// A list of objects (or of other script values) for a script: list.count
// (also list.length) and list.item(i) from 0, usable from JScript and
// VBScript alike (JScript may also write list[i], VBScript list(i)). It
// holds one reference to each object.
#pragma once

#include <windows.h>
#include <oaidl.h>

#include <vector>

#include <QtCore/QString>

#include "kwscript/ScriptDispatch.h"

namespace kwscript {

class CObjectList final : public CountedDispatch {
 public:
  // A new list (one reference) taking over one reference to each object.
  static IDispatch* Make(std::vector<IDispatch*> objects);
  // A new list taking over the values (their objects' references included).
  static IDispatch* MakeOfValues(std::vector<VARIANT> values);
  // The values of a list of this host, or null for anything else.
  static const std::vector<VARIANT>* ValuesOf(IUnknown* object);

  STDMETHOD(GetIDsOfNames)(REFIID iid, LPOLESTR* names, UINT count, LCID lcid, DISPID* ids) override;
  STDMETHOD(Invoke)
  (DISPID id, REFIID iid, LCID lcid, WORD flags, DISPPARAMS* params, VARIANT* result, EXCEPINFO* exception,
   UINT* argumentError) override;

 private:
  explicit CObjectList(std::vector<VARIANT> values);
  ~CObjectList() override;

  std::vector<VARIANT> m_values;
  std::vector<QString> m_unknown;  // names asked for that a list does not have
};

}  // namespace kwscript
