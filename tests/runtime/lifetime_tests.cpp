// Reference counts, destruction order and the sink path of values that
// wrapped members return.
#include <gtest/gtest.h>

#include "FixtureHost.h"

using namespace fxtest;

namespace {

class LifetimeTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(host_.ready());
    probe_ = host_.Wrap(L"FxBase", &probeCounter_);
    ASSERT_NE(nullptr, probe_);
  }
  void TearDown() override {
    if (probe_ != nullptr) {
      EXPECT_EQ(0u, probe_->Release());
    }
  }

  // Number of objects registered with the library's stub manager.
  long Registered() {
    VARIANT result;
    VariantInit(&result);
    EXPECT_EQ(S_OK, Call(probe_, L"FxBase_registeredCount", {}, &result));
    return V_VT(&result) == VT_I4 ? V_I4(&result) : -100;
  }

  FixtureHost host_;
  FxCounter probeCounter_;
  IDispatch* probe_ = nullptr;  // an exposer used to look at the library's state
};

}  // namespace

TEST_F(LifetimeTest, ExposerRegistersAndLeavesBeforeItsWrappersGo) {
  const long before = Registered();
  ASSERT_GE(before, 1);
  FxCounter counter;
  IDispatch* exposer = host_.Wrap(L"FxDerived", &counter);
  ASSERT_NE(nullptr, exposer);
  EXPECT_EQ(before + 1, Registered());
  EXPECT_EQ(1u, Refs(exposer)) << "the host holds the only reference";

  EXPECT_EQ(0u, exposer->Release());
  EXPECT_EQ(2, counter.wrappersDestroyed) << "both composed wrappers are released with the exposer";
  EXPECT_EQ(before, counter.registeredWhenWrapperDestroyed)
      << "the exposer must leave the stub manager before its wrappers are released";
  EXPECT_EQ(before, Registered());
}

TEST_F(LifetimeTest, WrapperHeldByHostOutlivesItsExposer) {
  FxCounter counter;
  counter.value = 3;
  IDispatch* exposer = host_.Wrap(L"FxDerived", &counter);
  ASSERT_NE(nullptr, exposer);
  VARIANT result;
  VariantInit(&result);
  ASSERT_EQ(S_OK, Call(exposer, L"FxDerived_peer", {}, &result));
  ASSERT_EQ(VT_UNKNOWN, V_VT(&result));
  IUnknown* wrapper = V_UNKNOWN(&result);
  EXPECT_EQ(2u, Refs(wrapper)) << "the exposer's array and the host";

  EXPECT_EQ(0u, exposer->Release());
  EXPECT_EQ(1, counter.wrappersDestroyed) << "only the wrapper nobody else holds is gone";
  EXPECT_EQ(1u, Refs(wrapper));

  IDispatch* dispatch = nullptr;
  ASSERT_EQ(S_OK, wrapper->QueryInterface(IID_IDispatch, reinterpret_cast<void**>(&dispatch)));
  EXPECT_EQ(S_OK, Call(dispatch, L"FxDerived_scale", {4}));
  EXPECT_EQ(12, counter.value) << "the instance is still bound and untouched by the release";
  dispatch->Release();
  EXPECT_EQ(0u, wrapper->Release());
  EXPECT_EQ(2, counter.wrappersDestroyed);
  EXPECT_EQ(12, counter.value);
}

TEST_F(LifetimeTest, UnknownOrExposerlessNamesCreateNothing) {
  const long before = Registered();
  FxCounter counter;
  HRESULT hr = S_OK;
  EXPECT_EQ(nullptr, host_.Wrap(L"FxKnownOnly", &counter, &hr));
  EXPECT_EQ(E_NOINTERFACE, hr);
  EXPECT_EQ(nullptr, host_.Wrap(L"fxbase", &counter, &hr));
  EXPECT_EQ(E_NOINTERFACE, hr);
  EXPECT_EQ(E_POINTER, host_.manager()->CreateWrapper(L"FxBase", &counter, nullptr));
  EXPECT_EQ(before, Registered()) << "an exposer made for a null result is destroyed again";
  EXPECT_EQ(1, counter.wrappersDestroyed);
}

TEST_F(LifetimeTest, ValueResultBecomesANewExposerOfACopy) {
  FxCounter counter;
  counter.value = 21;
  IDispatch* exposer = host_.Wrap(L"FxDerived", &counter);
  ASSERT_NE(nullptr, exposer);
  VARIANT result;
  VariantInit(&result);
  ASSERT_EQ(S_OK, Call(exposer, L"FxDerived_twin", {}, &result));
  ASSERT_EQ(VT_DISPATCH, V_VT(&result));
  IDispatch* twin = V_DISPATCH(&result);
  ASSERT_NE(nullptr, twin);
  FxCounter* copy = static_cast<FxCounter*>(InstanceOf(twin));
  ASSERT_NE(nullptr, copy);
  EXPECT_NE(&counter, copy);
  EXPECT_EQ(21, copy->value);
  UINT count = 0;
  EXPECT_EQ(S_OK, twin->GetTypeInfoCount(&count));
  EXPECT_EQ(1u, count) << "wrapped under \"FxBase\"";
  EXPECT_EQ(S_OK, Call(twin, L"FxBase_setValue", {8}));
  EXPECT_EQ(8, copy->value);
  EXPECT_EQ(21, counter.value);
  EXPECT_EQ(0u, twin->Release());
  // The copy's wrapper is gone; the copy itself stays allocated and intact.
  EXPECT_EQ(1, copy->wrappersDestroyed);
  EXPECT_EQ(8, copy->value);
  EXPECT_EQ(0u, exposer->Release());
}

TEST_F(LifetimeTest, LibraryRequestsGoToTheSinkHostRequestsDoNot) {
  kwtest::RecordingSink sink;
  ASSERT_EQ(S_OK, host_.notificator()->SetDispatchSink(&sink));
  FxCounter counter;
  counter.value = 6;
  IDispatch* exposer = host_.Wrap(L"FxDerived", &counter);
  ASSERT_NE(nullptr, exposer) << "the host's own request bypasses the sink";
  EXPECT_EQ(&counter, InstanceOf(exposer));
  EXPECT_TRUE(sink.calls.empty());

  VARIANT result;
  VariantInit(&result);
  ASSERT_EQ(S_OK, Call(exposer, L"FxDerived_twin", {}, &result));
  ASSERT_EQ(1u, sink.calls.size());
  const kwtest::SinkCall& call = sink.calls[0];
  EXPECT_EQ(L"FxBase", call.typeName);
  EXPECT_EQ(nullptr, call.reserved);
  EXPECT_EQ(VARIANT_TRUE, call.flags[0]);
  EXPECT_EQ(VARIANT_TRUE, call.flags[1]);
  EXPECT_EQ(VARIANT_TRUE, call.flags[2]);
  ASSERT_NE(nullptr, call.instance);
  EXPECT_NE(static_cast<void*>(&counter), call.instance);
  EXPECT_EQ(6, static_cast<FxCounter*>(call.instance)->value);
  VariantClear(&result);

  ASSERT_EQ(S_OK, host_.notificator()->SetDispatchSink(nullptr));
  EXPECT_EQ(1, sink.refs()) << "the manager let go of the sink";
  ASSERT_EQ(S_OK, Call(exposer, L"FxDerived_twin", {}, &result));
  EXPECT_EQ(1u, sink.calls.size());
  ASSERT_EQ(VT_DISPATCH, V_VT(&result));
  EXPECT_NE(nullptr, InstanceOf(V_DISPATCH(&result)));
  VariantClear(&result);
  EXPECT_EQ(0u, exposer->Release());
}

TEST_F(LifetimeTest, SinkFailureReachesTheHost) {
  kwtest::RecordingSink sink(E_ACCESSDENIED);
  ASSERT_EQ(S_OK, host_.notificator()->SetDispatchSink(&sink));
  FxCounter counter;
  IDispatch* exposer = host_.Wrap(L"FxDerived", &counter);
  ASSERT_NE(nullptr, exposer);
  DISPID id = 0;
  ASSERT_EQ(S_OK, IdOf(exposer, L"FxDerived_twin", &id));
  VARIANT result;
  VariantInit(&result);
  DISPPARAMS none{nullptr, nullptr, 0, 0};
  EXCEPINFO exception{};
  HRESULT hr = exposer->Invoke(id, IID_NULL, 0, DISPATCH_METHOD, &none, &result, &exception, nullptr);
  EXPECT_TRUE(hr == E_ACCESSDENIED || (hr == DISP_E_EXCEPTION && exception.scode == E_ACCESSDENIED))
      << std::hex << hr << " scode " << exception.scode;
  SysFreeString(exception.bstrSource);
  SysFreeString(exception.bstrDescription);
  SysFreeString(exception.bstrHelpFile);
  EXPECT_EQ(1u, sink.calls.size());
  host_.notificator()->SetDispatchSink(nullptr);
  EXPECT_EQ(0u, exposer->Release());
}
