// The named item "app" that kwscript gives every script:
//   app.find(name)      the widget of that object name, as its most derived
//                       class the library knows; null when there is none
//   app.query(selector) the first object the selector matches, or null
//   app.queryAll(selector)  every match, as a list (count, item(i))
//   app.waitFor(selector, milliseconds)  lets the application run until a
//                       match appears; the match, or null when time runs out
//   app.activeModal(), app.activeWindow(), app.focusWidget()  or null
//   app.topLevels()     the top-level widgets, as a list
//   app.post(object, member, args...)  calls the member from the event loop
//                       and returns at once (for a call that opens a modal dialog)
//   app.click(widget [, x, y] [, options]), app.doubleClick(...)
//                       a user's click at the centre or at x, y of the widget;
//                       options: {button: "right", modifiers: "Shift+Ctrl"}
//                       or "button=right modifiers=Shift+Ctrl"
//   app.drag(from [, x, y], to [, x, y] [, options])  press, move, release
//   app.type(widget, text), app.key(widget, "Return" | "Ctrl+S" | ...)
//                       keys typed into the widget, after giving it the
//                       focus; each to the focus widget when it arrives
//   app.clickItem(view, row, column [, options])  a click on an item of a
//                       list, table or tree
//   app.menu(window | open menu, "File/Save As...")  the entry, chosen by clicks
//                       (each returns once its events are delivered, while a
//                       modal dialog they open is still open; InputEvents.h)
//   app.grab(widget, file)  saves what the widget shows, once pending paints
//                       and style animations are done (two pictures 50 ms
//                       apart agree), as an image (PNG for
//                       ".png"); a relative path is taken from the folder
//                       kwscript was started in; gives the full path
//   app.value(type, args...)  a new value of a value class ("QRect", 0, 0, 10, 10)
//                       made by its constructor that fits the arguments
//   app.str(text)       a new QString object
//   app.text(object)    the text of a QString, QByteArray or QLatin1String object
//   app.isNull(value)   true for null, Nothing, empty or an object over nothing
//   app.processEvents() lets Qt handle pending events (clicks, repaints)
//   app.echo(...)       prints its arguments on one line
// Every object comes wrapped under the most derived class name the library
// knows; selectors are described in ObjectQuery.h.
#pragma once

#include <windows.h>
#include <oaidl.h>

#include <QtCore/QObject>
#include <QtCore/QString>

#include "host/HostSupport.h"
#include "kwscript/ScriptDispatch.h"
#include "kwscript/ScriptObject.h"

namespace kwscript {

// Lives as long as the run; the last reference does not delete it.
class CAppObject final : public ScriptItem {
 public:
  explicit CAppObject(ScriptContext* context);
  ~CAppObject() override;

  STDMETHOD(GetIDsOfNames)(REFIID iid, LPOLESTR* names, UINT count, LCID lcid, DISPID* ids) override;
  STDMETHOD(Invoke)
  (DISPID id, REFIID iid, LCID lcid, WORD flags, DISPPARAMS* params, VARIANT* result, EXCEPINFO* exception,
   UINT* argumentError) override;

  // The widget named `name` wrapped under the most derived class name the
  // library accepts, or null.
  IDispatch* Find(const QString& name);

  // `object` wrapped under the most derived class name the library knows
  // (a new facade), or null.
  IDispatch* Wrap(QObject* object);

  // Posted calls still to be made or under way: the library must stay
  // loaded until none is left.
  int PendingCalls() const;

 private:
  HRESULT Query(const VARIANT* selector, bool all, int waitMs, VARIANT* result, EXCEPINFO* exception);
  HRESULT Post(DISPPARAMS* params, EXCEPINFO* exception);
  HRESULT Grab(DISPPARAMS* params, VARIANT* result, EXCEPINFO* exception);
  HRESULT Act(DISPID id, DISPPARAMS* params, EXCEPINFO* exception);

  ScriptContext* m_context;
  QObject* m_calls = nullptr;  // receives the posted calls on the GUI thread
};

}  // namespace kwscript
