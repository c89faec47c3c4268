// A small automation host: loads the wrappers DLLs as a test-automation host
// would, talks to them through their interfaces and prints a transcript.
// First the Qt module's frame (no Qt here), then the sample application's
// objects driven member by member through IDispatch.
#include <windows.h>
#include <oaidl.h>

#include <cstdio>
#include <string>
#include <vector>

#include "host/HostSupport.h"
#include "host/ManagerHost.h"
#include "kwsample/SWidget.h"

namespace {

void Step(const char* what, HRESULT hr) { std::printf("  %-58s -> 0x%08lX\n", what, static_cast<unsigned long>(hr)); }

// The module frame of kwQtWrappers.dll: module interface, unload listener,
// manager, and the unload notification.
int DemoQtModule() {
  std::printf("kwQtWrappers.dll\n");
  std::vector<kwhost::UnloadCall> unloadLog;
  kwhost::RecordingListener listener(L"demo listener", &unloadLog);
  {
    kwhost::LoadedLibrary library;
    if (!library.loaded()) {
      std::printf("  could not load kwQtWrappers.dll (error %lu)\n", GetLastError());
      return 1;
    }
    std::printf("  loaded kwQtWrappers.dll at %p\n", static_cast<void*>(library.handle()));

    IUnknown* module = nullptr;
    Step("GetModuleIntf", library.entry()(reinterpret_cast<void**>(&module)));

    ImxModuleIntf* listeners = nullptr;
    Step("QueryInterface(ImxModuleIntf)",
         module->QueryInterface(IID_ImxModuleIntf, reinterpret_cast<void**>(&listeners)));
    Step("AddPrimaryListener(demo listener)", listeners->AddPrimaryListener(&listener));

    IWrappersModule* wrappersModule = nullptr;
    Step("QueryInterface(IWrappersModule)",
         module->QueryInterface(IID_IWrappersModule, reinterpret_cast<void**>(&wrappersModule)));
    IUnknown* managerUnknown = nullptr;
    Step("CreateWrappersManager", wrappersModule->CreateWrappersManager(&managerUnknown));
    IWrappersManager* manager = nullptr;
    Step("QueryInterface(IWrappersManager)",
         managerUnknown->QueryInterface(IID_IWrappersManager, reinterpret_cast<void**>(&manager)));

    int someObject = 42;
    IDispatch* wrapper = nullptr;
    Step("CreateWrapper(L\"QWidget\", &object)", manager->CreateWrapper(L"QWidget", &someObject, &wrapper));
    if (wrapper != nullptr) wrapper->Release();
    wrapper = nullptr;
    Step("CreateWrapper(L\"NoSuchType\", &object)", manager->CreateWrapper(L"NoSuchType", &someObject, &wrapper));

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
  return 0;
}

// ---------------------------------------------------------------------------
// The sample application.

// A call by member name, printed with its HRESULT; the result stays in `result`.
HRESULT Play(const char* target, IDispatch* object, const wchar_t* member, std::initializer_list<VARIANT> args,
             const char* shownArgs, VARIANT* result = nullptr) {
  DISPID id = DISPID_UNKNOWN;
  HRESULT hr = kwhost::IdOf(object, member, &id);
  if (SUCCEEDED(hr)) hr = kwhost::InvokeWithVariants(object, id, DISPATCH_METHOD, args, result);
  char line[160];
  std::snprintf(line, sizeof line, "%s.%ls(%s)", target, member, shownArgs);
  Step(line, hr);
  return hr;
}

const char* TextOf(IDispatch* object) {
  SString* text = object != nullptr ? static_cast<SString*>(kwhost::InstanceOf(object)) : nullptr;
  return text != nullptr && text->data() != nullptr ? text->data() : "<null>";
}

int DemoSample() {
  std::printf("\nkwSampleWrappers.dll: the sample application's objects\n");
  SWidget window;
  SPushButton button;
  button.setText("OK");
  window.addChild(&button, 10, 20);
  std::printf("  the application: window %p holds button %p at (10, 20)\n", static_cast<void*>(&window),
              static_cast<void*>(&button));

  kwhost::ManagerHost host(L"kwSampleWrappers.dll");
  if (!host.ready()) {
    std::printf("  could not load kwSampleWrappers.dll or make a manager\n");
    return 1;
  }
  HRESULT hr = E_FAIL;
  IDispatch* windowObject = host.Wrap(L"SWidget", &window, &hr);
  Step("CreateWrapper(L\"SWidget\", &window)", hr);
  IDispatch* buttonObject = host.Wrap(L"SPushButton", &button, &hr);
  Step("CreateWrapper(L\"SPushButton\", &button)", hr);
  if (windowObject == nullptr || buttonObject == nullptr) return 1;
  UINT composed = 0;
  buttonObject->GetTypeInfoCount(&composed);
  std::printf("    the button's object composes %u wrappers (SWidget, SAbstractButton, SPushButton)\n", composed);

  // Setters and getters.
  Play("button", buttonObject, L"SAbstractButton_setChecked", {kwhost::I4(1)}, "1");
  std::printf("    button.isChecked() is now %s\n", button.isChecked() ? "true" : "false");
  VARIANT checked;
  VariantInit(&checked);
  Play("button", buttonObject, L"SAbstractButton_isChecked", {}, "", &checked);
  std::printf("    result: %ld (1 or 0, never -1)\n", static_cast<long>(V_I4(&checked)));
  Play("button", buttonObject, L"SWidget_resize_2", {kwhost::I4(120), kwhost::I4(30)}, "120, 30");
  std::printf("    button.size() is now %dx%d\n", button.size().width(), button.size().height());

  // A value result comes back as a new object over a copy.
  VARIANT text;
  VariantInit(&text);
  Play("button", buttonObject, L"SAbstractButton_text", {}, "", &text);
  IDispatch* textObject = V_VT(&text) == VT_DISPATCH ? V_DISPATCH(&text) : nullptr;
  std::printf("    result: a new object over a copy of the text, \"%s\"\n", TextOf(textObject));
  if (textObject != nullptr) {
    VARIANT ignored;
    VariantInit(&ignored);
    Play("text", textObject, L"SString_append", {kwhost::BytesRef(", go")}, "\", go\"", &ignored);
    VariantClear(&ignored);
    std::printf("    the copy reads \"%s\"; the button still reads \"%s\"\n", TextOf(textObject), button.text().data());
    // An object passed back as an argument: the wrapper takes its instance.
    Play("button", buttonObject, L"SAbstractButton_setText", {kwhost::Object(textObject)}, "text");
    std::printf("    the button now reads \"%s\"\n", button.text().data());
  }
  VariantClear(&text);

  // A pointer result is the application's object itself.
  VARIANT child;
  VariantInit(&child);
  Play("window", windowObject, L"SWidget_childAt", {kwhost::I4(10), kwhost::I4(20)}, "10, 20", &child);
  if (V_VT(&child) == VT_DISPATCH)
    std::printf("    result: an object over %p (the button itself)\n", kwhost::InstanceOf(V_DISPATCH(&child)));
  VariantClear(&child);

  // What a sink receives for the library's own wrapping requests.
  kwhost::RecordingSink sink(E_NOTIMPL);
  Step("SetDispatchSink(sink)", host.notificator()->SetDispatchSink(&sink));
  VARIANT group;
  VariantInit(&group);
  Play("button", buttonObject, L"SAbstractButton_group", {}, "", &group);
  for (const kwhost::SinkCall& call : sink.calls)
    std::printf("    sink saw CreateDispatch(instance %p, %p, L\"%ls\", %d, %d, %d)\n", call.instance, call.reserved,
                call.typeName.c_str(), call.flags[0], call.flags[1], call.flags[2]);
  std::printf("    the sink's answer (E_NOTIMPL) reaches the host as DISP_E_EXCEPTION\n");
  VariantClear(&group);
  Step("SetDispatchSink(null)", host.notificator()->SetDispatchSink(nullptr));

  std::printf("  release: button object %lu, window object %lu references left\n",
              static_cast<unsigned long>(buttonObject->Release()), static_cast<unsigned long>(windowObject->Release()));
  host.Unload();
  std::printf("  FreeLibrary; the application's objects are untouched: button \"%s\", checked %s\n",
              button.text().data(), button.isChecked() ? "true" : "false");
  return 0;
}

}  // namespace

int main() {
  CoInitializeEx(nullptr, COINIT_MULTITHREADED);
  std::printf("kwQtWrappers demo host\n\n");
  int status = DemoQtModule();
  if (status == 0) status = DemoSample();
  CoUninitialize();
  return status;
}
