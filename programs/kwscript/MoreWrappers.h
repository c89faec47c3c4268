// kwscript's second wrappers set: kwQtMoreWrappers.dll, loaded beside
// kwQtWrappers.dll, wraps the public Qt classes the library leaves out
// (QObject, the item models, QPlainTextEdit, QGraphicsView...).
//
// While it is loaded, one dispatch sink sits on both managers: a wrapping
// request from inside either DLL (a member's result, by its declared type
// name) is answered by whichever manager knows the name, the library's
// first. So QAbstractItemView::model() (a library member) gives a model
// object, and QObject::parent() (a second-set member) gives a QWidget.
#pragma once

#include <windows.h>
#include <oaidl.h>

#include <memory>

#include "com/Interfaces.h"
#include "host/ManagerHost.h"

namespace kwscript {

class MoreWrappers {
 public:
  // Loads kwQtMoreWrappers.dll from the folder of `library`'s DLL and
  // installs the sink on both managers. Without the DLL, or without a
  // manager from it, nothing is installed and the library works alone.
  explicit MoreWrappers(kwhost::ManagerHost& library);
  ~MoreWrappers();
  MoreWrappers(const MoreWrappers&) = delete;
  MoreWrappers& operator=(const MoreWrappers&) = delete;

  bool ready() const { return m_more != nullptr && m_more->ready(); }
  IWrappersManager* manager() const { return ready() ? m_more->manager() : nullptr; }
  // A manager of kwscript's own that answers as CreateExposer does (the
  // library's manager alone once the second set is unloaded); it lives as
  // long as this object.
  IWrappersManager* either() const;

  // Takes the sink off both managers, releases the second manager and
  // unloads its DLL. Call it before the library is unloaded.
  void Unload();

  class Sink;
  class Either;

 private:
  kwhost::ManagerHost& m_library;
  std::unique_ptr<kwhost::ManagerHost> m_more;
  std::unique_ptr<Sink> m_sink;
  std::unique_ptr<Either> m_either;
};

// The exposer of `instance` under `typeName` from the library's manager
// when it knows the name, else from the loaded second set's: S_OK with a
// new reference in `result`, or the library's answer (E_NOINTERFACE for an
// unknown name) when neither makes one.
HRESULT CreateExposer(IWrappersManager* library, const wchar_t* typeName, void* instance, IDispatch** result);

}  // namespace kwscript
