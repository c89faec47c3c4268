// Wrappers managers at the DLL boundary: their faces, the chain of type-name
// tests and the dispatch sink.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <map>
#include <sstream>
#include <vector>
#include <string>

#include "HostSupport.h"
#include "ManagerHost.h"

using kwtest::LoadedLibrary;
using kwtest::RecordingSink;
using kwtest::RefCountOf;

namespace {

class ManagerTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(library_.loaded());
    IUnknown* module = nullptr;
    ASSERT_EQ(S_OK, library_.entry()(reinterpret_cast<void**>(&module)));
    IWrappersModule* wrappers = nullptr;
    ASSERT_EQ(S_OK, module->QueryInterface(IID_IWrappersModule, reinterpret_cast<void**>(&wrappers)));
    ASSERT_EQ(S_OK, wrappers->CreateWrappersManager(&manager_));
    ASSERT_EQ(S_OK, manager_->QueryInterface(IID_IWrappersManager, reinterpret_cast<void**>(&wrappersManager_)));
    ASSERT_EQ(S_OK, manager_->QueryInterface(IID_IkwQtDispatchNotificator, reinterpret_cast<void**>(&notificator_)));
    wrappers->Release();
    module->Release();
  }
  void TearDown() override {
    if (notificator_ != nullptr) notificator_->Release();
    if (wrappersManager_ != nullptr) wrappersManager_->Release();
    if (manager_ != nullptr) {
      EXPECT_EQ(0u, manager_->Release());
    }
  }

  // CreateWrapper with a result preset to a marker, so that "untouched" is visible.
  HRESULT CreateWrapper(const wchar_t* name, bool* resultUntouched) {
    IDispatch* marker = reinterpret_cast<IDispatch*>(0x5A5A5A5A);
    IDispatch* result = marker;
    int instance = 7;
    HRESULT hr = wrappersManager_->CreateWrapper(name, &instance, &result);
    *resultUntouched = result == marker;
    return hr;
  }

  LoadedLibrary library_;
  IUnknown* manager_ = nullptr;
  IWrappersManager* wrappersManager_ = nullptr;
  IkwQtDispatchNotificator* notificator_ = nullptr;
};

}  // namespace

TEST_F(ManagerTest, FacesAndIdentity) {
  EXPECT_EQ(static_cast<void*>(manager_), static_cast<void*>(notificator_)) << "first face is the identity";
  IUnknown* fromSecond = nullptr;
  ASSERT_EQ(S_OK, wrappersManager_->QueryInterface(IID_IUnknown, reinterpret_cast<void**>(&fromSecond)));
  EXPECT_EQ(manager_, fromSecond);
  fromSecond->Release();
  void* other = reinterpret_cast<void*>(1);
  EXPECT_EQ(E_NOINTERFACE, manager_->QueryInterface(IID_IWrappersModule, &other));
  EXPECT_EQ(nullptr, other);
  EXPECT_EQ(E_POINTER, wrappersManager_->QueryInterface(IID_IWrappersManager, nullptr));
  EXPECT_EQ(3u, RefCountOf(manager_));
}

TEST_F(ManagerTest, UnknownNamesGiveNoInterfaceAndLeaveTheResult) {
  const wchar_t* names[] = {L"QObject",
                            L"qsize",
                            L"QSize ",
                            L" QSize",
                            L"QSIZE",
                            L"",
                            L"QList< QString >",
                            L"QList<QString >",
                            L"QFlags<Qt::WindowType>",
                            L"QMap<QString, QVariant>",
                            nullptr};
  for (const wchar_t* name : names) {
    bool untouched = false;
    EXPECT_EQ(E_NOINTERFACE, CreateWrapper(name, &untouched)) << (name ? name : L"<null>");
    EXPECT_TRUE(untouched) << (name ? name : L"<null>");
  }
}

TEST_F(ManagerTest, SinkIsHeldReplacedAndClearedButHostRequestsBypassIt) {
  RecordingSink first(E_ACCESSDENIED), second;
  EXPECT_EQ(S_OK, notificator_->SetDispatchSink(&first));
  EXPECT_EQ(2, first.refs());

  bool untouched = false;
  EXPECT_EQ(E_NOINTERFACE, CreateWrapper(L"NoSuchType", &untouched)) << "host requests run the chain";
  EXPECT_TRUE(first.calls.empty());

  EXPECT_EQ(S_OK, notificator_->SetDispatchSink(&second));
  EXPECT_EQ(1, first.refs());
  EXPECT_EQ(2, second.refs());
  EXPECT_EQ(S_OK, notificator_->SetDispatchSink(&second));
  EXPECT_EQ(2, second.refs()) << "installing the same sink again keeps one reference";

  EXPECT_EQ(S_OK, notificator_->SetDispatchSink(nullptr));
  EXPECT_EQ(1, second.refs());
  EXPECT_EQ(S_OK, notificator_->SetDispatchSink(nullptr));

  EXPECT_EQ(S_OK, notificator_->SetDispatchSink(&first));
  notificator_->Release();
  notificator_ = nullptr;
  wrappersManager_->Release();
  wrappersManager_ = nullptr;
  EXPECT_EQ(0u, manager_->Release());
  manager_ = nullptr;
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
    std::string wrapper;
    UINT count = 0;
    while (fields >> wrapper) ++count;
    composed[std::wstring(line.begin(), line.begin() + line.find('\t'))] = count;
  }
  std::vector<std::wstring> known;
  for (std::string line; std::getline(names, line);)
    if (!line.empty()) known.emplace_back(line.begin(), line.end());
  ASSERT_EQ(570u, known.size());

  LoadedLibrary library;
  IUnknown* module = nullptr;
  ASSERT_EQ(S_OK, library.entry()(reinterpret_cast<void**>(&module)));
  IWrappersModule* wrappers = nullptr;
  module->QueryInterface(IID_IWrappersModule, reinterpret_cast<void**>(&wrappers));
  IUnknown* managerUnknown = nullptr;
  wrappers->CreateWrappersManager(&managerUnknown);
  IWrappersManager* manager = nullptr;
  managerUnknown->QueryInterface(IID_IWrappersManager, reinterpret_cast<void**>(&manager));

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
      EXPECT_EQ(&instance, kwtest::InstanceOf(exposer)) << shown;
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
  manager->Release();
  managerUnknown->Release();
  wrappers->Release();
  module->Release();
}
