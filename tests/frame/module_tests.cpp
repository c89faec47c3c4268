// The module frame as a host sees it: the module object and its two faces,
// the listener lists and what happens to listeners at FreeLibrary.
#include <gtest/gtest.h>

#include "host/HostSupport.h"

using kwhost::LoadedLibrary;
using kwhost::RecordingListener;
using kwhost::RefCountOf;
using kwhost::UnloadCall;

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

// The loaded library and its module object's listener face, held by the
// test until Unload.
struct LoadedModule {
  LoadedLibrary library;
  ImxModuleIntf* listeners = Query<ImxModuleIntf>(ModuleOf(library), IID_ImxModuleIntf);

  LoadedModule() { listeners->Release(); }  // the reference ModuleOf gave
  ~LoadedModule() { Unload(); }
  bool Unload() {
    if (listeners != nullptr) listeners->Release();
    listeners = nullptr;
    return library.Unload();
  }
};

TEST(ModuleEntry, OneModuleObjectPerLoadWithTwoFacesOfOneIdentity) {
  LoadedLibrary library;
  ASSERT_TRUE(library.loaded());
  ASSERT_NE(nullptr, library.entry());
  EXPECT_EQ(E_POINTER, library.entry()(nullptr));
  IUnknown* module = ModuleOf(library);
  IUnknown* again = ModuleOf(library);
  ASSERT_NE(nullptr, module);
  EXPECT_EQ(module, again);
  EXPECT_EQ(3u, RefCountOf(module)) << "two host references plus the library's own";
  again->Release();

  auto* listeners = Query<ImxModuleIntf>(module, IID_ImxModuleIntf);
  auto* wrappers = Query<IWrappersModule>(module, IID_IWrappersModule);
  ASSERT_NE(nullptr, wrappers);
  EXPECT_EQ(static_cast<void*>(module), static_cast<void*>(listeners)) << "the first face is the identity";
  EXPECT_NE(static_cast<void*>(listeners), static_cast<void*>(wrappers));
  IUnknown* fromWrappers = Query<IUnknown>(wrappers, IID_IUnknown);
  auto* back = Query<ImxModuleIntf>(wrappers, IID_ImxModuleIntf);
  EXPECT_EQ(module, fromWrappers);
  EXPECT_EQ(listeners, back);
  void* other = reinterpret_cast<void*>(0x1234);
  EXPECT_EQ(E_NOINTERFACE, module->QueryInterface(IID_IDispatch, &other));
  EXPECT_EQ(nullptr, other);
  EXPECT_EQ(E_NOINTERFACE, module->QueryInterface(IID_IWrappersManager, &other));
  EXPECT_EQ(E_POINTER, wrappers->QueryInterface(IID_IUnknown, nullptr));

  // Each call makes a new manager, held only by the caller.
  IUnknown* managers[2] = {};
  for (IUnknown*& manager : managers) ASSERT_EQ(S_OK, wrappers->CreateWrappersManager(&manager));
  EXPECT_NE(managers[0], managers[1]);
  EXPECT_EQ(E_POINTER, wrappers->CreateWrappersManager(nullptr));
  for (IUnknown* manager : managers) EXPECT_EQ(0u, manager->Release());

  for (IUnknown* face : {static_cast<IUnknown*>(back), fromWrappers, static_cast<IUnknown*>(wrappers),
                         static_cast<IUnknown*>(listeners)})
    face->Release();
  EXPECT_EQ(1u, module->Release()) << "the library's own reference is left";
}

TEST(ModuleListeners, EachListIsASetHoldingOneReferencePerEntry) {
  std::vector<UnloadCall> log;
  RecordingListener listener(L"L", &log), stranger(L"S", &log);
  LoadedModule loaded;
  ImxModuleIntf* m = loaded.listeners;
  ASSERT_NE(nullptr, m);
  using Op = decltype(&ImxModuleIntf::AddPrimaryListener);
  const struct {
    Op op;
    IUnknown* listener;
    HRESULT expected;
    LONG refs;  // of `listener` afterwards
  } steps[] = {
      {&ImxModuleIntf::AddPrimaryListener, &listener, S_OK, 2},
      {&ImxModuleIntf::AddPrimaryListener, &listener, E_FAIL, 2},  // a refused duplicate takes no reference
      {&ImxModuleIntf::AddSecondaryListener, &listener, S_OK, 3},  // the other list is independent
      {&ImxModuleIntf::RemovePrimaryListener, &stranger, S_OK, 3},
      {&ImxModuleIntf::RemoveSecondaryListener, nullptr, S_OK, 3},
      {&ImxModuleIntf::RemovePrimaryListener, nullptr, S_OK, 3},
      {&ImxModuleIntf::RemovePrimaryListener, &listener, S_OK, 2},
      {&ImxModuleIntf::RemovePrimaryListener, &listener, S_OK, 2},
      {&ImxModuleIntf::AddPrimaryListener, &listener, S_OK, 3},  // a removed listener can come back
      {&ImxModuleIntf::RemovePrimaryListener, &listener, S_OK, 2},
      {&ImxModuleIntf::RemoveSecondaryListener, &listener, S_OK, 1},
  };
  for (size_t i = 0; i < sizeof(steps) / sizeof(steps[0]); ++i) {
    EXPECT_EQ(steps[i].expected, (m->*steps[i].op)(steps[i].listener)) << "step " << i;
    EXPECT_EQ(steps[i].refs, listener.refs()) << "step " << i;
  }
  EXPECT_EQ(1, stranger.refs());
  EXPECT_TRUE(loaded.Unload());
  EXPECT_TRUE(log.empty()) << "removed listeners are not told about the unload";
}

TEST(ModuleListeners, UnloadTellsPrimaryThenSecondaryInOrderOfAddition) {
  std::vector<UnloadCall> log;
  RecordingListener a(L"A", &log), b(L"B", &log), c(L"C", &log), d(L"D", &log);
  b.RemoveSelfOnUnload(/*primary=*/true);
  ImxModuleIntf* moduleFace = nullptr;
  {
    LoadedModule loaded;
    moduleFace = loaded.listeners;
    // Secondary listeners are added first: the list, not the time, decides.
    for (auto* listener : {&c, &a}) ASSERT_EQ(S_OK, loaded.listeners->AddSecondaryListener(listener));
    for (auto* listener : {&b, &a, &d}) ASSERT_EQ(S_OK, loaded.listeners->AddPrimaryListener(listener));
    ASSERT_TRUE(loaded.Unload());
  }
  // B removed itself while told; the listeners after it are still told.
  std::vector<std::wstring> names;
  for (const UnloadCall& call : log) {
    names.push_back(call.listener);
    EXPECT_EQ(kwhost::ProgramFolder(), call.folder) << "the DLL lives next to the test program";
    EXPECT_EQ(moduleFace, call.module);
  }
  EXPECT_EQ((std::vector<std::wstring>{L"B", L"A", L"D", L"C", L"A"}), names);
  // During its call B is held by the list and by the notification's copy.
  EXPECT_EQ(3, b.refsDuringCall());
  EXPECT_EQ(2, b.refsAfterRemoval());
  for (auto* listener : {&a, &b, &c, &d}) EXPECT_EQ(1, listener->refs());

  // A new load starts afresh: its module object and its lists are new.
  {
    LoadedLibrary library;
    ASSERT_TRUE(library.loaded());
    EXPECT_EQ(1u, ModuleOf(library)->Release()) << "only the library's own reference";
  }
  EXPECT_EQ(5u, log.size()) << "listeners of an earlier load are not carried over";
}

}  // namespace
