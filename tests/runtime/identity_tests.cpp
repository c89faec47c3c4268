// Identity and lifetime of exposers and of the wrappers they compose: which
// interfaces each answers, the instance proxy, the free-threaded marshaler,
// reference counts, destruction order, the names that make none, and the
// sink that takes value results.
#include <gtest/gtest.h>

#include <thread>

#include "FixtureHost.h"

using namespace fxtest;

namespace {

using IdentityTest = DerivedExposerTest;

// Exposer and wrappers answer their own interfaces under one identity each.
TEST_F(IdentityTest, ExposerAndEachComposedWrapperAnswerOnlyTheirOwnFaces) {
  // The exposer's IMarshal is the aggregated marshaler's: it gives the
  // exposer back as its identity.
  ExpectFaces(exposer_, {&IID_IDispatch, &IID_IUnknown, &IID_IkwInstanceProxy, &IID_IMarshal},
              {&IID_IPersist, &IID_Iwrp_FxBase, &IID_Iwrp_FxDerived});
  EXPECT_EQ(&counter_, InstanceOf(exposer_));
  IkwInstanceProxy* proxy = nullptr;
  ASSERT_EQ(S_OK, exposer_->QueryInterface(IID_IkwInstanceProxy, reinterpret_cast<void**>(&proxy)));
  EXPECT_EQ(E_POINTER, proxy->GetInstance(nullptr));
  proxy->Release();

  IUnknown* base = ObjectResult(exposer_, L"FxBase_peer");
  IUnknown* derived = ObjectResult(exposer_, L"FxDerived_peer");
  ASSERT_NE(nullptr, base);
  ASSERT_NE(nullptr, derived);
  EXPECT_NE(base, derived) << "one wrapper per composed class";
  ExpectFaces(base, {&IID_Iwrp_FxBase, &IID_IUnknown, &IID_IDispatch},
              {&IID_IkwInstanceProxy, &IID_IMarshal, &IID_Iwrp_FxDerived});
  ExpectFaces(derived, {&IID_Iwrp_FxDerived}, {&IID_Iwrp_FxBase});
  base->Release();
  derived->Release();
}

// The aggregated free-threaded marshaler hands over the exposer itself (a
// proxy would still reach it: the multithreaded apartment needs no pump).
TEST_F(IdentityTest, AnotherApartmentGetsTheObjectItself) {
  CoInitializeEx(nullptr, COINIT_MULTITHREADED);
  IStream* stream = nullptr;
  EXPECT_EQ(S_OK, CoMarshalInterThreadInterfaceInStream(IID_IDispatch, exposer_, &stream));
  IDispatch* received = nullptr;
  int value = -1;
  std::thread([&] {
    CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
    if (CoGetInterfaceAndReleaseStream(stream, IID_IDispatch, reinterpret_cast<void**>(&received)) == S_OK) {
      VARIANT result;
      if (Call(received, L"FxBase_value", {}, &result) == S_OK) value = V_I4(&result);
      received->Release();
    }
    CoUninitialize();
  }).join();
  CoUninitialize();
  EXPECT_EQ(static_cast<IDispatch*>(exposer_), received) << "no proxy between apartments";
  EXPECT_EQ(5, value);
}

class LifetimeTest : public DerivedExposerTest {
 protected:
  // Number of objects registered with the library's stub manager.
  long Registered() { return IntOf(Get(exposer_, L"FxBase_registeredCount")); }
};

// A released exposer leaves the stub manager before its wrappers go; a
// wrapper the host still holds stays, bound to the instance.
TEST_F(LifetimeTest, ExposerLeavesTheStubManagerBeforeItsWrappersGoAndHeldOnesStay) {
  const long before = Registered();
  ASSERT_GE(before, 1);
  FxCounter counter;
  counter.value = 3;
  IDispatch* exposer = host_.Wrap(L"FxDerived", &counter);
  ASSERT_NE(nullptr, exposer);
  EXPECT_EQ(before + 1, Registered());
  EXPECT_EQ(1u, RefCountOf(exposer)) << "the host holds the only reference";
  auto* wrapper = static_cast<IDispatch*>(ObjectResult(exposer, L"FxDerived_peer"));
  ASSERT_NE(nullptr, wrapper);
  EXPECT_EQ(2u, RefCountOf(wrapper)) << "the exposer's and the host's";

  EXPECT_EQ(0u, exposer->Release());
  EXPECT_EQ(1, counter.wrappersDestroyed) << "the wrapper nobody else holds goes with the exposer";
  EXPECT_EQ(before, counter.registeredWhenWrapperDestroyed);
  EXPECT_EQ(before, Registered());
  EXPECT_EQ(S_OK, Call(wrapper, L"FxDerived_scale", {4}));
  EXPECT_EQ(12, counter.value) << "the held wrapper is still bound to the instance";
  EXPECT_EQ(0u, wrapper->Release());
  EXPECT_EQ(2, counter.wrappersDestroyed);
}

// Only the exact name of a type with an exposer makes one: other spellings
// and a known name without an exposer leave the result alone. An exposer
// made for a null result is destroyed again.
TEST_F(LifetimeTest, NamesWithoutAnExposerCreateNothing) {
  const long before = Registered();
  FxCounter counter;
  for (const wchar_t* name : {L"FxKnownOnly", L"fxbase", L"FXBASE", L"FxBase ", L" FxBase", L"Fx Base", L"FxBas", L"",
                              static_cast<const wchar_t*>(nullptr)}) {
    IDispatch* result = reinterpret_cast<IDispatch*>(0x77);
    EXPECT_EQ(E_NOINTERFACE, host_.manager()->CreateWrapper(name, &counter, &result)) << (name ? Narrow(name) : "null");
    EXPECT_EQ(reinterpret_cast<IDispatch*>(0x77), result);
  }
  EXPECT_EQ(E_POINTER, host_.manager()->CreateWrapper(L"FxBase", &counter, nullptr));
  EXPECT_EQ(before, Registered());
  EXPECT_EQ(1, counter.wrappersDestroyed);
}

// The manager holds its sink once, whatever it is set to, and lets a
// replaced, cleared or outlived one go. While one is set, a value result goes
// to it: its instance and type name, no reserved pointer, three VARIANT_TRUE
// flags; its answer is the member's.
TEST(ManagerSink, IsHeldOnceAndTakesTheValueResults) {
  RecordingSink first(E_ACCESSDENIED), second;
  ManagerHost host(kFixtureDll);
  ASSERT_TRUE(host.ready());
  const struct {
    IUnknown* sink;
    LONG first, second;  // references afterwards
  } steps[] = {{&first, 2, 1}, {&second, 1, 2}, {&second, 1, 2}, {nullptr, 1, 1}, {nullptr, 1, 1}, {&first, 2, 1}};
  for (const auto& step : steps) {
    EXPECT_EQ(S_OK, host.notificator()->SetDispatchSink(step.sink));
    EXPECT_EQ(step.first, first.refs());
    EXPECT_EQ(step.second, second.refs());
  }

  FxCounter counter;
  IDispatch* exposer = host.Wrap(L"FxDerived", &counter);
  ASSERT_NE(nullptr, exposer);
  SCODE memberResult = 0;
  EXPECT_EQ(DISP_E_EXCEPTION, CallByName(exposer, L"FxDerived_twin", {}, nullptr, &memberResult));
  EXPECT_EQ(E_ACCESSDENIED, memberResult);
  ASSERT_EQ(1u, first.calls.size());
  EXPECT_EQ(L"FxBase", first.calls[0].typeName);
  EXPECT_EQ(nullptr, first.calls[0].reserved);
  for (VARIANT_BOOL flag : first.calls[0].flags) EXPECT_EQ(VARIANT_TRUE, flag);
  EXPECT_NE(nullptr, first.calls[0].instance);

  // Cleared, the manager makes the value result's object itself again.
  EXPECT_EQ(S_OK, host.notificator()->SetDispatchSink(nullptr));
  VARIANT made;
  VariantInit(&made);
  EXPECT_EQ(S_OK, CallByName(exposer, L"FxDerived_twin", {}, &made));
  EXPECT_EQ(1u, first.calls.size()) << "a cleared sink is not asked";
  ASSERT_EQ(VT_DISPATCH, V_VT(&made));
  EXPECT_EQ(std::vector<std::wstring>{L"Iwrp_FxBase"}, ComposedInterfaces(V_DISPATCH(&made)));
  VariantClear(&made);
  EXPECT_EQ(0u, exposer->Release());
  host.Unload();
  EXPECT_EQ(1, first.refs()) << "a destroyed manager releases its sink";
}

}  // namespace
