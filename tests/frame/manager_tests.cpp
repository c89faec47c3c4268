// Wrappers managers at the DLL boundary: their faces, the chain of type-name
// tests and the dispatch sink.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "host/ManagerHost.h"

using kwhost::RecordingSink;
using kwhost::RefCountOf;

namespace {

class ManagerTest : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(host_.ready()); }

  // CreateWrapper with a marker in the result, so that "untouched" shows.
  HRESULT CreateWrapper(const wchar_t* name, bool* resultUntouched) {
    IDispatch* const marker = reinterpret_cast<IDispatch*>(0x5A5A5A5A);
    IDispatch* result = marker;
    int instance = 7;
    HRESULT hr = host_.manager()->CreateWrapper(name, &instance, &result);
    *resultUntouched = result == marker;
    return hr;
  }

  kwhost::ManagerHost host_{L"kwQtWrappers.dll"};
};

TEST_F(ManagerTest, BothFacesShareTheFirstAsIdentity) {
  IUnknown* identity = nullptr;
  ASSERT_EQ(S_OK, host_.manager()->QueryInterface(IID_IUnknown, reinterpret_cast<void**>(&identity)));
  EXPECT_EQ(static_cast<IUnknown*>(host_.notificator()), identity);
  EXPECT_EQ(3u, RefCountOf(identity)) << "the host's two faces and this one";
  identity->Release();
  void* other = reinterpret_cast<void*>(1);
  EXPECT_EQ(E_NOINTERFACE, host_.notificator()->QueryInterface(IID_IWrappersModule, &other));
  EXPECT_EQ(nullptr, other);
  EXPECT_EQ(E_POINTER, host_.manager()->QueryInterface(IID_IWrappersManager, nullptr));
}

TEST_F(ManagerTest, UnknownNamesGiveNoInterfaceAndLeaveTheResult) {
  for (const wchar_t* name :
       {L"QObject", L"qsize", L"QSize ", L" QSize", L"QSIZE", L"", L"QList< QString >", L"QList<QString >",
        L"QFlags<Qt::WindowType>", L"QMap<QString, QVariant>", static_cast<const wchar_t*>(nullptr)}) {
    bool untouched = false;
    EXPECT_EQ(E_NOINTERFACE, CreateWrapper(name, &untouched)) << (name ? name : L"<null>");
    EXPECT_TRUE(untouched) << (name ? name : L"<null>");
  }
}

TEST_F(ManagerTest, SinkIsHeldReplacedAndClearedButHostRequestsBypassIt) {
  RecordingSink first(E_ACCESSDENIED), second;
  EXPECT_EQ(S_OK, host_.notificator()->SetDispatchSink(&first));
  EXPECT_EQ(2, first.refs());
  bool untouched = false;
  EXPECT_EQ(E_NOINTERFACE, CreateWrapper(L"NoSuchType", &untouched)) << "host requests run the chain";
  EXPECT_TRUE(first.calls.empty());

  const struct {
    IUnknown* sink;
    LONG first, second;  // references afterwards
  } steps[] = {{&second, 1, 2}, {&second, 1, 2}, {nullptr, 1, 1}, {nullptr, 1, 1}, {&first, 2, 1}};
  for (const auto& step : steps) {
    EXPECT_EQ(S_OK, host_.notificator()->SetDispatchSink(step.sink));
    EXPECT_EQ(step.first, first.refs());
    EXPECT_EQ(step.second, second.refs());
  }
  host_.Unload();
  EXPECT_EQ(1, first.refs()) << "a destroyed manager releases its sink";
}

TEST(ManagerChain, EveryKnownNameIsTestedExactly) {
  // Every name of the catalogue's list is known to the chain, exactly: a
  // one-character change to a known name never matches (unless it is itself
  // a known name: "QSize" and "QSizeF"). Built with the Qt wrappers, every
  // name gives an exposer composing as many wrappers as its composition
  // list; without them every name answers E_NOINTERFACE like an unknown one.
  std::ifstream names(KW_KNOWN_TYPE_NAMES), compositions(KW_COMPOSITIONS);
  ASSERT_TRUE(names.good()) << KW_KNOWN_TYPE_NAMES;
  ASSERT_TRUE(compositions.good()) << KW_COMPOSITIONS;
  std::map<std::wstring, UINT> composed;
  for (std::string line; std::getline(compositions, line);) {
    if (line.empty() || line[0] == '#') continue;
    std::istringstream fields(line.substr(line.find('\t') + 1));
    UINT count = 0;
    for (std::string wrapper; fields >> wrapper;) ++count;
    composed[std::wstring(line.begin(), line.begin() + line.find('\t'))] = count;
  }
  std::vector<std::wstring> known;
  for (std::string line; std::getline(names, line);)
    if (!line.empty()) known.emplace_back(line.begin(), line.end());
  ASSERT_EQ(570u, known.size());

  kwhost::ManagerHost host(L"kwQtWrappers.dll");
  ASSERT_TRUE(host.ready());
  IWrappersManager* manager = host.manager();
  int instance = 0;
  IDispatch* probe = nullptr;
  const bool withWrappers = manager->CreateWrapper(L"QString", &instance, &probe) == S_OK;
  if (probe != nullptr) probe->Release();
  std::printf("kwQtWrappers.dll %s its Qt wrapper classes\n", withWrappers ? "carries" : "was built without");
  for (const std::wstring& name : known) {
    const std::string shown(name.begin(), name.end());
    IDispatch* exposer = nullptr;
    HRESULT hr = manager->CreateWrapper(name.c_str(), &instance, &exposer);
    if (withWrappers) {
      EXPECT_EQ(S_OK, hr) << shown;
      UINT count = 0;
      if (exposer != nullptr) exposer->GetTypeInfoCount(&count);
      EXPECT_EQ(composed[name], count) << shown;
      EXPECT_EQ(&instance, kwhost::InstanceOf(exposer)) << shown;
    } else {
      EXPECT_EQ(E_NOINTERFACE, hr) << shown;
    }
    if (exposer != nullptr) exposer->Release();
    for (const std::wstring& variant : {name + L" ", name.substr(0, name.size() - 1)}) {
      if (std::find(known.begin(), known.end(), variant) != known.end()) continue;
      IDispatch* result = reinterpret_cast<IDispatch*>(0x77);
      EXPECT_EQ(E_NOINTERFACE, manager->CreateWrapper(variant.c_str(), &instance, &result)) << shown;
      EXPECT_EQ(reinterpret_cast<IDispatch*>(0x77), result);
    }
  }
}

}  // namespace
