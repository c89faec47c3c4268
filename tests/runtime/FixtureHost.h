// Drives the runtime fixture DLL as a host would: loads it, makes a wrappers
// manager, asks it for exposers and calls members by name.
#pragma once

#include <windows.h>
#include <oaidl.h>

#include <gtest/gtest.h>

#include "FixtureObject.h"
#include "FixtureTypes.h"
#include "host/ManagerHost.h"

namespace fxtest {

using kwhost::Call;
using kwhost::IdOf;
using kwhost::InstanceOf;
using kwhost::InvokeWith;
using kwhost::RefCountOf;

constexpr DISPID kIdSetValueOrScale = 1;  // FxBase_setValue / FxDerived_scale
constexpr DISPID kIdLevelOrTouch = 7;     // propget FxBase_level / method FxDerived_touch

// The fixture's loaded DLL with one wrappers manager.
class FixtureHost : public kwhost::ManagerHost {
 public:
  FixtureHost() : ManagerHost(L"kwFxWrappers.dll") {}
};

// The object a member without arguments returns (VT_UNKNOWN or VT_DISPATCH),
// with the result's reference; null otherwise.
inline IUnknown* ObjectResult(IDispatch* object, const wchar_t* member) {
  VARIANT result;
  VariantInit(&result);
  EXPECT_EQ(S_OK, Call(object, member, {}, &result)) << "calling " << member;
  if (V_VT(&result) == VT_UNKNOWN || V_VT(&result) == VT_DISPATCH) return V_UNKNOWN(&result);
  VariantClear(&result);
  return nullptr;
}

// One FxDerived exposer over the test's own counter; the test's reference
// must be the last one.
class DerivedExposerTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(host_.ready());
    counter_.value = 5;
    counter_.level = 42;
    exposer_ = host_.Wrap(L"FxDerived", &counter_);
    ASSERT_NE(nullptr, exposer_);
  }
  void TearDown() override { EXPECT_EQ(0u, exposer_ != nullptr ? exposer_->Release() : 0u); }

  FixtureHost host_;
  FxCounter counter_;
  IDispatch* exposer_ = nullptr;
};

}  // namespace fxtest
