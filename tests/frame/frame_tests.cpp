// The module frame as a host sees it: the module object and its two faces,
// the listener lists and what happens to listeners at FreeLibrary, and the
// managers' chain of type-name tests.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "HostTest.h"

using namespace kwtest;

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

// GetModuleIntf hands out the one module object of a load, whose identity is
// its listener face; each CreateWrappersManager makes a new manager, held
// only by the caller, whose identity is its notificator face.
TEST(ModuleEntry, OneModuleObjectPerLoadMakesANewManagerPerCall) {
  LoadedLibrary library;
  ASSERT_TRUE(library.loaded());
  ASSERT_NE(nullptr, library.entry());
  EXPECT_EQ(E_POINTER, library.entry()(nullptr));
  IUnknown* module = ModuleOf(library);
  IUnknown* again = ModuleOf(library);
  ASSERT_NE(nullptr, module);
  EXPECT_EQ(module, again);
  EXPECT_EQ(3u, RefCountOf(module)) << "two host references plus the library's own";
  // A thread that starts and ends tells the DLL so; that makes or drops nothing.
  std::thread([] {}).join();
  EXPECT_EQ(3u, RefCountOf(module)) << "thread attach and detach leave the module object alone";
  EXPECT_EQ(module, ModuleOf(library));
  module->Release();
  again->Release();
  ExpectFaces(module, {&IID_ImxModuleIntf, &IID_IUnknown, &IID_IWrappersModule},
              {&IID_IDispatch, &IID_IWrappersManager});
  auto* wrappers = Query<IWrappersModule>(module, IID_IWrappersModule);

  IUnknown* managers[2] = {};
  for (IUnknown*& manager : managers) ASSERT_EQ(S_OK, wrappers->CreateWrappersManager(&manager));
  EXPECT_NE(managers[0], managers[1]);
  EXPECT_EQ(E_POINTER, wrappers->CreateWrappersManager(nullptr));
  ExpectFaces(managers[0], {&IID_IkwQtDispatchNotificator, &IID_IUnknown, &IID_IWrappersManager},
              {&IID_IWrappersModule, &IID_ImxModuleIntf});
  for (IUnknown* manager : managers) EXPECT_EQ(0u, manager->Release());

  wrappers->Release();
  EXPECT_EQ(1u, module->Release()) << "the library's own reference is left";
}

// Each list holds a listener once, with one reference; removing is quiet.
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

// FreeLibrary tells the primary list, then the secondary one, each in order.
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
    EXPECT_EQ(ProgramFolder(), call.folder) << "the DLL lives next to the test program";
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

TEST(ManagerChain, EveryKnownNameIsTestedExactly) {
  // Every name of the catalogue's list is known to the chain, exactly: a
  // one-character change to a known name never matches (unless it is itself
  // a known name: "QSize" and "QSizeF"). Built with the Qt wrappers, every
  // name gives an exposer composing the wrappers of its composition list, in
  // that order; without them every name answers E_NOINTERFACE like an
  // unknown one.
  std::ifstream names(KW_KNOWN_TYPE_NAMES), compositions(KW_COMPOSITIONS);
  ASSERT_TRUE(names.good()) << KW_KNOWN_TYPE_NAMES;
  ASSERT_TRUE(compositions.good()) << KW_COMPOSITIONS;
  std::map<std::wstring, std::vector<std::wstring>> composed;  // the interfaces, in creation order
  for (std::string line; std::getline(compositions, line);) {
    if (line.empty() || line[0] == '#') continue;
    std::istringstream fields(line.substr(line.find('\t') + 1));
    auto& interfaces = composed[std::wstring(line.begin(), line.begin() + line.find('\t'))];
    for (std::string wrapper; fields >> wrapper;)
      interfaces.push_back(L"Iwrp_" + std::wstring(wrapper.begin(), wrapper.end()));
  }
  std::vector<std::wstring> known;
  for (std::string line; std::getline(names, line);)
    if (!line.empty()) known.emplace_back(line.begin(), line.end());
  ASSERT_EQ(570u, known.size());

  ManagerHost host(L"kwQtWrappers.dll");
  ASSERT_TRUE(host.ready());
  IWrappersManager* manager = host.manager();
  int instance = 0;
  IDispatch* probe = nullptr;
  const bool withWrappers = manager->CreateWrapper(L"QString", &instance, &probe) == S_OK;
  if (probe != nullptr) probe->Release();
  std::printf("kwQtWrappers.dll %s its Qt wrapper classes\n", withWrappers ? "carries" : "was built without");
  for (const std::wstring& name : known) {
    const std::string shown = Narrow(name);
    IDispatch* exposer = nullptr;
    HRESULT hr = manager->CreateWrapper(name.c_str(), &instance, &exposer);
    if (withWrappers) {
      EXPECT_EQ(S_OK, hr) << shown;
      if (exposer != nullptr) EXPECT_EQ(composed[name], ComposedInterfaces(exposer)) << shown;
      EXPECT_EQ(&instance, InstanceOf(exposer)) << shown;
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
  // Spellings a host might try: another case, blanks inside the brackets, the
  // base of every QObject class (which no exposer stands for).
  for (const wchar_t* name : {L"qsize", L"QList< QString >", L"QObject"}) {
    IDispatch* result = reinterpret_cast<IDispatch*>(0x77);
    EXPECT_EQ(E_NOINTERFACE, manager->CreateWrapper(name, &instance, &result)) << Narrow(name);
    EXPECT_EQ(reinterpret_cast<IDispatch*>(0x77), result);
  }
}

}  // namespace
