// Reference counts, destruction order and the sink path of values that
// wrapped members return.
#include <gtest/gtest.h>

#include "FixtureHost.h"

using namespace fxtest;

namespace {

class LifetimeTest : public DerivedExposerTest {
 protected:
  // Number of objects registered with the library's stub manager.
  long Registered() {
    VARIANT result;
    VariantInit(&result);
    EXPECT_EQ(S_OK, Call(exposer_, L"FxBase_registeredCount", {}, &result));
    return V_VT(&result) == VT_I4 ? V_I4(&result) : -100;
  }
};

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

TEST_F(LifetimeTest, NamesWithoutAnExposerCreateNothing) {
  const long before = Registered();
  FxCounter counter;
  for (const wchar_t* name : {L"FxKnownOnly", L"fxbase"}) {
    HRESULT hr = S_OK;
    EXPECT_EQ(nullptr, host_.Wrap(name, &counter, &hr));
    EXPECT_EQ(E_NOINTERFACE, hr);
  }
  EXPECT_EQ(E_POINTER, host_.manager()->CreateWrapper(L"FxBase", &counter, nullptr));
  EXPECT_EQ(before, Registered()) << "an exposer made for a null result is destroyed again";
  EXPECT_EQ(1, counter.wrappersDestroyed);
}

TEST_F(LifetimeTest, ValueResultGoesToTheSinkWhileSetElseBecomesAnExposerOfACopy) {
  // While a sink is set, the library's own requests go to it and its failure
  // reaches the host; the host's own requests bypass it.
  kwhost::RecordingSink sink(E_ACCESSDENIED);
  ASSERT_EQ(S_OK, host_.notificator()->SetDispatchSink(&sink));
  FxCounter other;
  IDispatch* direct = host_.Wrap(L"FxBase", &other);
  ASSERT_NE(nullptr, direct);
  EXPECT_EQ(&other, InstanceOf(direct));
  EXPECT_EQ(0u, direct->Release());
  EXPECT_TRUE(sink.calls.empty());
  SCODE memberResult = 0;
  const HRESULT hr = kwhost::CallByName(exposer_, L"FxDerived_twin", {}, nullptr, &memberResult);
  EXPECT_TRUE(hr == E_ACCESSDENIED || (hr == DISP_E_EXCEPTION && memberResult == E_ACCESSDENIED))
      << std::hex << hr << " scode " << memberResult;
  ASSERT_EQ(1u, sink.calls.size());
  const kwhost::SinkCall& call = sink.calls[0];
  EXPECT_EQ(L"FxBase", call.typeName);
  EXPECT_EQ(nullptr, call.reserved);
  for (VARIANT_BOOL flag : call.flags) EXPECT_EQ(VARIANT_TRUE, flag);
  ASSERT_NE(nullptr, call.instance);
  EXPECT_NE(static_cast<void*>(&counter_), call.instance);
  EXPECT_EQ(5, static_cast<FxCounter*>(call.instance)->value);
  ASSERT_EQ(S_OK, host_.notificator()->SetDispatchSink(nullptr));
  EXPECT_EQ(1, sink.refs()) << "the manager let go of the sink";

  // Without a sink: a new exposer of a heap copy, wrapped under "FxBase".
  auto* twin = static_cast<IDispatch*>(ObjectResult(exposer_, L"FxDerived_twin"));
  EXPECT_EQ(1u, sink.calls.size());
  ASSERT_NE(nullptr, twin);
  auto* copy = static_cast<FxCounter*>(InstanceOf(twin));
  ASSERT_NE(nullptr, copy);
  EXPECT_NE(&counter_, copy);
  UINT count = 0;
  EXPECT_EQ(S_OK, twin->GetTypeInfoCount(&count));
  EXPECT_EQ(1u, count);
  EXPECT_EQ(S_OK, Call(twin, L"FxBase_setValue", {8}));
  EXPECT_EQ(8, copy->value);
  EXPECT_EQ(5, counter_.value);
  EXPECT_EQ(0u, twin->Release());
  EXPECT_EQ(1, copy->wrappersDestroyed) << "the copy's wrapper is gone, the copy stays intact";
  EXPECT_EQ(8, copy->value);
}

}  // namespace
