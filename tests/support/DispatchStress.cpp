#include "DispatchStress.h"

#include "typelib/dump/TypeText.h"

#include <algorithm>
#include <atomic>
#include <iterator>
#include <random>
#include <string>
#include <thread>

namespace kwtest {

void RunOnThreads(int threads, const std::function<void(int)>& body) {
  std::vector<std::thread> running;
  std::atomic<int> waiting{threads};
  for (int t = 0; t < threads; ++t) {
    running.emplace_back([&body, &waiting, t] {
      CoInitializeEx(nullptr, COINIT_MULTITHREADED);
      // All threads start their work together, so that they meet in it.
      for (--waiting; waiting.load() > 0;) SwitchToThread();
      body(t);
      CoUninitialize();
    });
  }
  for (std::thread& thread : running) thread.join();
}

int HammerExposer(IDispatch* exposer, const std::vector<Probe>& probes, int threads, int rounds) {
  std::atomic<int> failures{0};
  RunOnThreads(threads, [&](int) {
    for (int round = 0; round < rounds; ++round) {
      for (const Probe& probe : probes) {
        Result result;
        if (CallByName(exposer, probe.member, probe.args, &result.value) != S_OK || !probe.holds(result)) ++failures;
      }
      DISPID id = 0;
      if (IdOf(exposer, L"NoSuchMember", &id) != DISP_E_UNKNOWNNAME) ++failures;
    }
  });
  return failures;
}

namespace {

// The same sequence on every run: std::mt19937's output is fixed by the
// standard for a given seed.
class Random : public std::mt19937 {
 public:
  using std::mt19937::mt19937;
  int Below(int bound) { return static_cast<int>((*this)() % static_cast<std::uint32_t>(bound)); }
  bool Chance(int percent) { return Below(100) < percent; }
};

struct Member {
  IDispatch* exposer;
  std::wstring name;
  DISPID id;
  int parameters;
};

template <size_t N>
bool OneOf(const long long (&values)[N], long long value) {
  return std::find(std::begin(values), std::end(values), value) != std::end(values);
}

bool IsPlainNumber(VARTYPE type) {
  return OneOf({VT_I1, VT_UI1, VT_I2, VT_UI2, VT_I4, VT_UI4, VT_INT, VT_UINT, VT_I8, VT_UI8, VT_R4, VT_R8, VT_BOOL},
               type);
}

// The members of `exposer` whose parameters are all plain numbers.
void CollectMembers(IDispatch* exposer, const std::vector<std::wstring>& avoid, std::vector<Member>* members) {
  ForEachFunction(exposer, [&](const std::wstring& name, const FUNCDESC& function) {
    bool plain = function.memid >= 0x0D000000;  // the wrapped members, not IDispatch's own
    int parameters = 0;
    for (SHORT p = 0; p < function.cParams; ++p) {
      const ELEMDESC& param = function.lprgelemdescParam[p];
      if (param.paramdesc.wParamFlags & PARAMFLAG_FRETVAL) continue;
      ++parameters;
      plain = plain && IsPlainNumber(param.tdesc.vt);
    }
    for (const std::wstring& part : avoid) plain = plain && name.find(part) == std::wstring::npos;
    if (plain) members->push_back({exposer, name, function.memid, parameters});
  });
}

// An argument of a random VARTYPE and value; a BSTR is owned by the caller.
VARIANT RandomArgument(Random& random) {
  const int kind = random.Below(8);
  const std::uint32_t n = random();
  VARIANT v;
  VariantInit(&v);
  if (kind == 0) return I4(static_cast<LONG>(n) % 1000);
  if (kind == 1) return I4(static_cast<LONG>(n));
  if (kind == 2) return R8(static_cast<int>(n) / 7.0);
  if (kind == 3) return UI1(static_cast<BYTE>(n));
  if (kind == 4) return I8(static_cast<LONGLONG>(n) << 20);
  if (kind == 5) {
    V_VT(&v) = VT_BOOL;
    V_BOOL(&v) = (n & 1) ? VARIANT_TRUE : VARIANT_FALSE;
  } else if (kind == 6) {
    V_VT(&v) = VT_BSTR;
    V_BSTR(&v) = SysAllocString((n & 1) ? L"12" : L"not a number");
  } else {
    V_VT(&v) = (n & 1) ? VT_EMPTY : VT_NULL;
  }
  return v;
}

bool ExpectedFromDispatch(HRESULT hr) {
  return OneOf(
      {S_OK, DISP_E_UNKNOWNNAME, DISP_E_MEMBERNOTFOUND, DISP_E_BADPARAMCOUNT, DISP_E_TYPEMISMATCH, DISP_E_OVERFLOW,
       DISP_E_PARAMNOTOPTIONAL, DISP_E_BADVARTYPE, DISP_E_PARAMNOTFOUND, DISP_E_EXCEPTION, E_INVALIDARG, E_POINTER},
      hr);
}

}  // namespace

void ForEachFunction(IDispatch* exposer, const std::function<void(const std::wstring&, const FUNCDESC&)>& visit) {
  UINT composed = 0;
  exposer->GetTypeInfoCount(&composed);
  for (UINT i = 0; i < composed; ++i) {
    ITypeInfo* info = nullptr;
    if (FAILED(exposer->GetTypeInfo(i, 0, &info))) continue;
    kwtypelib::ForEachFunction(info, visit);
    info->Release();
  }
}

FuzzTally FuzzExposers(const std::vector<IDispatch*>& exposers, int calls, std::uint32_t seed,
                       const std::vector<std::wstring>& avoid) {
  std::vector<Member> members;
  for (IDispatch* exposer : exposers) CollectMembers(exposer, avoid, &members);
  FuzzTally tally;
  if (members.empty()) return tally;
  Random random(seed);
  const std::wstring longName(5000, L'Q');
  for (int call = 0; call < calls; ++call) {
    const Member& member = members[random.Below(static_cast<int>(members.size()))];
    HRESULT hr;
    if (random.Chance(40)) {
      std::wstring name = member.name;
      switch (random.Below(5)) {
        case 0:
          for (wchar_t& c : name) c = static_cast<wchar_t>(towlower(c));
          break;
        case 1:
          name += L"_";
          break;
        case 2:
          name = longName;
          break;
        case 3:
          name = name.substr(0, random.Below(static_cast<int>(name.size()) + 1));
          break;
        default:
          break;
      }
      DISPID id = 0;
      hr = IdOf(member.exposer, name.c_str(), &id);
    } else {
      int count = member.parameters;
      if (random.Chance(25)) count = random.Below(member.parameters + 3);
      std::vector<VARIANT> args;
      for (int a = 0; a < count; ++a) args.push_back(RandomArgument(random));
      DISPPARAMS params{args.empty() ? nullptr : args.data(), nullptr, static_cast<UINT>(args.size()), 0};
      DISPID id = random.Chance(90) ? member.id : static_cast<DISPID>(random());
      WORD flags = random.Chance(85) ? DISPATCH_METHOD : DISPATCH_PROPERTYGET;
      Result result;
      EXCEPINFO exception{};
      UINT argumentError = 0;
      hr = member.exposer->Invoke(id, IID_NULL, 0, flags, random.Chance(3) ? nullptr : &params, &result.value,
                                  &exception, &argumentError);
      SysFreeString(exception.bstrSource);
      SysFreeString(exception.bstrDescription);
      SysFreeString(exception.bstrHelpFile);
      for (VARIANT& arg : args) VariantClear(&arg);
    }
    ++tally.calls;
    if (hr == S_OK) ++tally.succeeded;
    if (!ExpectedFromDispatch(hr)) ++tally.unexpected;
  }
  return tally;
}

}  // namespace kwtest
