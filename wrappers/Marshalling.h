// Helpers of the generated method bodies: taking class-typed arguments from
// the exposers the host passes back, and turning results into out-values or
// new wrapped objects. The bodies never catch; every helper here cleans up
// on the way out and lets exceptions pass.
#pragma once

#include <objbase.h>
#include <oaidl.h>

#include <cstdint>
#include <new>
#include <type_traits>
#include <utility>

#include "managers/StaticWrappersManager.h"
#include "module/Interfaces.h"

namespace kwwrap {

// One class-typed argument: the IkwInstanceProxy of the object the host
// passed, held for the duration of the call.
class InstanceArgument {
 public:
  // Queries the argument for IkwInstanceProxy; the result of the query is
  // not looked at.
  explicit InstanceArgument(IDispatch* argument) {
    if (argument != nullptr) argument->QueryInterface(IID_IkwInstanceProxy, reinterpret_cast<void**>(&m_proxy));
  }
  InstanceArgument(const InstanceArgument&) = delete;
  InstanceArgument& operator=(const InstanceArgument&) = delete;
  ~InstanceArgument() {
    if (m_proxy != nullptr) m_proxy->Release();
  }

  // Asks the proxy for the raw instance. The host is trusted to pass
  // wrapped objects: a null argument, or one without IkwInstanceProxy,
  // faults here rather than reaching the callee as a null object.
  HRESULT Fetch() { return m_proxy->GetInstance(&m_instance); }

  // The raw instance taken as a `T` (no check of its class).
  template <class T>
  T* As() const {
    return static_cast<T*>(m_instance);
  }

 private:
  IkwInstanceProxy* m_proxy = nullptr;
  void* m_instance = nullptr;
};

// Stores a bool result as 1 or 0 (not the automation -1).
inline long BoolResult(bool value) { return value ? 1 : 0; }

// A scalar delivered through a pointer-sized result slot: the value,
// sign-extended to 64 bits, not its address.
template <class To, class Scalar>
To WidenedResult(Scalar value) {
  return reinterpret_cast<To>(static_cast<std::intptr_t>(value));
}

// The untyped instance pointer of a pointer result, as the manager takes it.
template <class T>
void* InstancePointer(T* pointer) {
  return const_cast<void*>(static_cast<const volatile void*>(pointer));
}

// A pointer result in the interface's spelling of it (const dropped, the
// pointee reinterpreted: `const char*` as `unsigned char*`).
template <class To, class From>
To PointerResult(From* pointer) {
  return reinterpret_cast<To>(InstancePointer(pointer));
}

// Value result: copies what `call` returns (a value or a reference) into a
// new heap object of class `T` and has the manager wrap it under
// `typeName`; returns the manager's HRESULT. Without memory, `call` is not
// made and the manager receives a null instance. The heap object belongs to
// the wrapper made for it and is never freed; if the call or the copy
// throws, the storage is freed and the exception passes on. A class that
// cannot be copied (an abstract one returned by reference) is handed over
// as the referenced object itself.
template <class T, class Call>
HRESULT WrapValueResult(CStaticWrappersManager* manager, const wchar_t* typeName, IDispatch** result, Call&& call) {
  if constexpr (!std::is_copy_constructible<T>::value) {
    return manager->CreateWrapper(typeName, InstancePointer(&call()), result);
  } else {
    void* storage = ::operator new(sizeof(T), std::nothrow);
    if (storage != nullptr) {
      try {
        decltype(auto) value = call();
        new (storage) T(value);
      } catch (...) {
        ::operator delete(storage);
        throw;
      }
    }
    return manager->CreateWrapper(typeName, storage, result);
  }
}

// Whether objects of class T can be constructed (in place) at all.
template <class T>
struct IsConcrete : std::bool_constant<!std::is_abstract<T>::value> {};

// Runs `body(instance)` where `Available<T>` holds, and answers E_NOTIMPL
// where it does not: a member the compiler declares for a class but cannot
// define (the copy assignment of a class whose base forbids copying). `body`
// is a generic lambda, so its text is only compiled where it is called.
// Built with KW_WRAPPERS_REQUIRE_AVAILABLE (the compile check against the
// real headers), a member that could only answer E_NOTIMPL is an error.
template <template <class> class Available, class T, class Body>
HRESULT CallIfAvailable(T* instance, Body&& body) {
  if constexpr (Available<T>::value) {
    return body(instance);
  } else {
#ifdef KW_WRAPPERS_REQUIRE_AVAILABLE
    static_assert(Available<T>::value, "a generated member that can never run");
#endif
    return E_NOTIMPL;
  }
}

}  // namespace kwwrap
