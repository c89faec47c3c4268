// Unloading the library while objects are alive: the stub manager
// disconnects exposers held by stubs, reports the ones the host keeps, and
// drops registered addresses that no longer hold their object.
#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "FixtureHost.h"

using namespace fxtest;

namespace {

constexpr const wchar_t kQuillmoorKey[] = L"SOFTWARE\\Quillmoor";
constexpr const wchar_t kFolderValue[] = L"DebugTraceFolder";

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
  STDMETHOD_(ULONG, AddRef)() override {
    ++*calls_;
    return 2;
  }
  STDMETHOD_(ULONG, Release)() override {
    ++*calls_;
    return 1;
  }

 private:
  long* calls_;
};

std::string ReadFile(const std::wstring& path);

class UnloadTest : public ::testing::Test {
 protected:
  void SetUp() override {
    CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    wchar_t temp[MAX_PATH] = L"";
    GetTempPathW(MAX_PATH, temp);
    folder_ = std::wstring(temp) + L"kw_runtime_unload_" + std::to_wstring(GetCurrentProcessId());
    CreateDirectoryW(folder_.c_str(), nullptr);
    RemoveLogs();
    HKEY key = nullptr;
    ASSERT_EQ(ERROR_SUCCESS,
              RegCreateKeyExW(HKEY_CURRENT_USER, kQuillmoorKey, 0, nullptr, 0, KEY_SET_VALUE, nullptr, &key, nullptr));
    const LONG rc = RegSetValueExW(key, kFolderValue, 0, REG_SZ, reinterpret_cast<const BYTE*>(folder_.c_str()),
                                   static_cast<DWORD>((folder_.size() + 1) * sizeof(wchar_t)));
    RegCloseKey(key);
    ASSERT_EQ(ERROR_SUCCESS, rc);
  }
  void TearDown() override {
    HKEY key = nullptr;
    if (RegOpenKeyExW(HKEY_CURRENT_USER, kQuillmoorKey, 0, KEY_SET_VALUE, &key) == ERROR_SUCCESS) {
      RegDeleteValueW(key, kFolderValue);
      RegCloseKey(key);
    }
    RemoveLogs();
    RemoveDirectoryW(folder_.c_str());
    CoUninitialize();
  }

  std::vector<std::wstring> Logs() {
    std::vector<std::wstring> found;
    WIN32_FIND_DATAW data;
    HANDLE search = FindFirstFileW((folder_ + L"\\*.log").c_str(), &data);
    if (search == INVALID_HANDLE_VALUE) return found;
    do found.push_back(folder_ + L"\\" + data.cFileName);
    while (FindNextFileW(search, &data));
    FindClose(search);
    return found;
  }
  void RemoveLogs() {
    for (const std::wstring& log : Logs()) DeleteFileW(log.c_str());
  }

  // The lines of the one trace file the library wrote that contain `text`.
  std::vector<std::string> TraceLinesWith(const std::string& text) {
    std::vector<std::string> lines;
    const std::vector<std::wstring> logs = Logs();
    EXPECT_EQ(1u, logs.size()) << "one trace file per load";
    if (logs.empty()) return lines;
    std::istringstream file(ReadFile(logs[0]));
    std::string line;
    while (std::getline(file, line))
      if (line.find(text) != std::string::npos) lines.push_back(line);
    return lines;
  }

  // Registers `object` with the stub manager through a fixture member.
  static HRESULT Register(IDispatch* exposer, IUnknown* object) {
    DISPID id = 0;
    HRESULT hr = IdOf(exposer, L"FxBase_register", &id);
    if (FAILED(hr)) return hr;
    VARIANT argument;
    VariantInit(&argument);
    V_VT(&argument) = VT_UNKNOWN;
    V_UNKNOWN(&argument) = object;
    DISPPARAMS params{&argument, nullptr, 1, 0};
    return exposer->Invoke(id, IID_NULL, 0, DISPATCH_METHOD, &params, nullptr, nullptr, nullptr);
  }

  std::wstring folder_;
};

std::string ReadFile(const std::wstring& path) {
  std::string bytes;
  HANDLE file =
      CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING, 0, nullptr);
  if (file == INVALID_HANDLE_VALUE) return bytes;
  char buffer[4096];
  DWORD read = 0;
  while (::ReadFile(file, buffer, sizeof(buffer), &read, nullptr) && read > 0) bytes.append(buffer, read);
  CloseHandle(file);
  return bytes;
}

bool EndsWith(const std::string& line, const std::string& tail) {
  std::string trimmed = line;
  while (!trimmed.empty() && (trimmed.back() == '\r' || trimmed.back() == '\n')) trimmed.pop_back();
  return trimmed.size() >= tail.size() && trimmed.compare(trimmed.size() - tail.size(), tail.size(), tail) == 0;
}

}  // namespace

TEST_F(UnloadTest, ExposerHeldByAStubIsDisconnectedAndDestroyed) {
  FxCounter counter;
  IStream* stream = nullptr;
  {
    FixtureHost host;
    ASSERT_TRUE(host.ready());
    IDispatch* exposer = host.Wrap(L"FxDerived", &counter);
    ASSERT_NE(nullptr, exposer);
    ASSERT_EQ(S_OK, CreateStreamOnHGlobal(nullptr, TRUE, &stream));
    ASSERT_EQ(S_OK, CoMarshalInterface(stream, IID_IDispatch, exposer, MSHCTX_LOCAL, nullptr, MSHLFLAGS_NORMAL));
    exposer->Release();
    EXPECT_EQ(0, counter.wrappersDestroyed) << "the stub keeps the exposer alive";
    host.Unload();
  }
  EXPECT_EQ(2, counter.wrappersDestroyed) << "disconnecting the stub destroys the exposer at unload";
  EXPECT_TRUE(TraceLinesWith("WARNING!").empty());
  stream->Release();  // the marshal data is never released: the stub is gone with the object
}

TEST_F(UnloadTest, ObjectsTheHostKeepsAreReportedOnce) {
  FxCounter first;
  FxCounter second;
  {
    FixtureHost host;
    ASSERT_TRUE(host.ready());
    IDispatch* kept1 = host.Wrap(L"FxDerived", &first);
    IDispatch* kept2 = host.Wrap(L"FxBase", &second);
    ASSERT_NE(nullptr, kept1);
    ASSERT_NE(nullptr, kept2);
    FxCounter released;
    IDispatch* gone = host.Wrap(L"FxBase", &released);
    ASSERT_NE(nullptr, gone);
    gone->Release();
    host.Unload();  // kept1 and kept2 are never released
  }
  const std::vector<std::string> warnings = TraceLinesWith("WARNING!");
  ASSERT_EQ(1u, warnings.size());
  EXPECT_TRUE(EndsWith(warnings[0], "WARNING! 2 object are not removed from stub manager during 1000 ms!"))
      << warnings[0];
  EXPECT_EQ(0, first.wrappersDestroyed) << "abandoned objects are neither released nor freed";
  EXPECT_EQ(0, second.wrappersDestroyed);
}

TEST_F(UnloadTest, DeadObjectIsDroppedByItsFingerprintWithoutACall) {
  long callsToOld = 0;
  long callsToNew = 0;
  alignas(CountingObject<1>) unsigned char memory[sizeof(CountingObject<1>) + sizeof(CountingObject<2>)];
  {
    FixtureHost host;
    ASSERT_TRUE(host.ready());
    FxCounter counter;
    IDispatch* exposer = host.Wrap(L"FxBase", &counter);
    ASSERT_NE(nullptr, exposer);
    auto* old = new (memory) CountingObject<1>(&callsToOld);
    ASSERT_EQ(S_OK, Register(exposer, old));
    EXPECT_EQ(0u, exposer->Release());
    // The registered object dies and its memory is reused by another kind of object.
    old->~CountingObject<1>();
    new (memory) CountingObject<2>(&callsToNew);
    callsToOld = 0;
    host.Unload();
  }
  EXPECT_EQ(0, callsToOld);
  EXPECT_EQ(0, callsToNew) << "an address that no longer holds its object must not be called";
  EXPECT_TRUE(TraceLinesWith("WARNING!").empty()) << "the dead entry is gone before the wait";
}

TEST_F(UnloadTest, LiveRegisteredObjectIsDisconnected) {
  // The counterpart of the test above: the same object left in place is called.
  long calls = 0;
  CountingObject<1> object(&calls);
  {
    FixtureHost host;
    ASSERT_TRUE(host.ready());
    FxCounter counter;
    IDispatch* exposer = host.Wrap(L"FxBase", &counter);
    ASSERT_NE(nullptr, exposer);
    ASSERT_EQ(S_OK, Register(exposer, &object));
    EXPECT_EQ(0u, exposer->Release());
    calls = 0;
    host.Unload();
  }
  EXPECT_GT(calls, 0) << "CoDisconnectObject reaches a registered object that is still there";
}
