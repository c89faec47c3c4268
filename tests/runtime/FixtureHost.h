// Drives the runtime fixture DLL as a host would: loads it, makes a wrappers
// manager, asks it for exposers and calls members by name.
#pragma once

#include <windows.h>
#include <oaidl.h>

#include <gtest/gtest.h>

#include "FixtureObject.h"
#include "FixtureTypes.h"
#include "HostTest.h"

namespace fxtest {

using namespace kwtest;

constexpr wchar_t kFixtureDll[] = L"kwFxWrappers.dll";

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

// One FxDerived exposer over the test's own counter (value 5, level 42); the
// test's reference must be the last one.
class DerivedExposerTest : public HostTest {
 protected:
  DerivedExposerTest() : HostTest(kFixtureDll) {}
  void SetUp() override {
    HostTest::SetUp();
    ASSERT_NE(nullptr, static_cast<IDispatch*>(exposer_));
  }

  FxCounter counter_{5, 42};
  Held exposer_ = Wrap(L"FxDerived", &counter_);
};

}  // namespace fxtest
