// Drives the runtime fixture DLL as a host would: loads it, makes a wrappers
// manager, asks it for exposers and calls members by name.
#pragma once

#include <windows.h>
#include <oaidl.h>

#include <string>

#include "FixtureObject.h"
#include "FixtureTypes.h"
#include "HostSupport.h"

namespace fxtest {

constexpr const wchar_t kFixtureDll[] = L"kwFxWrappers.dll";
constexpr DISPID kIdSetValueOrScale = 1;  // FxBase_setValue / FxDerived_scale
constexpr DISPID kIdLevelOrTouch = 7;     // propget FxBase_level / method FxDerived_touch

// The fixture's loaded DLL with one wrappers manager.
class FixtureHost {
 public:
  FixtureHost();
  ~FixtureHost();
  FixtureHost(const FixtureHost&) = delete;
  FixtureHost& operator=(const FixtureHost&) = delete;

  bool ready() const { return manager_ != nullptr; }
  IWrappersManager* manager() const { return manager_; }
  IkwQtDispatchNotificator* notificator() const { return notificator_; }

  // The host's own CreateWrapper; null on failure (the HRESULT in `hr`).
  IDispatch* Wrap(const wchar_t* typeName, void* instance, HRESULT* hr = nullptr);

  // Releases the manager and unloads the DLL. Objects the test still holds
  // are then left to the library's unload.
  void Unload();

 private:
  kwtest::LoadedLibrary library_;
  IWrappersManager* manager_ = nullptr;
  IkwQtDispatchNotificator* notificator_ = nullptr;
};

// GetIDsOfNames for one name on `object`.
HRESULT IdOf(IDispatch* object, const wchar_t* name, DISPID* id);

// Invoke with the given arguments (in natural order; reversed for DISPPARAMS).
HRESULT InvokeWith(IDispatch* object, DISPID id, WORD flags, std::initializer_list<int> args,
                   VARIANT* result = nullptr, UINT* argumentError = nullptr);

// Resolves `name` and invokes it as a method.
HRESULT Call(IDispatch* object, const wchar_t* name, std::initializer_list<int> args, VARIANT* result = nullptr);

// The instance an exposer stands for, through IkwInstanceProxy.
void* InstanceOf(IUnknown* exposer);

// Reference count of an object, as AddRef/Release report it.
ULONG Refs(IUnknown* object);

}  // namespace fxtest
