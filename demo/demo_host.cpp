// A small automation host: loads the wrappers DLL as a test-automation host
// would, talks to it through its interfaces, unloads it and prints a
// transcript of what happened.
#include <windows.h>

#include <cstdio>
#include <vector>

#include "HostSupport.h"

namespace {

void Step(const char* what, HRESULT hr) { std::printf("  %-58s -> 0x%08lX\n", what, static_cast<unsigned long>(hr)); }

}  // namespace

int main() {
  CoInitializeEx(nullptr, COINIT_MULTITHREADED);
  std::printf("kwQtWrappers demo host\n");

  std::vector<kwtest::UnloadCall> unloadLog;
  kwtest::RecordingListener listener(L"demo listener", &unloadLog);
  {
    kwtest::LoadedLibrary library;
    if (!library.loaded()) {
      std::printf("  could not load kwQtWrappers.dll (error %lu)\n", GetLastError());
      return 1;
    }
    std::printf("  loaded kwQtWrappers.dll at %p\n", static_cast<void*>(library.handle()));

    IUnknown* module = nullptr;
    Step("GetModuleIntf", library.entry()(reinterpret_cast<void**>(&module)));

    ImxModuleIntf* listeners = nullptr;
    Step("QueryInterface(ImxModuleIntf)", module->QueryInterface(IID_ImxModuleIntf, reinterpret_cast<void**>(&listeners)));
    Step("AddPrimaryListener(demo listener)", listeners->AddPrimaryListener(&listener));

    IWrappersModule* wrappersModule = nullptr;
    Step("QueryInterface(IWrappersModule)", module->QueryInterface(IID_IWrappersModule, reinterpret_cast<void**>(&wrappersModule)));
    IUnknown* managerUnknown = nullptr;
    Step("CreateWrappersManager", wrappersModule->CreateWrappersManager(&managerUnknown));
    IWrappersManager* manager = nullptr;
    Step("QueryInterface(IWrappersManager)", managerUnknown->QueryInterface(IID_IWrappersManager, reinterpret_cast<void**>(&manager)));

    int someObject = 42;
    IDispatch* wrapper = nullptr;
    Step("CreateWrapper(L\"QWidget\", &object)", manager->CreateWrapper(L"QWidget", &someObject, &wrapper));
    Step("CreateWrapper(L\"NoSuchType\", &object)", manager->CreateWrapper(L"NoSuchType", &someObject, &wrapper));
    if (wrapper != nullptr) wrapper->Release();

    manager->Release();
    managerUnknown->Release();
    wrappersModule->Release();
    listeners->Release();
    module->Release();
    std::printf("  FreeLibrary\n");
  }
  std::printf("  unload listeners told: %u\n", static_cast<unsigned>(unloadLog.size()));
  for (const auto& call : unloadLog)
    std::printf("    %ls: module folder \"%ls\"\n", call.listener.c_str(), call.folder.c_str());
  std::printf("  listener references held after unload: %ld\n", listener.refs() - 1);
  CoUninitialize();
  return 0;
}
