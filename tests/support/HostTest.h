// What the GoogleTest hosts share: a fixture with a wrappers DLL loaded, calls
// by member name that must succeed, and objects whose last reference must go
// when the test lets them go.
#pragma once

#include <windows.h>
#include <oaidl.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "host/ManagerHost.h"

namespace kwtest {

// The test helpers build on the host kit every host program uses.
using namespace kwhost;

inline std::string Narrow(const std::wstring& text) { return std::string(text.begin(), text.end()); }

// The instance behind an object the library handed out, as `T`.
template <class T>
T* InstanceAs(IDispatch* object) {
  return object != nullptr ? static_cast<T*>(InstanceOf(object)) : nullptr;
}

// The 32-bit integer a call gave; anything else is a number no member gives.
inline LONG IntOf(const Result& result) { return V_VT(&result.value) == VT_I4 ? V_I4(&result.value) : -12345678; }

// The double a call gave; anything else is a number no member gives.
inline double RealOf(const Result& result) { return V_VT(&result.value) == VT_R8 ? V_R8(&result.value) : -1e300; }

// An object the test holds: letting it go must release the last reference.
class Held {
 public:
  Held(IDispatch* object = nullptr) : object_(object) {}
  Held(Held&& other) noexcept : object_(other.object_) { other.object_ = nullptr; }
  Held(const Held&) = delete;
  Held& operator=(const Held&) = delete;
  ~Held() {
    if (object_ != nullptr) {
      EXPECT_EQ(0u, object_->Release()) << "references left on the object";
    }
  }
  operator IDispatch*() const& { return object_; }
  operator IDispatch*() const&& = delete;  // a temporary would release it at once
  IDispatch* operator->() const { return object_; }

 private:
  IDispatch* object_;
};

// A test with a wrappers DLL loaded and one manager.
class HostTest : public ::testing::Test {
 protected:
  explicit HostTest(const wchar_t* dllName) : host_(dllName) {}
  void SetUp() override { ASSERT_TRUE(host_.ready()); }

  // The host's own CreateWrapper, which must succeed.
  Held Wrap(const wchar_t* typeName, void* instance) {
    HRESULT hr = E_FAIL;
    IDispatch* object = host_.Wrap(typeName, instance, &hr);
    EXPECT_EQ(S_OK, hr) << "CreateWrapper(" << Narrow(typeName) << ")";
    return Held(object);
  }

  // A call by name that must succeed; its result.
  static Result Get(IDispatch* object, const wchar_t* name, const std::vector<VARIANT>& args = {}) {
    Result result;
    EXPECT_EQ(S_OK, CallByName(object, name, args, &result.value)) << Narrow(name);
    return result;
  }

  ManagerHost host_;
};

}  // namespace kwtest
