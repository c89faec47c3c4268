#include "BenchSections.h"

#include <atomic>
#include <cstdio>
#include <thread>

#include "BenchTiming.h"
#include "host/ManagerHost.h"

namespace kwbench {
namespace {

// The names here are ASCII.
std::string Narrow(const wchar_t* text) { return std::string(text, text + wcslen(text)); }

// Invokes `id` on `object` as a method without arguments. The result goes
// to `kept` (the caller clears it) or is cleared.
HRESULT CallId(IDispatch* object, DISPID id, VARIANT* kept = nullptr) {
  DISPPARAMS none{nullptr, nullptr, 0, 0};
  VARIANT result;
  VariantInit(&result);
  HRESULT hr = object->Invoke(id, IID_NULL, LOCALE_USER_DEFAULT, DISPATCH_METHOD, &none, &result, nullptr, nullptr);
  if (kept != nullptr)
    *kept = result;
  else
    VariantClear(&result);
  return hr;
}

bool Check(bool ok, const char* what) {
  if (!ok) std::printf("  FAILED: %s\n", what);
  return ok;
}

// Bytes in use (data and overhead of busy blocks) in all the process's heaps.
SIZE_T HeapBytesInUse() {
  std::vector<HANDLE> heaps(GetProcessHeaps(0, nullptr) + 16);
  heaps.resize(GetProcessHeaps(static_cast<DWORD>(heaps.size()), heaps.data()));
  SIZE_T total = 0;
  for (HANDLE heap : heaps) {
    if (!HeapLock(heap)) continue;
    PROCESS_HEAP_ENTRY entry{};
    while (HeapWalk(heap, &entry))
      if ((entry.wFlags & PROCESS_HEAP_ENTRY_BUSY) != 0) total += entry.cbData + entry.cbOverhead;
    HeapUnlock(heap);
  }
  return total;
}

bool InvokeSection(const Subject& s, IDispatch* exposer) {
  Section("1. Invoke: the exposer against ITypeInfo::Invoke on the same type information");
  DISPID id = DISPID_UNKNOWN;
  ITypeInfo* info = nullptr;
  if (!Check(SUCCEEDED(kwhost::IdOf(exposer, s.members[0], &id)) && SUCCEEDED(exposer->GetTypeInfo(0, 0, &info)),
             "the scalar getter and the first type information"))
    return false;
  // The body compiled into the host, called by the platform's dispatch with
  // the type information the exposer hands out.
  DISPPARAMS none{nullptr, nullptr, 0, 0};
  auto typeInfoInvoke = [&](VARIANT* result) {
    VariantInit(result);
    return info->Invoke(s.body, id, DISPATCH_METHOD, &none, result, nullptr, nullptr);
  };
  VARIANT viaExposer, viaTypeInfo;
  bool ok = Check(CallId(exposer, id, &viaExposer) == S_OK && typeInfoInvoke(&viaTypeInfo) == S_OK &&
                      V_VT(&viaExposer) == V_VT(&viaTypeInfo) && V_I4(&viaExposer) == V_I4(&viaTypeInfo),
                  "both calls give the same answer");
  const std::string member = Narrow(s.members[0]);
  std::vector<Case> cases = {
      {"exposer->Invoke(" + member + ")", [&] { CallId(exposer, id); }},
      {"ITypeInfo::Invoke(body, " + member + ")",
       [&] {
         VARIANT result;
         typeInfoInvoke(&result);
       }},
      {"body vtable call " + member, s.bodyVtableCall},
  };
  if (ok) {
    RunInterleaved(cases);
    PrintCases(cases, {1, 2});
    Note("1 Invoke", "exposer Invoke / ITypeInfo::Invoke on the body", cases[0].ns / cases[1].ns);
  }
  info->Release();
  return ok;
}

bool NamesSection(const Subject& s, IDispatch* exposer) {
  Section(("2. GetIDsOfNames on a " + Narrow(s.buttonType) + " object by composition depth").c_str());
  ITypeInfo* info = nullptr;
  if (!Check(SUCCEEDED(exposer->GetTypeInfo(0, 0, &info)), "the first type information")) return false;
  const wchar_t* unknown = L"NoSuchClass_noSuchMember";
  DISPID id = DISPID_UNKNOWN;
  bool ok = Check(kwhost::IdOf(exposer, unknown, &id) == DISP_E_UNKNOWNNAME, "an unknown name is unknown");
  std::vector<Case> cases;
  const char* ordinals[] = {"1st", "2nd", "3rd"};
  for (int k = 0; k < 3; ++k) {
    ok = ok && Check(kwhost::IdOf(exposer, s.members[k], &id) == S_OK, "each composed class answers");
    const wchar_t* name = s.members[k];
    cases.push_back(
        {std::string(ordinals[k]) + " class: " + Narrow(name), [=, &id] { kwhost::IdOf(exposer, name, &id); }});
  }
  cases.push_back({"unknown name", [=, &id] { kwhost::IdOf(exposer, unknown, &id); }});
  LPOLESTR first = const_cast<LPOLESTR>(s.members[0]);
  cases.push_back(
      {"raw ITypeInfo::GetIDsOfNames, 1st class", [=, &id, &first] { info->GetIDsOfNames(&first, 1, &id); }});
  if (ok) {
    RunInterleaved(cases);
    PrintCases(cases, {0, 4});
    Note("2 GetIDsOfNames", "1st class / raw ITypeInfo hit", cases[0].ns / cases[4].ns);
    Note("2 GetIDsOfNames", "2nd class / 1st class", cases[1].ns / cases[0].ns);
    Note("2 GetIDsOfNames", "3rd class / 1st class", cases[2].ns / cases[0].ns);
    Note("2 GetIDsOfNames", "unknown name / 1st class", cases[3].ns / cases[0].ns);
  }
  info->Release();
  return ok;
}

void CreateSection(const Subject& s) {
  Section("3. CreateWrapper by the position of the name in the chain (results released)");
  for (const Chain& chain : s.chains) {
    std::printf("  %s, answers:", chain.label.c_str());
    std::vector<Case> cases;
    const char* positions[] = {"first", "middle", "last", "unknown"};
    for (int k = 0; k < 4; ++k) {
      const wchar_t* name = k < 3 ? chain.names[k] : L"NoSuchType";
      void* instance = k < 3 ? chain.instances[k] : chain.instances[0];
      IWrappersManager* manager = chain.manager;
      auto create = [=] {
        IDispatch* result = nullptr;
        HRESULT hr = manager->CreateWrapper(name, instance, &result);
        if (result != nullptr) result->Release();
        return hr;
      };
      std::printf(" %ls 0x%08lX%s", name, static_cast<unsigned long>(create()), k < 3 ? "," : "\n");
      cases.push_back({chain.label + ", " + positions[k] + ": " + Narrow(name), [=] { create(); }});
    }
    RunInterleaved(cases);
    PrintCases(cases, {0});
    Note("3 CreateWrapper", chain.label + ": middle / first", cases[1].ns / cases[0].ns);
    Note("3 CreateWrapper", chain.label + ": last / first", cases[2].ns / cases[0].ns);
    Note("3 CreateWrapper", chain.label + ": unknown / first", cases[3].ns / cases[0].ns);
  }
}

// Heap bytes that `calls` calls of `id` leave in use, per call.
double HeapKeptPerCall(IDispatch* object, DISPID id, int calls) {
  const SIZE_T before = HeapBytesInUse();
  for (int i = 0; i < calls; ++i) CallId(object, id);
  return (static_cast<double>(HeapBytesInUse()) - static_cast<double>(before)) / calls;
}

bool ValueSection(const Subject& s, IDispatch* exposer) {
  Section("4. A value result (a new object over a copy) against a scalar getter");
  DISPID valueId = DISPID_UNKNOWN, scalarId = DISPID_UNKNOWN;
  kwhost::Result value;
  bool ok = Check(kwhost::IdOf(exposer, s.valueMember, &valueId) == S_OK &&
                      kwhost::IdOf(exposer, s.members[0], &scalarId) == S_OK &&
                      CallId(exposer, valueId, &value.value) == S_OK && value.object() != nullptr,
                  "the value member gives an object");
  if (!ok) return false;
  std::vector<Case> cases = {
      {"value " + Narrow(s.valueMember) + " + VariantClear", [&] { CallId(exposer, valueId); }},
      {"scalar " + Narrow(s.members[0]), [&] { CallId(exposer, scalarId); }},
  };
  RunInterleaved(cases);
  PrintCases(cases, {1});
  const int calls = 2000;
  const double valueBytes = HeapKeptPerCall(exposer, valueId, calls);
  const double scalarBytes = HeapKeptPerCall(exposer, scalarId, calls);
  std::printf("  heap bytes kept per call over %d calls: value result %.1f, scalar getter %.1f\n", calls, valueBytes,
              scalarBytes);
  Note("4 value result", "value result / scalar getter", cases[0].ns / cases[1].ns);
  Note("4 value result", "heap bytes kept per value result", valueBytes, " B");
  return true;
}

void TypeLibrarySection(const Subject& s) {
  const TypeLibraryLoad& load = s.typeLibrary;
  Section(("5. LoadTypeLib of " + Narrow(load.dll.c_str()) + "'s own TYPELIB resource").c_str());
  if (FAILED(load.hr)) {
    std::printf("  LoadTypeLib failed: 0x%08lX\n", static_cast<unsigned long>(load.hr));
    return;
  }
  std::vector<Case> rows = {
      {"first load in the process", nullptr, load.firstNs},
      {"load with no other reference (median)", nullptr, load.freshNs},
      {"second load while one is held (median)", nullptr, load.heldNs},
  };
  PrintCases(rows, {2});
  Note("5 type library", "first load in the process / second load", load.firstNs / load.heldNs);
  Note("5 type library", "load with none held / second load", load.freshNs / load.heldNs);
}

// A few hundred nanoseconds of arithmetic that touches nothing shared.
bool Arithmetic() {
  volatile unsigned value = 1;
  for (int i = 0; i < 200; ++i) value = value * 2654435761u + 1;
  return true;
}

// What the threads of a throughput run call.
enum class Work { Exposer, TypeInfo, Arithmetic };

// Calls per second of `threads` threads during `windowMs`, each with an
// object and exposer of its own: the scalar getter through the exposer, the
// same member by ITypeInfo::Invoke on a wrapper compiled into the host, or
// plain arithmetic (what the machine itself scales to). Negative on a failure.
double Throughput(const Subject& s, int threads, DWORD windowMs, Work work) {
  std::atomic<int> ready{0}, failures{0};
  std::atomic<bool> stop{false};
  std::vector<long long> counts(threads, 0);
  HANDLE go = CreateEventW(nullptr, TRUE, FALSE, nullptr);
  std::vector<std::thread> pool;
  for (int t = 0; t < threads; ++t) {
    pool.emplace_back([&, t] {
      CoInitializeEx(nullptr, COINIT_MULTITHREADED);
      void* object = s.newThreadObject();
      IUnknown* body = s.newThreadBody(object);
      IDispatch* exposer = nullptr;
      ITypeInfo* info = nullptr;
      DISPID id = DISPID_UNKNOWN;
      bool ok = body != nullptr && SUCCEEDED(s.manager->CreateWrapper(s.threadType, object, &exposer)) &&
                SUCCEEDED(kwhost::IdOf(exposer, s.threadMember, &id)) && SUCCEEDED(exposer->GetTypeInfo(0, 0, &info));
      DISPPARAMS none{nullptr, nullptr, 0, 0};
      VARIANT result;  // the getter's scalar, overwritten by every call
      VariantInit(&result);
      ++ready;
      WaitForSingleObject(go, INFINITE);
      long long calls = 0;
      for (; ok && !stop.load(std::memory_order_relaxed); ++calls) {
        if (work == Work::Exposer) ok = CallId(exposer, id) == S_OK;
        if (work == Work::TypeInfo)
          ok = info->Invoke(body, id, DISPATCH_METHOD, &none, &result, nullptr, nullptr) == S_OK;
        if (work == Work::Arithmetic) ok = Arithmetic();
      }
      counts[t] = calls;
      if (!ok) ++failures;
      for (IUnknown* held : {static_cast<IUnknown*>(info), static_cast<IUnknown*>(exposer), body})
        if (held != nullptr) held->Release();
      s.deleteThreadObject(object);
      CoUninitialize();
    });
  }
  while (ready < threads) Sleep(1);
  const double start = NowNs();
  SetEvent(go);
  Sleep(windowMs);
  stop = true;
  const double elapsed = NowNs() - start;
  for (std::thread& thread : pool) thread.join();
  CloseHandle(go);
  long long total = 0;
  for (long long count : counts) total += count;
  return failures != 0 ? -1 : static_cast<double>(total) * 1e9 / elapsed;
}

bool ThreadSection(const Subject& s) {
  SYSTEM_INFO system;
  GetSystemInfo(&system);
  Section("6. Throughput: 8 threads against 1, each with its own object and exposer");
  std::printf("  %u processors; %ls on %ls objects\n", static_cast<unsigned>(system.dwNumberOfProcessors),
              s.threadMember, s.threadType);
  const Work works[] = {Work::Exposer, Work::TypeInfo, Work::Arithmetic};
  const char* labels[] = {"exposer->Invoke", "ITypeInfo::Invoke on a compiled-in body",
                          "plain arithmetic (the machine)"};
  std::vector<double> rates[3][2];  // [work][1 thread, 8 threads]
  for (int round = 0; round < 5; ++round)
    for (int w = 0; w < 3; ++w)
      for (int k = 0; k < 2; ++k) rates[w][k].push_back(Throughput(s, k == 0 ? 1 : 8, 80, works[w]));
  for (int w = 0; w < 3; ++w) {
    const double single = Median(rates[w][0]), eight = Median(rates[w][1]);
    if (!Check(single > 0 && eight > 0, "every thread's calls answer S_OK")) return false;
    std::printf("  %-40s 1 thread %9.0f calls/s, 8 threads %9.0f calls/s   x%7.2f\n", labels[w], single, eight,
                eight / single);
    Note("6 threads", std::string("8 threads / 1 thread: ") + labels[w], eight / single);
  }
  return true;
}

}  // namespace

TypeLibraryLoad MeasureTypeLibraryLoad(const wchar_t* dll) {
  TypeLibraryLoad load;
  load.dll = dll;
  const std::wstring path = kwhost::ProgramFolder() + dll;
  auto timed = [&](ITypeLib** library) {
    const double start = NowNs();
    load.hr = LoadTypeLib(path.c_str(), library);
    return NowNs() - start;
  };
  std::vector<double> fresh, held;
  for (int round = 0; round < 6 && (round == 0 || SUCCEEDED(load.hr)); ++round) {
    ITypeLib* first = nullptr;
    ITypeLib* second = nullptr;
    const double ns = timed(&first);
    if (round == 0)
      load.firstNs = ns;
    else
      fresh.push_back(ns);
    held.push_back(timed(&second));
    if (second != nullptr) second->Release();
    if (first != nullptr) first->Release();
  }
  load.freshNs = Median(fresh);
  load.heldNs = Median(held);
  return load;
}

bool RunSections(const Subject& s) {
  std::printf("Benchmark on %s: medians of interleaved rounds, as ratios\n", s.title.c_str());
  IDispatch* exposer = nullptr;
  HRESULT hr = s.manager->CreateWrapper(s.buttonType, s.button, &exposer);
  if (!Check(hr == S_OK && exposer != nullptr, "CreateWrapper of the composed object")) return false;
  bool ok = InvokeSection(s, exposer) && NamesSection(s, exposer);
  if (ok) {
    CreateSection(s);
    ok = ValueSection(s, exposer);
  }
  if (ok) {
    TypeLibrarySection(s);
    ok = ThreadSection(s);
  }
  exposer->Release();
  PrintSummary(s.title.c_str());
  return ok;
}

}  // namespace kwbench
