// The benchmark host on the sample application: kwSampleWrappers.dll loaded
// as a host loads it, the sample's SWidget wrapper compiled in beside it for
// the platform's dispatch on the same type information, and the type-name
// chain of kwQtWrappers.dll (wrapping placeholders: creating an object does
// not touch its instance). Prints timings as ratios and a summary.
#include <windows.h>
#include <oaidl.h>

#include <cstdio>

#include "BenchSections.h"
#include "wrappers/BodyProbe.h"
#include "host/ManagerHost.h"
#include "kwSampleWrappersInterfaces.h"
#include "kwsample/SWidget.h"

HRESULT wrp_SWidget_CreateBound(void*, CStaticWrappersManager*, IDispatch**);
HRESULT wrp_SSize_CreateBound(void*, CStaticWrappersManager*, IDispatch**);

namespace {

// The module object every wrapper compiled into the host locks while it lives.
kwatl::CAtlModule g_benchModule;

}  // namespace

int main() {
  CoInitializeEx(nullptr, COINIT_MULTITHREADED);
  int status = 1;
  {
    // Before anything loads the DLL or its type library.
    kwbench::Subject s;
    s.typeLibrary = kwbench::MeasureTypeLibraryLoad(L"kwQtWrappers.dll");

    SPushButton button;
    button.setText("OK");
    SString text("text");
    SFrame frame;
    SButtonGroup group;
    kwhost::ManagerHost sample(L"kwSampleWrappers.dll");
    kwhost::ManagerHost qt(L"kwQtWrappers.dll");
    kwwrap::RecordingManager bodyManager;
    Iwrp_SWidget* body = kwwrap::MakeWrapper<Iwrp_SWidget>(&wrp_SWidget_CreateBound, IID_Iwrp_SWidget,
                                                           static_cast<SWidget*>(&button), &bodyManager);
    if (!sample.ready() || !qt.ready() || body == nullptr) {
      std::printf("could not load the wrappers DLLs or make the compiled-in wrapper\n");
      return 1;
    }
    static char placeholder[256];

    s.title = "kwsample objects (kwSampleWrappers.dll)";
    s.manager = sample.manager();
    s.buttonType = L"SPushButton";
    s.button = &button;
    s.members[0] = L"SWidget_isEnabled";
    s.members[1] = L"SAbstractButton_isChecked";
    s.members[2] = L"SPushButton_isDefault";
    s.valueMember = L"SAbstractButton_text";
    s.body = body;
    s.bodyVtableCall = [body] {
      long enabled = 0;
      body->SWidget_isEnabled(&enabled);
    };
    s.chains.push_back(
        {"sample chain", sample.manager(), {L"SString", L"SFrame", L"SButtonGroup"}, {&text, &frame, &group}});
    s.chains.push_back({"Qt chain, placeholders",
                        qt.manager(),
                        {L"QGenericArgument", L"QWidget", L"QActionGroup"},
                        {placeholder, placeholder, placeholder}});
    s.threadType = L"SSize";
    s.threadMember = L"SSize_width";
    s.newThreadObject = [] { return static_cast<void*>(new SSize(3, 4)); };
    s.deleteThreadObject = [](void* size) { delete static_cast<SSize*>(size); };
    s.newThreadBody = [&bodyManager](void* size) -> IUnknown* {
      return kwwrap::MakeWrapper<Iwrp_SSize>(&wrp_SSize_CreateBound, IID_Iwrp_SSize, size, &bodyManager);
    };

    status = kwbench::RunSections(s) ? 0 : 1;
    body->Release();
  }
  CoUninitialize();
  return status;
}
