// Unloading the library while objects are alive: the stub manager
// disconnects exposers held by stubs, reports the ones the host keeps, and
// drops registered addresses that no longer hold their object.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <optional>
#include <regex>
#include <string>
#include <vector>

#include "../trace/DebugOutputCapture.h"
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

// An object whose QueryInterface entry points at memory that cannot be read:
// the stub manager must refuse it before COM would call it.
struct UnreadableEntryObject {
  static ULONG STDMETHODCALLTYPE Count(void*) { return ++calls, 1; }
  static inline long calls = 0;
  void* table[3] = {};
  void* const* object = table;  // what an IUnknown* points at: its table
  explicit UnreadableEntryObject(void* unreadable) {
    table[0] = unreadable;
    table[1] = table[2] = reinterpret_cast<void*>(&Count);
  }
  IUnknown* get() { return reinterpret_cast<IUnknown*>(&object); }
};

// The messages of a trace file's lines, in order (the blank lines that
// separate blocks left out).
std::vector<std::string> TraceMessages(const fs::path& file) {
  static const std::regex line(R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} +\d+   (.*))");
  std::vector<std::string> messages;
  std::ifstream in(file);
  for (std::string text; std::getline(in, text);) {
    if (!text.empty() && text.back() == '\r') text.pop_back();
    if (text.empty()) continue;
    std::smatch match;
    messages.push_back(std::regex_match(text, match, line) ? match[1].str() : "not a trace line: " + text);
  }
  return messages;
}

// Whether the trace file may hold the message: a header line, the closing
// line or one of the stub manager's two reports. Nothing else belongs there.
bool BelongsInTraceFile(const std::string& message) {
  static const char* const header[] = {"The beginning of the trace file.", "Process information:", "    Name:     ",
                                       "    PID:      ", "    Priority: ", "    Session:  ", "    Host:     ",
                                       "    CmdLine:  ", "    OS:       ", "Module information:", "    Path:     "};
  for (const char* start : header)
    if (message.rfind(start, 0) == 0 && (start[0] == ' ' || message == start)) return true;
  static const std::regex report(
      "The end of the trace file\\.|Exception in SafeCoDisconnectObject, pUnk = 0x[0-9A-F]{16}|"
      "WARNING! \\d+ object are not removed from stub manager during \\d+ ms!");
  return std::regex_match(message, report);
}

// The library loaded with tracing into a folder of its own.
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
    host_.emplace(kFixtureDll);
    ASSERT_TRUE(host_->ready());
  }
  void TearDown() override {
    RegDeleteKeyValueW(HKEY_CURRENT_USER, L"SOFTWARE\\Quillmoor", L"DebugTraceFolder");
    std::error_code ignored;
    fs::remove_all(folder_, ignored);
    CoUninitialize();
  }

  fs::path folder_;
  std::optional<ManagerHost> host_;  // loaded once the trace folder is set
};

TEST_F(UnloadTest, StubHeldExposersGoDeadAddressesAreSkippedAndTheRestIsReportedOnce) {
  // An exposer only a stub holds, and two the host keeps: never released.
  FxCounter marshaled, kept1, kept2;
  IDispatch* exposer = host_->Wrap(L"FxDerived", &marshaled);
  ASSERT_NE(nullptr, exposer);
  IStream* stream = nullptr;
  ASSERT_EQ(S_OK, CreateStreamOnHGlobal(nullptr, TRUE, &stream));
  ASSERT_EQ(S_OK, CoMarshalInterface(stream, IID_IDispatch, exposer, MSHCTX_LOCAL, nullptr, MSHLFLAGS_NORMAL));
  exposer->Release();
  EXPECT_EQ(0, marshaled.wrappersDestroyed) << "the stub keeps the exposer alive";
  ASSERT_NE(nullptr, host_->Wrap(L"FxDerived", &kept1));
  IDispatch* keptBase = host_->Wrap(L"FxBase", &kept2);
  ASSERT_NE(nullptr, keptBase);
  // Two host objects registered through a member: one lives on, the other
  // dies and another kind of object reuses its memory.
  long callsToLive = 0, callsToOld = 0, callsToNew = 0;
  CountingObject<1> live(&callsToLive);
  alignas(CountingObject<1>) unsigned char memory[sizeof(CountingObject<1>) + sizeof(CountingObject<2>)];
  auto* old = new (memory) CountingObject<1>(&callsToOld);
  // A second registration of the same object changes nothing; an object
  // with an unreadable entry is registered but never called.
  void* noAccess = VirtualAlloc(nullptr, 4096, MEM_COMMIT | MEM_RESERVE, PAGE_NOACCESS);
  ASSERT_NE(nullptr, noAccess);
  UnreadableEntryObject unreadable(noAccess);
  for (IUnknown* object :
       {static_cast<IUnknown*>(&live), static_cast<IUnknown*>(old), static_cast<IUnknown*>(&live), unreadable.get()}) {
    VARIANT argument;
    V_VT(&argument) = VT_UNKNOWN;
    V_UNKNOWN(&argument) = object;
    ASSERT_EQ(S_OK, CallByName(keptBase, L"FxBase_register", {argument}));
  }
  // A DISPID no composed wrapper answers is told to the debugger, and the
  // trace file does not grow by it.
  const std::vector<fs::path> logs{fs::directory_iterator(folder_), fs::directory_iterator()};
  ASSERT_EQ(1u, logs.size()) << "one trace file per load";
  const auto traceBytes = fs::file_size(logs[0]);
  tracetest::DebugOutputCapture debugger;
  EXPECT_EQ(DISP_E_MEMBERNOTFOUND, InvokeWith(keptBase, 4711, DISPATCH_METHOD, {}));
  const std::vector<tracetest::DebugText> heard = debugger.Stop();
  EXPECT_EQ(traceBytes, fs::file_size(logs[0])) << "a dispatch miss wrote to the trace file";
  std::vector<std::string> misses;
  for (const auto& text : heard)
    if (text.text.find("Invoke: ") != std::string::npos) misses.push_back(text.text.substr(text.text.find("answers")));
  EXPECT_EQ(std::vector<std::string>{"answers DISPID 0x00001267 (flags 0x1)"}, misses);
  old->~CountingObject<1>();
  new (memory) CountingObject<2>(&callsToNew);
  callsToLive = callsToOld = 0;
  UnreadableEntryObject::calls = 0;
  // What one CoDisconnectObject does to such an object, on one of the same class.
  long callsOfOneDisconnect = 0;
  CountingObject<1> probe(&callsOfOneDisconnect);
  const HRESULT probeAnswer = CoDisconnectObject(&probe, 0);

  host_->Unload();
  stream->Release();  // the marshal data is never released: the stub is gone with the object
  EXPECT_EQ(2, marshaled.wrappersDestroyed) << "disconnecting the stub destroys the exposer at unload";
  EXPECT_EQ(0, kept1.wrappersDestroyed) << "abandoned objects are neither released nor freed";
  EXPECT_EQ(0, kept2.wrappersDestroyed);
  // The stub manager itself neither references nor queries a registered
  // object: each pass makes one CoDisconnectObject, and an object it
  // disconnected stays registered for the second pass.
  EXPECT_EQ(callsOfOneDisconnect * (probeAnswer == S_OK ? 2 : 1), callsToLive)
      << "one CoDisconnectObject per pass, nothing else (one disconnect makes " << callsOfOneDisconnect << " calls)";
  EXPECT_EQ(0, UnreadableEntryObject::calls) << "an object with an unreadable entry is dropped uncalled";
  VirtualFree(noAccess, 0, MEM_RELEASE);
  EXPECT_EQ(0, callsToOld);
  EXPECT_EQ(0, callsToNew) << "an address that no longer holds its object must not be called";

  // The one trace file of the load holds its header, the report of the
  // kept exposers and the live object, which never leave by themselves (the
  // dead entry was dropped before the wait), and the closing line: nothing
  // else.
  const std::vector<std::string> messages = TraceMessages(logs[0]);
  std::vector<std::string> warnings;
  for (const std::string& message : messages) {
    EXPECT_TRUE(BelongsInTraceFile(message)) << "does not belong in the trace file: " << message;
    if (message.rfind("WARNING!", 0) == 0) warnings.push_back(message);
    EXPECT_EQ(std::string::npos, message.find("Exception in SafeCoDisconnectObject")) << message;
  }
  EXPECT_EQ(std::vector<std::string>{"WARNING! 3 object are not removed from stub manager during 1000 ms!"}, warnings);
  ASSERT_FALSE(messages.empty());
  EXPECT_EQ("The beginning of the trace file.", messages.front());
  EXPECT_EQ("The end of the trace file.", messages.back());
}

// Open handles of the process. Wine's handle count answers 0, so each
// possible handle value is asked for its flags.
unsigned OpenHandles() {
  unsigned open = 0;
  for (std::uintptr_t value = 4; value < 0x10000; value += 4) {
    DWORD flags = 0;
    if (GetHandleInformation(reinterpret_cast<HANDLE>(value), &flags)) ++open;
  }
  return open;
}

// An unload that waits for survivors makes its wait event then; none may
// stay open. Load and unload leave some handles of their own behind under
// Wine (the thread data of the unloaded runtime), as many with survivors as
// without: the handles one more load and unload leaves open are compared.
TEST_F(UnloadTest, WaitingForSurvivorsLeavesNoHandleOpen) {
  host_.reset();
  auto handlesLeftByOneMoreLoad = [](bool keepAnObject) {
    std::vector<unsigned> open;
    for (int load = 0; load < 3; ++load) {
      FxCounter counter;
      ManagerHost host(kFixtureDll);
      EXPECT_TRUE(host.ready());
      IDispatch* exposer = host.Wrap(L"FxBase", &counter);
      EXPECT_NE(nullptr, exposer);
      if (exposer != nullptr && !keepAnObject) exposer->Release();  // else held past the unload
      host.Unload();
      open.push_back(OpenHandles());
    }
    return open[2] - open[1];
  };
  const unsigned withoutSurvivors = handlesLeftByOneMoreLoad(false);
  EXPECT_EQ(0u, withoutSurvivors) << "a load, an object and an unload left handles open";
  EXPECT_EQ(withoutSurvivors, handlesLeftByOneMoreLoad(true)) << "the wait for a survivor left a handle open";
}

}  // namespace
