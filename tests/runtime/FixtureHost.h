// Drives the runtime fixture DLL as a host would: loads it, makes a wrappers
// manager, asks it for exposers and calls members by name.
#pragma once

#include <windows.h>
#include <oaidl.h>

#include <gtest/gtest.h>

#include "FixtureObject.h"
#include "FixtureTypes.h"
#include "ManagerHost.h"

namespace fxtest {

constexpr const wchar_t kFixtureDll[] = L"kwFxWrappers.dll";
constexpr DISPID kIdSetValueOrScale = 1;  // FxBase_setValue / FxDerived_scale
constexpr DISPID kIdLevelOrTouch = 7;     // propget FxBase_level / method FxDerived_touch

// The fixture's loaded DLL with one wrappers manager.
class FixtureHost : public kwtest::ManagerHost {
 public:
  FixtureHost() : ManagerHost(kFixtureDll) {}
};

using kwtest::Call;
using kwtest::IdOf;
using kwtest::InstanceOf;
using kwtest::InvokeWith;

// Reference count of an object, as AddRef/Release report it.
inline ULONG Refs(IUnknown* object) { return kwtest::RefCountOf(object); }

// A test holding one FxDerived exposer over its own counter; the exposer must
// be gone with the test's reference. InitCounter presets the counter.
class DerivedExposerTest : public ::testing::Test {
 protected:
  virtual void InitCounter(FxCounter& counter) = 0;
  void SetUp() override {
    ASSERT_TRUE(host_.ready());
    InitCounter(counter_);
    exposer_ = host_.Wrap(L"FxDerived", &counter_);
    ASSERT_NE(nullptr, exposer_);
  }
  void TearDown() override {
    if (exposer_ != nullptr) {
      EXPECT_EQ(0u, exposer_->Release());
    }
  }

  FixtureHost host_;
  FxCounter counter_;
  IDispatch* exposer_ = nullptr;
};

}  // namespace fxtest
