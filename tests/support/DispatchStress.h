// Drivers that put exposers under load, as a busy host would: many threads
// calling one exposer or objects of their own, and random, often wrong,
// GetIDsOfNames and Invoke calls. They count what went wrong; the tests say
// what must hold.
#pragma once

#include <windows.h>
#include <oaidl.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <vector>

#include "host/ManagerHost.h"

namespace kwtest {

// The test helpers build on the host kit every host program uses.
using namespace kwhost;

// Runs `body(thread)` on `threads` threads at once, each in the
// multithreaded apartment, and waits for all of them.
void RunOnThreads(int threads, const std::function<void(int thread)>& body);

// `threads` threads each wrap a `T` of their own as `typeName` and make
// `rounds` calls of `round(object, instance, value)`, the value unique to the
// thread and round; the last reference must go at the end. Returns how many
// rounds went wrong.
template <class T>
int HammerOwnObjects(ManagerHost& host, const wchar_t* typeName, int threads, int rounds,
                     const std::function<bool(IDispatch*, T&, int)>& round) {
  std::atomic<int> wrong{0};
  RunOnThreads(threads, [&](int thread) {
    T own;
    IDispatch* mine = host.Wrap(typeName, &own);
    for (int r = 0; r < rounds && mine != nullptr; ++r)
      if (!round(mine, own, thread * 1000 + r)) ++wrong;
    if (mine == nullptr || mine->Release() != 0) ++wrong;
  });
  return wrong;
}

// One call a stress thread makes by name, and what its result must be.
struct Probe {
  const wchar_t* member;
  std::vector<VARIANT> args;
  std::function<bool(const Result&)> holds;
};

// `threads` threads each resolve and invoke every probe `rounds` times on
// `exposer` (and resolve one unknown name), releasing every result. Returns
// how many calls failed or gave a wrong result.
int HammerExposer(IDispatch* exposer, const std::vector<Probe>& probes, int threads, int rounds);

// Calls `visit(name, function)` for every function of every type information
// an exposer composes, in composition order.
void ForEachFunction(IDispatch* exposer, const std::function<void(const std::wstring&, const FUNCDESC&)>& visit);

// What a fuzzing run did and saw.
struct FuzzTally {
  int calls = 0;
  int succeeded = 0;
  int unexpected = 0;  // an HRESULT outside the ones dispatch may answer
};

// `calls` random GetIDsOfNames and Invoke calls on `exposers`: known names
// in any case, unknown and very long names, unknown DISPIDs, wrong argument
// counts and VARTYPEs, null DISPPARAMS, DISPATCH_PROPERTYGET. Only members
// whose parameters are all plain numbers are invoked (class and pointer
// arguments are trusted by design), and none named in `avoid` (substrings,
// such as "_DTOR_"). Deterministic for one `seed`.
FuzzTally FuzzExposers(const std::vector<IDispatch*>& exposers, int calls, std::uint32_t seed,
                       const std::vector<std::wstring>& avoid);

}  // namespace kwtest
