// The module frame as a host sees it: the module interface object, its two
// faces, the listener lists and what happens to listeners at FreeLibrary.
#include <gtest/gtest.h>

#include "HostSupport.h"

using kwtest::LoadedLibrary;
using kwtest::RecordingListener;
using kwtest::RefCountOf;
using kwtest::UnloadCall;

namespace {

template <class T>
T* Query(IUnknown* object, const IID& iid) {
  T* face = nullptr;
  EXPECT_EQ(S_OK, object->QueryInterface(iid, reinterpret_cast<void**>(&face)));
  return face;
}

IUnknown* ModuleOf(const LoadedLibrary& library) {
  IUnknown* module = nullptr;
  EXPECT_EQ(S_OK, library.entry()(reinterpret_cast<void**>(&module)));
  return module;
}

}  // namespace

TEST(ModuleEntry, OneModuleObjectPerLoadAndItsOwnReference) {
  LoadedLibrary library;
  ASSERT_TRUE(library.loaded());
  ASSERT_NE(nullptr, library.entry());

  IUnknown* first = ModuleOf(library);
  IUnknown* second = ModuleOf(library);
  ASSERT_NE(nullptr, first);
  EXPECT_EQ(first, second);
  // Two host references plus the library's own.
  EXPECT_EQ(3u, RefCountOf(first));
  first->Release();
  EXPECT_EQ(1u, second->Release());

  EXPECT_EQ(E_POINTER, library.entry()(nullptr));
}

TEST(ModuleEntry, IdentityOfBothFaces) {
  LoadedLibrary library;
  IUnknown* module = ModuleOf(library);

  auto* listeners = Query<ImxModuleIntf>(module, IID_ImxModuleIntf);
  auto* wrappers = Query<IWrappersModule>(module, IID_IWrappersModule);
  ASSERT_NE(nullptr, listeners);
  ASSERT_NE(nullptr, wrappers);
  EXPECT_NE(static_cast<void*>(listeners), static_cast<void*>(wrappers));
  // The first face is the object's identity.
  EXPECT_EQ(static_cast<void*>(module), static_cast<void*>(listeners));

  IUnknown* fromListeners = Query<IUnknown>(listeners, IID_IUnknown);
  IUnknown* fromWrappers = Query<IUnknown>(wrappers, IID_IUnknown);
  EXPECT_EQ(module, fromListeners);
  EXPECT_EQ(module, fromWrappers);
  auto* back = Query<ImxModuleIntf>(wrappers, IID_ImxModuleIntf);
  EXPECT_EQ(listeners, back);

  void* other = reinterpret_cast<void*>(0x1234);
  EXPECT_EQ(E_NOINTERFACE, module->QueryInterface(IID_IDispatch, &other));
  EXPECT_EQ(nullptr, other);
  EXPECT_EQ(E_NOINTERFACE, module->QueryInterface(IID_IWrappersManager, &other));
  EXPECT_EQ(E_POINTER, wrappers->QueryInterface(IID_IUnknown, nullptr));

  for (IUnknown* face : {static_cast<IUnknown*>(back), fromWrappers, fromListeners, static_cast<IUnknown*>(wrappers),
                         static_cast<IUnknown*>(listeners), module})
    face->Release();
  EXPECT_EQ(1u, RefCountOf(module));
}

TEST(ModuleEntry, CreateWrappersManagerMakesDistinctManagers) {
  LoadedLibrary library;
  IUnknown* module = ModuleOf(library);
  auto* wrappers = Query<IWrappersModule>(module, IID_IWrappersModule);

  IUnknown* first = nullptr;
  IUnknown* second = nullptr;
  ASSERT_EQ(S_OK, wrappers->CreateWrappersManager(&first));
  ASSERT_EQ(S_OK, wrappers->CreateWrappersManager(&second));
  ASSERT_NE(nullptr, first);
  EXPECT_NE(first, second);
  EXPECT_EQ(1u, RefCountOf(first));
  EXPECT_EQ(E_POINTER, wrappers->CreateWrappersManager(nullptr));

  EXPECT_EQ(0u, first->Release());
  EXPECT_EQ(0u, second->Release());
  wrappers->Release();
  module->Release();
}

TEST(ModuleListeners, AddAndRemoveRules) {
  LoadedLibrary library;
  IUnknown* module = ModuleOf(library);
  auto* listeners = Query<ImxModuleIntf>(module, IID_ImxModuleIntf);
  std::vector<UnloadCall> log;
  RecordingListener listener(L"L", &log);

  EXPECT_EQ(S_OK, listeners->AddPrimaryListener(&listener));
  EXPECT_EQ(2, listener.refs());
  EXPECT_EQ(E_FAIL, listeners->AddPrimaryListener(&listener));
  EXPECT_EQ(2, listener.refs()) << "a refused duplicate must not take a reference";
  // The other list is independent.
  EXPECT_EQ(S_OK, listeners->AddSecondaryListener(&listener));
  EXPECT_EQ(3, listener.refs());

  RecordingListener stranger(L"S", &log);
  EXPECT_EQ(S_OK, listeners->RemovePrimaryListener(&stranger));
  EXPECT_EQ(S_OK, listeners->RemoveSecondaryListener(nullptr));
  EXPECT_EQ(S_OK, listeners->RemovePrimaryListener(nullptr));
  EXPECT_EQ(1, stranger.refs());
  EXPECT_EQ(3, listener.refs());

  EXPECT_EQ(S_OK, listeners->RemovePrimaryListener(&listener));
  EXPECT_EQ(2, listener.refs());
  EXPECT_EQ(S_OK, listeners->RemovePrimaryListener(&listener));
  EXPECT_EQ(2, listener.refs());
  EXPECT_EQ(S_OK, listeners->AddPrimaryListener(&listener)) << "a removed listener can be added again";
  EXPECT_EQ(S_OK, listeners->RemovePrimaryListener(&listener));
  EXPECT_EQ(S_OK, listeners->RemoveSecondaryListener(&listener));
  EXPECT_EQ(1, listener.refs());

  listeners->Release();
  module->Release();
  library.Unload();
  EXPECT_TRUE(log.empty()) << "removed listeners are not told about the unload";
}

TEST(ModuleListeners, NotifiedAtUnloadPrimaryFirstInOrderOfAddition) {
  std::vector<UnloadCall> log;
  RecordingListener a(L"A", &log), b(L"B", &log), c(L"C", &log), d(L"D", &log);
  ImxModuleIntf* moduleFace = nullptr;
  {
    LoadedLibrary library;
    IUnknown* module = ModuleOf(library);
    auto* listeners = Query<ImxModuleIntf>(module, IID_ImxModuleIntf);
    moduleFace = listeners;
    // Secondary listeners are added first, to show that list order, not
    // time of addition across lists, decides.
    ASSERT_EQ(S_OK, listeners->AddSecondaryListener(&c));
    ASSERT_EQ(S_OK, listeners->AddSecondaryListener(&a));
    ASSERT_EQ(S_OK, listeners->AddPrimaryListener(&b));
    ASSERT_EQ(S_OK, listeners->AddPrimaryListener(&a));
    ASSERT_EQ(S_OK, listeners->AddPrimaryListener(&d));
    ASSERT_EQ(E_FAIL, listeners->AddPrimaryListener(&d));
    listeners->Release();
    module->Release();
    EXPECT_TRUE(log.empty());
    ASSERT_TRUE(library.Unload());
  }
  std::vector<std::wstring> order;
  for (const UnloadCall& call : log) order.push_back(call.listener);
  EXPECT_EQ((std::vector<std::wstring>{L"B", L"A", L"D", L"C", L"A"}), order);
  for (const UnloadCall& call : log) {
    EXPECT_EQ(kwtest::ProgramFolder(), call.folder) << "the DLL lives next to the test program";
    EXPECT_EQ(moduleFace, call.module);
  }
  // The list entries and the notification's copies are all released.
  for (auto* listener : {&a, &b, &c, &d}) EXPECT_EQ(1, listener->refs());
}

TEST(ModuleListeners, ListenerMayRemoveItselfWhileNotified) {
  std::vector<UnloadCall> log;
  RecordingListener first(L"first", &log), leaving(L"leaving", &log), last(L"last", &log);
  leaving.RemoveSelfOnUnload(/*primary=*/true);
  {
    LoadedLibrary library;
    IUnknown* module = ModuleOf(library);
    auto* listeners = Query<ImxModuleIntf>(module, IID_ImxModuleIntf);
    listeners->AddPrimaryListener(&first);
    listeners->AddPrimaryListener(&leaving);
    listeners->AddPrimaryListener(&last);
    listeners->Release();
    module->Release();
  }
  ASSERT_EQ(3u, log.size());
  EXPECT_EQ(L"first", log[0].listener);
  EXPECT_EQ(L"leaving", log[1].listener);
  EXPECT_EQ(L"last", log[2].listener);
  // During its call the listener is held by the list and by the copy;
  // removing itself drops the list's reference, the copy's goes afterwards.
  EXPECT_EQ(3, leaving.refsDuringCall());
  EXPECT_EQ(2, leaving.refsAfterRemoval());
  EXPECT_EQ(1, leaving.refs());
  EXPECT_EQ(1, first.refs());
}

TEST(ModuleEntry, ReloadStartsAfresh) {
  std::vector<UnloadCall> log;
  RecordingListener listener(L"once", &log);
  {
    LoadedLibrary library;
    IUnknown* module = ModuleOf(library);
    auto* listeners = Query<ImxModuleIntf>(module, IID_ImxModuleIntf);
    listeners->AddPrimaryListener(&listener);
    listeners->Release();
    module->Release();
  }
  ASSERT_EQ(1u, log.size());
  {
    LoadedLibrary library;
    ASSERT_TRUE(library.loaded());
    IUnknown* module = ModuleOf(library);
    EXPECT_EQ(1u, module->Release()) << "a new load has a new singleton holding only its own reference";
  }
  EXPECT_EQ(1u, log.size()) << "listeners of an earlier load are not carried over";
  EXPECT_EQ(1, listener.refs());
}
