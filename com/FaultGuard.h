// Runs a call that may touch dead memory (a released object's interface
// table) and survives a hardware fault inside it.
#pragma once

namespace kwatl {

// Runs `call(argument)`. Returns false when an access violation or another
// hardware fault was raised inside it; the call is then abandoned where it
// faulted and this function returns normally. C++ exceptions are not caught.
bool RunFaultGuarded(void (*call)(void* argument), void* argument);

// Convenience form for a callable.
template <class Call>
bool CallFaultGuarded(Call&& call) {
  return RunFaultGuarded([](void* target) { (*static_cast<Call*>(target))(); }, &call);
}

}  // namespace kwatl
