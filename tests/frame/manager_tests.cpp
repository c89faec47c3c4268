// Wrappers managers at the DLL boundary: their faces, the chain of type-name
// tests and the dispatch sink.
#include <gtest/gtest.h>

#include <fstream>
#include <string>

#include "HostSupport.h"

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
    ASSERT_EQ(S_OK,
              manager_->QueryInterface(IID_IkwQtDispatchNotificator, reinterpret_cast<void**>(&notificator_)));
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
  const wchar_t* names[] = {L"QObject",  L"qsize",  L"QSize ", L" QSize", L"QSIZE", L"",
                            L"QList< QString >", L"QList<QString >", L"QFlags<Qt::WindowType>",
                            L"QMap<QString, QVariant>", nullptr};
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
  // Every name of the catalogue's list is known to the chain; the exposers
  // that answer them come with the generated wrappers. Until a DLL carries an
  // exposer for a name, the name answers E_NOINTERFACE like an unknown one,
  // and a one-character change to a known name never matches.
  std::ifstream names(KW_KNOWN_TYPE_NAMES);
  ASSERT_TRUE(names.good()) << KW_KNOWN_TYPE_NAMES;
  LoadedLibrary library;
  IUnknown* module = nullptr;
  ASSERT_EQ(S_OK, library.entry()(reinterpret_cast<void**>(&module)));
  IWrappersModule* wrappers = nullptr;
  module->QueryInterface(IID_IWrappersModule, reinterpret_cast<void**>(&wrappers));
  IUnknown* managerUnknown = nullptr;
  wrappers->CreateWrappersManager(&managerUnknown);
  IWrappersManager* manager = nullptr;
  managerUnknown->QueryInterface(IID_IWrappersManager, reinterpret_cast<void**>(&manager));

  std::string line;
  int count = 0;
  while (std::getline(names, line)) {
    if (line.empty()) continue;
    ++count;
    std::wstring name(line.begin(), line.end());
    for (const std::wstring& variant : {name + L" ", name.substr(0, name.size() - 1)}) {
      IDispatch* result = reinterpret_cast<IDispatch*>(0x77);
      int instance = 0;
      EXPECT_EQ(E_NOINTERFACE, manager->CreateWrapper(variant.c_str(), &instance, &result)) << line;
      EXPECT_EQ(reinterpret_cast<IDispatch*>(0x77), result);
    }
  }
  EXPECT_EQ(570, count);
  manager->Release();
  managerUnknown->Release();
  wrappers->Release();
  module->Release();
}
