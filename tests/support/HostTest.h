// What the GoogleTest hosts share: a fixture with a wrappers DLL loaded, calls
// by member name that must succeed, and objects whose last reference must go
// when the test lets them go.
#pragma once

#include <windows.h>
#include <oaidl.h>

#include <gtest/gtest.h>

#include <initializer_list>
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

// `object` is its own identity and its first face (the first of `answered`);
// each interface of `answered` is given out under that identity, each of
// `refused` gives E_NOINTERFACE and a null pointer, and no query leaves a
// reference behind.
inline void ExpectFaces(IUnknown* object, std::initializer_list<const IID*> answered,
                        std::initializer_list<const IID*> refused) {
  const ULONG refs = RefCountOf(object);
  for (const IID* iid : answered) {
    IUnknown* face = nullptr;
    IUnknown* identity = nullptr;
    ASSERT_EQ(S_OK, object->QueryInterface(*iid, reinterpret_cast<void**>(&face)));
    ASSERT_EQ(S_OK, face->QueryInterface(IID_IUnknown, reinterpret_cast<void**>(&identity)));
    EXPECT_EQ(object, identity);
    EXPECT_TRUE(iid != *answered.begin() || static_cast<void*>(face) == object) << "the first face is the identity";
    identity->Release();
    face->Release();
  }
  for (const IID* iid : refused) {
    void* face = reinterpret_cast<void*>(0x77);
    EXPECT_EQ(E_NOINTERFACE, object->QueryInterface(*iid, &face));
    EXPECT_EQ(nullptr, face);
  }
  EXPECT_EQ(E_POINTER, object->QueryInterface(IID_IUnknown, nullptr));
  EXPECT_EQ(refs, RefCountOf(object));
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
