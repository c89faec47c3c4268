// The benchmark host on real Qt 4.8 objects: a QApplication with a window
// holding a push button, kwQtWrappers.dll loaded as a host loads it, and the
// generated QWidget and QSize wrappers compiled in beside it for the
// platform's dispatch on the same type information. Prints timings as ratios
// and a summary.
#include <windows.h>
#include <oaidl.h>

#include <QtCore/QGenericArgument>
#include <QtCore/QSize>
#include <QtGui/QActionGroup>
#include <QtGui/QApplication>
#include <QtGui/QBoxLayout>
#include <QtGui/QPushButton>

#include <cstdio>

#include "BenchSections.h"
#include "wrappers/BodyProbe.h"
#include "host/ManagerHost.h"
#include "kwQtBenchInterfaces.h"

HRESULT wrp_QWidget_CreateBound(void*, CStaticWrappersManager*, IDispatch**);
HRESULT wrp_QSize_CreateBound(void*, CStaticWrappersManager*, IDispatch**);

namespace {

// The module object every wrapper compiled into the host locks while it lives.
kwatl::CAtlModule g_benchModule;

}  // namespace

// The main thread is left to QApplication, which makes it a single-threaded
// apartment of its own.
int main(int argc, char** argv) {
  int status = 1;
  {
    // Before anything loads the DLL or its type library.
    kwbench::Subject s;
    s.typeLibrary = kwbench::MeasureTypeLibraryLoad(L"kwQtWrappers.dll");

    QApplication application(argc, argv);
    QWidget window;
    QVBoxLayout* layout = new QVBoxLayout(&window);
    QPushButton* button = new QPushButton("OK");
    layout->addWidget(button);
    window.show();
    QApplication::processEvents();
    QActionGroup actions(&window);
    int argument = 7;
    QGenericArgument generic("int", &argument);

    kwhost::ManagerHost qt(L"kwQtWrappers.dll");
    kwwrap::RecordingManager bodyManager;
    Iwrp_QWidget* body = kwwrap::MakeWrapper<Iwrp_QWidget>(&wrp_QWidget_CreateBound, IID_Iwrp_QWidget,
                                                           static_cast<QWidget*>(button), &bodyManager);
    if (!qt.ready() || body == nullptr) {
      std::printf("could not load kwQtWrappers.dll or make the compiled-in wrapper\n");
      return 1;
    }

    s.title = "real Qt " + std::string(qVersion()) + " objects (kwQtWrappers.dll)";
    s.manager = qt.manager();
    s.buttonType = L"QPushButton";
    s.button = button;
    s.members[0] = L"QWidget_isEnabled";
    s.members[1] = L"QAbstractButton_isChecked";
    s.members[2] = L"QPushButton_isDefault";
    s.valueMember = L"QAbstractButton_text";
    s.body = body;
    s.bodyVtableCall = [body] {
      long enabled = 0;
      body->QWidget_isEnabled(&enabled);
    };
    s.chains.push_back(
        {"Qt chain", qt.manager(), {L"QGenericArgument", L"QWidget", L"QActionGroup"}, {&generic, &window, &actions}});
    s.threadType = L"QSize";
    s.threadMember = L"QSize_width";
    s.newThreadObject = [] { return static_cast<void*>(new QSize(3, 4)); };
    s.deleteThreadObject = [](void* size) { delete static_cast<QSize*>(size); };
    s.newThreadBody = [&bodyManager](void* size) -> IUnknown* {
      return kwwrap::MakeWrapper<Iwrp_QSize>(&wrp_QSize_CreateBound, IID_Iwrp_QSize, size, &bodyManager);
    };

    status = kwbench::RunSections(s) ? 0 : 1;
    body->Release();
  }
  return status;
}
