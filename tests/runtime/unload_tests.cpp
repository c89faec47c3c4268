// Unloading the library while objects are alive: the stub manager
// disconnects exposers held by stubs, reports the ones the host keeps, and
// drops registered addresses that no longer hold their object.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <optional>
#include <string>
#include <vector>

#include "FixtureHost.h"

using namespace fxtest;
namespace fs = std::filesystem;

namespace {

// A host-side COM object that counts every call it receives. Two classes with
// different tables stand for an object and whatever later reuses its memory.
template <int Tag>
class CountingObject : public IUnknown {
 public:
  explicit CountingObject(long* calls) : calls_(calls) {}
  virtual ~CountingObject() = default;
  STDMETHOD(QueryInterface)(REFIID, void** ppv) override {
    ++*calls_;
    if (ppv != nullptr) *ppv = nullptr;
    return E_NOINTERFACE;
  }
  STDMETHOD_(ULONG, AddRef)() override { return ++*calls_, 2; }
  STDMETHOD_(ULONG, Release)() override { return ++*calls_, 1; }

 private:
  long* calls_;
};

// Each test loads the library with tracing into a folder of its own.
class UnloadTest : public ::testing::Test {
 protected:
  void SetUp() override {
    CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    folder_ = fs::temp_directory_path() / ("kw_runtime_unload_" + std::to_string(GetCurrentProcessId()));
    fs::remove_all(folder_);
    fs::create_directory(folder_);
    const std::wstring value = folder_.wstring();
    ASSERT_EQ(ERROR_SUCCESS, RegSetKeyValueW(HKEY_CURRENT_USER, L"SOFTWARE\\Quillmoor", L"DebugTraceFolder", REG_SZ,
                                             value.c_str(), static_cast<DWORD>((value.size() + 1) * sizeof(wchar_t))));
    host_.emplace();
    ASSERT_TRUE(host_->ready());
  }
  void TearDown() override {
    RegDeleteKeyValueW(HKEY_CURRENT_USER, L"SOFTWARE\\Quillmoor", L"DebugTraceFolder");
    std::error_code ignored;
    fs::remove_all(folder_, ignored);
    CoUninitialize();
  }

  // Unloads the library; then the trace lines of this load that hold "WARNING!".
  std::vector<std::string> UnloadAndReadWarnings() {
    host_->Unload();
    std::vector<std::string> lines;
    const std::vector<fs::path> logs{fs::directory_iterator(folder_), fs::directory_iterator()};
    EXPECT_EQ(1u, logs.size()) << "one trace file per load";
    std::ifstream file(logs.empty() ? fs::path() : logs[0]);
    for (std::string line; std::getline(file, line);)
      if (line.find("WARNING!") != std::string::npos) lines.push_back(line.substr(line.find("WARNING!")));
    return lines;
  }

  // Registers `object` with the stub manager through a fixture member.
  HRESULT Register(IUnknown* object) {
    FxCounter counter;
    IDispatch* exposer = host_->Wrap(L"FxBase", &counter);
    VARIANT argument;
    V_VT(&argument) = VT_UNKNOWN;
    V_UNKNOWN(&argument) = object;
    const HRESULT hr = exposer ? kwhost::CallByName(exposer, L"FxBase_register", {argument}) : E_FAIL;
    EXPECT_TRUE(exposer == nullptr || exposer->Release() == 0u);
    return hr;
  }

  fs::path folder_;
  std::optional<FixtureHost> host_;  // loaded once the trace folder is set
};

TEST_F(UnloadTest, StubHeldExposerIsDestroyedAndKeptOnesAreReportedOnce) {
  FxCounter marshaled, kept1, kept2;
  IDispatch* exposer = host_->Wrap(L"FxDerived", &marshaled);
  ASSERT_NE(nullptr, exposer);
  IStream* stream = nullptr;
  ASSERT_EQ(S_OK, CreateStreamOnHGlobal(nullptr, TRUE, &stream));
  ASSERT_EQ(S_OK, CoMarshalInterface(stream, IID_IDispatch, exposer, MSHCTX_LOCAL, nullptr, MSHLFLAGS_NORMAL));
  exposer->Release();
  EXPECT_EQ(0, marshaled.wrappersDestroyed) << "the stub keeps the exposer alive";
  ASSERT_NE(nullptr, host_->Wrap(L"FxDerived", &kept1));  // kept: never released
  ASSERT_NE(nullptr, host_->Wrap(L"FxBase", &kept2));

  const std::vector<std::string> warnings = UnloadAndReadWarnings();
  EXPECT_EQ(2, marshaled.wrappersDestroyed) << "disconnecting the stub destroys the exposer at unload";
  EXPECT_EQ(0, kept1.wrappersDestroyed) << "abandoned objects are neither released nor freed";
  EXPECT_EQ(0, kept2.wrappersDestroyed);
  EXPECT_EQ(std::vector<std::string>{"WARNING! 2 object are not removed from stub manager during 1000 ms!"}, warnings);
  stream->Release();  // the marshal data is never released: the stub is gone with the object
}

TEST_F(UnloadTest, RegisteredAddressIsCalledOnlyWhileItHoldsItsObject) {
  long callsToLive = 0, callsToOld = 0, callsToNew = 0;
  CountingObject<1> live(&callsToLive);
  alignas(CountingObject<1>) unsigned char memory[sizeof(CountingObject<1>) + sizeof(CountingObject<2>)];
  auto* old = new (memory) CountingObject<1>(&callsToOld);
  ASSERT_EQ(S_OK, Register(&live));
  ASSERT_EQ(S_OK, Register(old));
  // The registered object dies and another kind of object reuses its memory.
  old->~CountingObject<1>();
  new (memory) CountingObject<2>(&callsToNew);
  callsToLive = callsToOld = 0;

  const std::vector<std::string> warnings = UnloadAndReadWarnings();
  EXPECT_GT(callsToLive, 0) << "a registered object that is still there is disconnected";
  EXPECT_EQ(0, callsToOld);
  EXPECT_EQ(0, callsToNew) << "an address that no longer holds its object must not be called";
  // The live object never leaves by itself; the dead entry was dropped before the wait.
  EXPECT_EQ(std::vector<std::string>{"WARNING! 1 object are not removed from stub manager during 1000 ms!"}, warnings);
}

}  // namespace
