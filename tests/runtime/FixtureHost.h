// Drives the runtime fixture DLL as a host would: loads it, makes a wrappers
// manager, asks it for exposers and calls members by name.
#pragma once

#include <windows.h>
#include <oaidl.h>

#include <gtest/gtest.h>

#include <string>

#include "FixtureObject.h"
#include "FixtureTypes.h"
#include "HostSupport.h"

namespace fxtest {

constexpr const wchar_t kFixtureDll[] = L"kwFxWrappers.dll";
constexpr DISPID kIdSetValueOrScale = 1;  // FxBase_setValue / FxDerived_scale
constexpr DISPID kIdLevelOrTouch = 7;     // propget FxBase_level / method FxDerived_touch

// The fixture's loaded DLL with one wrappers manager.
class FixtureHost {
 public:
  FixtureHost();
  ~FixtureHost();
  FixtureHost(const FixtureHost&) = delete;
  FixtureHost& operator=(const FixtureHost&) = delete;

  bool ready() const { return manager_ != nullptr; }
  IWrappersManager* manager() const { return manager_; }
  IkwQtDispatchNotificator* notificator() const { return notificator_; }

  // The host's own CreateWrapper; null on failure (the HRESULT in `hr`).
  IDispatch* Wrap(const wchar_t* typeName, void* instance, HRESULT* hr = nullptr);

  // Releases the manager and unloads the DLL. Objects the test still holds
  // are then left to the library's unload.
  void Unload();

 private:
  kwtest::LoadedLibrary library_;
  IWrappersManager* manager_ = nullptr;
  IkwQtDispatchNotificator* notificator_ = nullptr;
};

// GetIDsOfNames for one name on `object`.
HRESULT IdOf(IDispatch* object, const wchar_t* name, DISPID* id);

// Invoke with the given arguments (in natural order; reversed for DISPPARAMS).
HRESULT InvokeWith(IDispatch* object, DISPID id, WORD flags, std::initializer_list<int> args,
                   VARIANT* result = nullptr, UINT* argumentError = nullptr);

// Resolves `name` and invokes it as a method.
HRESULT Call(IDispatch* object, const wchar_t* name, std::initializer_list<int> args, VARIANT* result = nullptr);

// The instance an exposer stands for, through IkwInstanceProxy.
void* InstanceOf(IUnknown* exposer);

// Reference count of an object, as AddRef/Release report it.
ULONG Refs(IUnknown* object);

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
