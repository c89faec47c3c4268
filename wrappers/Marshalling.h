// Helpers of the generated method bodies: taking class-typed arguments from
// the exposers the host passes back, and turning results into out-values or
// new wrapped objects. The bodies never catch; every helper here cleans up
// on the way out and lets exceptions pass.
#pragma once

#include <objbase.h>
#include <oaidl.h>

#include <cstdint>
#include <cstring>
#include <new>
#include <type_traits>
#include <utility>

#include "managers/StaticWrappersManager.h"
#include "com/Interfaces.h"

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

// The value a scalar reference result refers to, delivered through the
// pointer-sized result slot `Slot` (the address itself is never handed out).
// A bool, enumeration or integer is sign-extended to 64 bits; a float or
// double keeps its own bytes at the start of the slot, the rest zero.
template <class Slot, class Scalar>
Slot ReferencedValueResult(Scalar value) {
  static_assert(sizeof(Slot) == sizeof(std::intptr_t), "a pointer-sized slot");
  if constexpr (std::is_floating_point<Scalar>::value) {
    Slot slot = nullptr;
    std::memcpy(&slot, &value, sizeof value);
    return slot;
  } else {
    return reinterpret_cast<Slot>(static_cast<std::intptr_t>(value));
  }
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
// throws, the storage is freed and the exception passes on. The layout drops
// members whose result class cannot be copied (an abstract one returned by
// reference), so the host never receives a second wrapper of an object.
template <class T, class Call>
HRESULT WrapValueResult(CStaticWrappersManager* manager, const wchar_t* typeName, IDispatch** result, Call&& call) {
  static_assert(std::is_copy_constructible<T>::value, "a value result is a copy");
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

// Detaches the bound object from data it shares with copies, where its class
// has a detach() (Qt's implicitly shared containers, strings, images...):
// what a const member that gives access to the data does first, since the
// body acts on the bound object as on a non-const one.
template <class T, class = void>
struct HasDetach : std::false_type {};
template <class T>
struct HasDetach<T, std::void_t<decltype(std::declval<T&>().detach())>> : std::true_type {};

template <class T>
void DetachShared(T* instance) {
  if constexpr (HasDetach<T>::value) instance->detach();
}

// Whether objects of class T can be constructed (in place) at all.
template <class T>
struct IsConcrete : std::bool_constant<!std::is_abstract<T>::value> {};

// Runs `body(instance)` for a member that not every class can have (a
// member the compiler declares on its own, a constructor run in place);
// `Available<T>` tells whether this class has it. `body` is a generic
// lambda, so its text is compiled only where the member exists; where it
// does not, the build stops here: no body may answer a call it cannot make.
template <template <class> class Available, class T, class Body>
HRESULT CallIfAvailable(T* instance, Body&& body) {
  static_assert(Available<T>::value, "a generated member that can never run");
  return body(instance);
}

}  // namespace kwwrap
