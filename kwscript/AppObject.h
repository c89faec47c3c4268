// The named item "app" that kwscript gives every script:
//   app.find(name)      the widget of that object name, as its most derived
//                       class the library knows; null when there is none
//   app.str(text)       a new QString object
//   app.text(object)    the text of a QString, QByteArray or QLatin1String object
//   app.isNull(value)   true for null, Nothing, empty or an object over nothing
//   app.processEvents() lets Qt handle pending events (clicks, repaints)
//   app.echo(...)       prints its arguments on one line
#pragma once

#include <windows.h>
#include <oaidl.h>

#include <QtCore/QString>

#include "host/HostSupport.h"
#include "kwscript/ScriptObject.h"

namespace kwscript {

// Lives as long as the run; the last reference does not delete it.
class CAppObject final : public kwhost::HostObject<IDispatch> {
 public:
  explicit CAppObject(ScriptContext* context) : HostObject(IID_IDispatch), m_context(context) {}

  STDMETHOD(GetTypeInfoCount)(UINT* count) override;
  STDMETHOD(GetTypeInfo)(UINT, LCID, ITypeInfo**) override { return E_NOTIMPL; }
  STDMETHOD(GetIDsOfNames)(REFIID iid, LPOLESTR* names, UINT count, LCID lcid, DISPID* ids) override;
  STDMETHOD(Invoke)
  (DISPID id, REFIID iid, LCID lcid, WORD flags, DISPPARAMS* params, VARIANT* result, EXCEPINFO* exception,
   UINT* argumentError) override;

  // The widget named `name` wrapped under the most derived class name the
  // library accepts, or null.
  IDispatch* Find(const QString& name);

 private:
  ScriptContext* m_context;
};

}  // namespace kwscript
