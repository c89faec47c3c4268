// The sample's exposers under load: eight threads sharing one exposer, eight
// threads with objects of their own, then the unload, with the trace on; and
// twenty thousand random, mostly wrong, calls.
#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "DispatchStress.h"
#include "kwsample/SWidget.h"

namespace {

using kwhost::I4;
using kwhost::Result;

std::wstring TraceFolder() { return kwhost::ProgramFolder() + L"stress_trace"; }

// Everything the trace folder holds, files in any order.
std::string TraceText() {
  std::string text;
  for (const auto& file : std::filesystem::directory_iterator(TraceFolder())) {
    std::ifstream in(file.path(), std::ios::binary);
    text.append(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
  }
  return text;
}

bool IsI4(const Result& r, LONG value) { return V_VT(&r.value) == VT_I4 && V_I4(&r.value) == value; }

TEST(StressTest, ThreadsShareOneExposerThenUseTheirOwnThenUnloadCleanly) {
  std::filesystem::remove_all(TraceFolder());
  std::filesystem::create_directories(TraceFolder());
  const std::wstring folder = TraceFolder();
  ASSERT_EQ(ERROR_SUCCESS, RegSetKeyValueW(HKEY_CURRENT_USER, L"SOFTWARE\\Quillmoor", L"DebugTraceFolder", REG_SZ,
                                           folder.c_str(), static_cast<DWORD>((folder.size() + 1) * sizeof(wchar_t))));
  {
    kwhost::ManagerHost host(L"kwSampleWrappers.dll");
    ASSERT_TRUE(host.ready());
    SPushButton shared;
    shared.setText("shared");
    shared.setEnabled(true);
    shared.resize(30, 40);
    auto instance = [](const Result& r) { return r.object() ? kwhost::InstanceOf(r.object()) : nullptr; };
    std::vector<kwtest::Probe> probes = {
        {L"SWidget_isEnabled", {}, [](const Result& r) { return IsI4(r, 1); }},
        {L"SPushButton_isDefault", {}, [](const Result& r) { return IsI4(r, 0); }},
        {L"SAbstractButton_text",
         {},
         [&](const Result& r) {
           return instance(r) && static_cast<SString*>(instance(r))->data() == std::string("shared");
         }},
        {L"SWidget_size",
         {},
         [&](const Result& r) { return instance(r) && static_cast<SSize*>(instance(r))->width() == 30; }},
    };
    // More members, more routes recorded at once.
    for (const wchar_t* getter :
         {L"SWidget_opacity", L"SWidget_zoom", L"SWidget_serial", L"SWidget_shortcutKey", L"SWidget_mnemonic",
          L"SWidget_alignment", L"SWidget_instanceNumber", L"SAbstractButton_isChecked", L"SAbstractButton_checkState",
          L"SAbstractButton_clickCount", L"SAbstractButton_lastAnimation", L"SAbstractButton_iconSize",
          L"SWidget_windowFlagBits"})
      probes.push_back({getter, {}, [](const Result&) { return true; }});
    // A fresh exposer each time, so that its first routes are recorded by
    // eight threads at once.
    for (int fresh = 0; fresh < 100; ++fresh) {
      IDispatch* exposer = host.Wrap(L"SPushButton", &shared);
      ASSERT_NE(nullptr, exposer);
      EXPECT_EQ(0, kwtest::HammerExposer(exposer, probes, 8, 4));
      EXPECT_EQ(0u, exposer->Release());
    }
    EXPECT_EQ(0, kwtest::HammerOwnObjects<SPushButton>(
                     host, L"SPushButton", 8, 300, [](IDispatch* mine, SPushButton& own, int value) {
                       return kwhost::CallByName(mine, L"SWidget_resize_2", {I4(value), I4(1)}) == S_OK &&
                              kwhost::CallByName(mine, L"SAbstractButton_setChecked", {I4(value & 1)}) == S_OK &&
                              own.size().width() == value && own.isChecked() == ((value & 1) != 0);
                     }));
  }  // unload
  RegDeleteKeyValueW(HKEY_CURRENT_USER, L"SOFTWARE\\Quillmoor", L"DebugTraceFolder");
  const std::string trace = TraceText();
  EXPECT_NE(std::string::npos, trace.find("The end of the trace file.")) << "the trace was written and closed";
  EXPECT_EQ(std::string::npos, trace.find("WARNING!")) << trace;
}

TEST(FuzzTest, RandomCallsGiveDispatchErrorsNeverAFault) {
  kwhost::ManagerHost host(L"kwSampleWrappers.dll");
  ASSERT_TRUE(host.ready());
  SString text("12");
  SSize size(3, 4);
  SPushButton button;
  SFrame frame;
  std::vector<IDispatch*> exposers = {host.Wrap(L"SString", &text), host.Wrap(L"SSize", &size),
                                      host.Wrap(L"SPushButton", &button), host.Wrap(L"SFrame", &frame)};
  kwtest::FuzzTally tally = kwtest::FuzzExposers(exposers, 20000, 20261123, {L"_DTOR_"});
  std::printf("fuzz: %d calls, %d answered S_OK\n", tally.calls, tally.succeeded);
  EXPECT_EQ(20000, tally.calls);
  EXPECT_EQ(0, tally.unexpected);
  EXPECT_GT(tally.succeeded, 2000) << "the run reached the members, not only their errors";

  // A known-good call still works, and every reference goes.
  Result enabled;
  EXPECT_EQ(S_OK, kwhost::CallByName(exposers[2], L"SWidget_setEnabled", {I4(1)}));
  EXPECT_EQ(S_OK, kwhost::CallByName(exposers[2], L"SWidget_isEnabled", {}, &enabled.value));
  EXPECT_TRUE(IsI4(enabled, 1));
  for (IDispatch* exposer : exposers) EXPECT_EQ(0u, exposer->Release());
}

}  // namespace
