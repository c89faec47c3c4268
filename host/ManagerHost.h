// A host's view of a loaded wrappers DLL: one wrappers manager made through
// the module interface, and calls on automation objects by member name.
#pragma once

#include <windows.h>
#include <oaidl.h>

#include <initializer_list>
#include <vector>

#include "host/HostSupport.h"

namespace kwhost {

// The loaded DLL with one wrappers manager.
class ManagerHost {
 public:
  explicit ManagerHost(const wchar_t* dllName);
  ~ManagerHost();
  ManagerHost(const ManagerHost&) = delete;
  ManagerHost& operator=(const ManagerHost&) = delete;

  bool ready() const { return manager_ != nullptr; }
  IWrappersManager* manager() const { return manager_; }
  IkwQtDispatchNotificator* notificator() const { return notificator_; }

  // The host's own CreateWrapper; null on failure (the HRESULT in `hr`).
  IDispatch* Wrap(const wchar_t* typeName, void* instance, HRESULT* hr = nullptr);

  // Releases the manager and unloads the DLL. Objects the test still holds
  // are then left to the library's unload.
  void Unload();

 private:
  LoadedLibrary library_;
  IWrappersManager* manager_ = nullptr;
  IkwQtDispatchNotificator* notificator_ = nullptr;
};

// VARIANT arguments as a host builds them (none owns anything).
VARIANT I4(int value);
VARIANT I8(long long value);
VARIANT R4(float value);
VARIANT R8(double value);
VARIANT UI1(unsigned char value);
VARIANT UI2(unsigned short value);
VARIANT Object(IDispatch* object);
VARIANT LongRef(LONG* location);      // [in, out] long* (bool* and int*)
VARIANT BytesRef(const char* bytes);  // [in, out] unsigned char* (byte strings)

// GetIDsOfNames for one name on `object`.
HRESULT IdOf(IDispatch* object, const wchar_t* name, DISPID* id);

// Invoke with the given arguments, in natural order (reversed for
// DISPPARAMS). The arguments stay the caller's: nothing is cleared. A member
// that fails makes Invoke answer DISP_E_EXCEPTION; its own HRESULT is then
// stored in `exceptionCode` (0 otherwise).
HRESULT InvokeWithVariants(IDispatch* object, DISPID id, WORD flags, std::initializer_list<VARIANT> args,
                           VARIANT* result = nullptr, SCODE* exceptionCode = nullptr);

// Invoke with 32-bit integer arguments.
HRESULT InvokeWith(IDispatch* object, DISPID id, WORD flags, std::initializer_list<int> args, VARIANT* result = nullptr,
                   UINT* argumentError = nullptr);

// Resolves `name` and invokes it as a method with integer arguments.
HRESULT Call(IDispatch* object, const wchar_t* name, std::initializer_list<int> args, VARIANT* result = nullptr);

// Resolves `name` on `object` and invokes it as a method. Returns what
// Invoke returns; a failing member shows as DISP_E_EXCEPTION with its own
// HRESULT in `memberResult`.
HRESULT CallByName(IDispatch* object, const wchar_t* name, std::initializer_list<VARIANT> args,
                   VARIANT* result = nullptr, SCODE* memberResult = nullptr);
HRESULT CallByName(IDispatch* object, const wchar_t* name, const std::vector<VARIANT>& args, VARIANT* result = nullptr,
                   SCODE* memberResult = nullptr);

// Calls a member taking (format, va_list), such as a vsprintf, with the
// argument list of this call: the va_list travels as the pointer it is.
HRESULT CallWithArgumentList(IDispatch* object, const wchar_t* member, const char* format, ...);

// A call's result, cleared on destruction.
struct Result {
  VARIANT value;
  Result() { VariantInit(&value); }
  ~Result() { VariantClear(&value); }
  Result(Result&& other) noexcept : value(other.value) { VariantInit(&other.value); }
  Result(const Result&) = delete;
  Result& operator=(const Result&) = delete;
  // The returned object (VT_DISPATCH), or null; the reference stays here.
  IDispatch* object() const { return V_VT(&value) == VT_DISPATCH ? V_DISPATCH(&value) : nullptr; }
};

// The instance an exposer stands for, through IkwInstanceProxy.
void* InstanceOf(IUnknown* exposer);

}  // namespace kwhost
