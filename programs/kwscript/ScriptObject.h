// What a script receives for every Qt object: a thin IDispatch in front of
// the library's exposer. It answers the library's prefixed member names
// ("QLineEdit_setText") and plain ones ("setText", resolved among the
// overloads as PlainNames.h says), and for a QObject its Qt properties as
// plain values ("text", "checked"; Properties.h). From the member table it turns script values into
// what the member declares (a string into a new QString object or a byte
// string, one of its own objects into the exposer behind it) and back (a
// bool into a script boolean, a null object pointer into null/Nothing, a new
// object into another such facade), and it refuses anything else where an
// object is expected, before the call reaches the library.
#pragma once

#include <windows.h>
#include <oaidl.h>

#include <map>
#include <set>
#include <string>
#include <vector>

#include <QtCore/QObject>
#include <QtCore/QPointer>
#include <QtCore/QString>

#include "automation/ItemGuard.h"
#include "kwscript/MemberTable.h"
#include "kwscript/ScriptDispatch.h"
#include "com/Interfaces.h"

namespace kwscript {

using kwauto::ItemGuard;

// What every facade of one run shares: the wrappers manager (for the
// QString objects made from script strings) and the live facades (all made
// and released on the GUI thread).
struct ScriptContext {
  IWrappersManager* manager = nullptr;
  QString folder;  // where relative paths of the script lead: kwscript's own folder
  std::set<IDispatch*> facades;
};

// An exposer for `instance` under `typeName` from the library or the second
// wrappers set (MoreWrappers.h), or the library's failure.
HRESULT MakeExposer(ScriptContext* context, const wchar_t* typeName, void* instance, IDispatch** exposer);

// `object` as a new facade under the most derived class of its own that
// the library knows (its meta-object's chain), or null.
IDispatch* WrapObject(QObject* object, ScriptContext* context);

// A new value of `type` ("QRect") made by the constructor that fits the
// script's arguments `params`, as a facade the script owns.
HRESULT MakeValue(ScriptContext* context, const QString& type, const DISPPARAMS& params, VARIANT* result,
                  EXCEPINFO* exception);

// Cuts every remote client off the facades of `context` (their next call
// answers RPC_E_DISCONNECTED), which releases the references their stubs
// held. Called before the library behind the facades is unloaded.
void DisconnectFacades(ScriptContext* context);

// A new BSTR with the characters of `text`.
BSTR NewBstr(const QString& text);

// Makes `result` (when there is one) the script string `text`.
void ReturnText(VARIANT* result, const QString& text);

// A failure a script can catch, with its description (e.message in JScript,
// Err.Description in VBScript): fills `exception` and gives
// DISP_E_EXCEPTION, or `code` when there is no EXCEPINFO to fill.
HRESULT Refuse(EXCEPINFO* exception, HRESULT code, const QString& description);

struct OverloadGroup;

class CScriptObject final : public CountedDispatch {
 public:
  // A new facade (one reference) over `exposer`, which it keeps a
  // reference to; null for a null exposer or one standing for no instance.
  // `object` is the QObject behind it when the caller knows it (its class's
  // meta-object tells otherwise): its properties are then answered too.
  // `made` says the object is the script's own (a value it made or a
  // member returned by value), which it may destroy; the application owns
  // every other.
  // `destroy` frees a copy the script made when the facade goes (by default
  // its class's own; a QObject is never freed).
  static IDispatch* Wrap(IDispatch* exposer, ScriptContext* context, QObject* object = nullptr, bool made = false,
                         void (*destroy)(void*) = nullptr);
  // The exposer behind a facade of this host, or null for anything else.
  static IDispatch* ExposerOf(IUnknown* object);
  // The QObject behind a facade of this host, or null (anything else, an
  // object of a class without a meta-object, or one destroyed).
  static QObject* ObjectOf(IUnknown* object);

  // Whether what the facade stands for is gone: destroyed by the
  // application (a QObject) or by the script's destructor call (a value);
  // `why` then says which object it was.
  bool Gone(QString* why) const;
  // The facade `object` is (no reference added), or null for anything else.
  static CScriptObject* FacadeOf(IUnknown* object);

  // The instance the facade stands for.
  void* instance() const { return m_instance; }
  // Its own (most derived) class as the library names it ("QString"), or
  // "the object" when the member table does not know it.
  QString ClassName() const;
  // Whether its wrapper composes the class `className` ("QSize").
  bool Composes(const QString& className) const;
  // Whether it is a `typeName` ("QWidget"): its own class, a base of it,
  // or a class its QObject inherits.
  bool IsA(const char* typeName) const;
  // Gives up the script's ownership of a copy it made: passed to Qt as a
  // pointer (QTableWidget::setItem, QLayout::addItem), it may be Qt's now,
  // and is no longer freed with the facade.
  void Disown() { m_free = nullptr; }
  // The exposer over the part of the object that is a `typeName` (a base
  // may lie elsewhere in the object than the object itself); null when
  // none can be made.
  IDispatch* ExposerFor(const char* typeName);
  // The text of a QString, QByteArray or QLatin1String; false for another class.
  bool TextOf(QString* text) const;

  STDMETHOD(GetTypeInfoCount)(UINT* count) override;
  STDMETHOD(GetTypeInfo)(UINT index, LCID lcid, ITypeInfo** info) override;
  STDMETHOD(GetIDsOfNames)(REFIID iid, LPOLESTR* names, UINT count, LCID lcid, DISPID* ids) override;
  STDMETHOD(Invoke)
  (DISPID id, REFIID iid, LCID lcid, WORD flags, DISPPARAMS* params, VARIANT* result, EXCEPINFO* exception,
   UINT* argumentError) override;

 private:
  CScriptObject(IDispatch* exposer, void* instance, ScriptContext* context, QObject* object, bool made,
                void (*destroy)(void*));
  ~CScriptObject() override;

  // A member resolved to the exposer that answers it.
  struct Route {
    const MemberInfo* member;
    IDispatch* exposer;
    DISPID id;  // the exposer's
  };

  // Adds the bases the library's composition list leaves out, each
  // through an exposer of its own over its part of the object, so that
  // the facade answers the members of the whole class chain.
  void ComposeWholeClass();
  // A base of its class and where that base's part of the object is.
  struct Base {
    const char* typeName;
    void* part;
    IDispatch* exposer = nullptr;  // made once asked for; null when no set knows the type
    bool asked = false;
  };
  // Every public base of its class, nearest first, as far as the tables
  // of both sets reach; made once.
  const std::vector<Base>& Chain() const;
  int ChainIndex(const char* typeName) const;
  // A new exposer under the type name of base `index` of the chain, over
  // that base's part of the object; made once, null when neither set knows
  // the type.
  IDispatch* BaseExposer(std::size_t index);
  const MemberInfo* FindMember(const wchar_t* name, IDispatch** exposer) const;
  IDispatch* ExposerOfMember(const MemberInfo* member) const;
  // The route of `member` as `name` asks for it; -1 when the exposer does not know the name.
  int RouteTo(const MemberInfo* member, IDispatch* exposer, const wchar_t* name);
  HRESULT CallMember(const Route& route, WORD flags, DISPPARAMS* params, bool plain, VARIANT* result,
                     EXCEPINFO* exception, UINT* argumentError);
  // Whether `member` is a setParent that would make the object its own
  // ancestor; `why` then says so.
  bool MakesCycle(const MemberInfo& member, const DISPPARAMS& params, QString* why) const;
  // Whether `member` is an overrideWindowFlags that would leave a widget
  // without a parent no window either; `why` then says so.
  bool MakesOrphan(const MemberInfo& member, const DISPPARAMS& params, QString* why) const;
  HRESULT InvokePlain(std::size_t entry, WORD flags, DISPPARAMS* params, VARIANT* result, EXCEPINFO* exception,
                      UINT* argumentError);

  // A plain name the script asked for: its overloads, its property, and
  // the exposer's DISPID of each overload once called.
  struct PlainName {
    QString name;
    const OverloadGroup* overloads;
    int property;
    std::map<const MemberInfo*, int> routes;
  };

  IDispatch* m_exposer;
  void* m_instance;
  ScriptContext* m_context;
  // Composed interfaces, bases first and its own class last, and the
  // exposer answering each.
  std::vector<const InterfaceInfo*> m_interfaces;
  std::vector<IDispatch*> m_answering;
  const InterfaceInfo* m_own = nullptr;  // its own class's
  std::vector<IDispatch*> m_extra;  // exposers over the bases added
  mutable std::vector<Base> m_chain;
  mutable bool m_chained = false;
  bool m_whole = false;
  std::vector<Route> m_routes;  // DISPID kRouteBase + index
  // Every name asked for, in any case, as names are matched.
  struct NoCaseLess {
    bool operator()(const std::wstring& a, const std::wstring& b) const { return _wcsicmp(a.c_str(), b.c_str()) < 0; }
  };
  std::map<std::wstring, DISPID, NoCaseLess> m_ids;
  QObject* m_object;
  // Watches m_object: null once the application destroyed it. Its class and
  // name, taken when the facade was made, say which object it was.
  QPointer<QObject> m_guard;
  QString m_objectName;
  ItemGuard m_item;  // for an item of a list, table or tree widget
  bool m_made;
  bool m_destroyed = false;
  void (*m_free)(void*);  // for a copy the script made: frees it with the facade
  std::vector<PlainName> m_plain;  // DISPID kPlainBase + index
};

}  // namespace kwscript
