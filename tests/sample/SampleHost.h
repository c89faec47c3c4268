// Drives the sample's wrappers DLL as an automation host would: members are
// called by name through IDispatch with VARIANT arguments, and the sample's
// own objects (linked from kwSampleApp.dll) show what the calls did.
#pragma once

#include <windows.h>
#include <oaidl.h>

#include <gtest/gtest.h>

#include <initializer_list>

#include "ManagerHost.h"
#include "kwsample/SWidget.h"

namespace sampletest {

constexpr const wchar_t kSampleWrappersDll[] = L"kwSampleWrappers.dll";

using kwtest::BytesRef;
using kwtest::I4;
using kwtest::I8;
using kwtest::LongRef;
using kwtest::Object;
using kwtest::R4;
using kwtest::R8;
using kwtest::UI1;
using kwtest::UI2;

using kwtest::CallByName;
using kwtest::Result;

// The instance behind a returned object, as `T`.
template <class T>
T* InstanceAs(IDispatch* object) {
  return object != nullptr ? static_cast<T*>(kwtest::InstanceOf(object)) : nullptr;
}

// A test with the sample's wrappers DLL loaded and one manager.
class SampleTest : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(host_.ready()); }

  // The host's own CreateWrapper; the test owns the reference.
  IDispatch* Wrap(const wchar_t* typeName, void* instance) {
    HRESULT hr = E_FAIL;
    IDispatch* object = host_.Wrap(typeName, instance, &hr);
    EXPECT_EQ(S_OK, hr) << "CreateWrapper(" << static_cast<const void*>(typeName) << ")";
    return object;
  }

  kwtest::ManagerHost host_{kSampleWrappersDll};
};

}  // namespace sampletest
