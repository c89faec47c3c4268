// Generated bodies that could never do their call must not build. The test
// build_refuses_bodies_that_never_run compiles this file once per KW_CASE:
// case 0 must compile (the includes and flags are right), every other case
// must stop with its message.
#include <type_traits>

#include "wrappers/Marshalling.h"

// A class that can be neither copied nor assigned, like a QObject.
struct Uncopyable {
  Uncopyable() = default;
  Uncopyable(const Uncopyable&) = delete;
  Uncopyable& operator=(const Uncopyable&) = delete;
};

HRESULT Body(Uncopyable* object, CStaticWrappersManager* manager, IDispatch** result) {
#if KW_CASE == 1  // a copy assignment the class does not have
  return kwwrap::CallIfAvailable<std::is_copy_assignable>(object, [&](auto* target) -> HRESULT {
    *target = *target;
    return S_OK;
  });
#elif KW_CASE == 2  // a value result that would have to be the object itself
  return kwwrap::WrapValueResult<Uncopyable>(manager, L"Uncopyable", result,
                                             [&]() -> decltype(auto) { return *object; });
#else
  return kwwrap::CallIfAvailable<std::is_destructible>(object, [&](auto* target) -> HRESULT {
    target->~Uncopyable();
    return S_OK;
  });
#endif
}
