// The Qt demo: a real Qt 4.8 window driven through kwQtWrappers.dll by member
// name, as a test-automation host loaded into the application drives it.
// Prints a transcript and saves the window before and after as PNG files
// (qt_demo_before.png, qt_demo_after.png in the current folder).
#include <windows.h>
#include <oaidl.h>

#include <QtCore/QElapsedTimer>
#include <QtGui/QApplication>
#include <QtGui/QBoxLayout>
#include <QtGui/QCheckBox>
#include <QtGui/QLabel>
#include <QtGui/QLineEdit>
#include <QtGui/QListWidget>
#include <QtGui/QPixmap>
#include <QtGui/QPushButton>
#include <QtCore/QStringList>

#include <cstdio>

#include "host/HostSupport.h"
#include "host/ManagerHost.h"

namespace {

using kwhost::CallByName;
using kwhost::I4;
using kwhost::Object;
using kwhost::Result;

// A call by member name, printed with its HRESULT and what came back.
HRESULT Play(const char* target, IDispatch* object, const wchar_t* member, std::initializer_list<VARIANT> args,
             const char* shownArgs, Result* result = nullptr) {
  Result ignored;
  Result& out = result != nullptr ? *result : ignored;
  HRESULT hr = CallByName(object, member, args, &out.value);
  char call[200];
  std::snprintf(call, sizeof call, "%s.%ls(%s)", target, member, shownArgs);
  std::printf("  %-62s -> 0x%08lX", call, static_cast<unsigned long>(hr));
  if (V_VT(&out.value) == VT_I4) std::printf("  = %ld", static_cast<long>(V_I4(&out.value)));
  if (out.object() != nullptr) std::printf("  = new object over %p", kwhost::InstanceOf(out.object()));
  std::printf("\n");
  return hr;
}

// The text of a QString object the library handed out.
QByteArray TextOf(const Result& result) {
  QString* text = static_cast<QString*>(kwhost::InstanceOf(result.object()));
  return text != nullptr ? text->toUtf8() : QByteArray("<none>");
}

// Saves the window once pending repaints are done and the style has
// finished animating state changes (the Vista style ticks a check box over
// a few hundred milliseconds; a grab before that shows it unticked).
void Save(QWidget* window, const char* file) {
  QElapsedTimer clock;
  clock.start();
  while (clock.elapsed() < 400) QApplication::processEvents(QEventLoop::AllEvents, 50);
  bool saved = QPixmap::grabWidget(window).save(file, "PNG");
  std::printf("  window saved as %s%s\n", file, saved ? "" : " (FAILED)");
}

}  // namespace

int main(int argc, char** argv) {
  QApplication application(argc, argv);
  QWidget window;
  window.setWindowTitle("kwQtWrappers demo");
  QVBoxLayout* layout = new QVBoxLayout(&window);
  QLineEdit* name = new QLineEdit;
  QPushButton* ok = new QPushButton("OK");
  QCheckBox* agree = new QCheckBox("I agree");
  QLabel* status = new QLabel("(nothing yet)");
  QListWidget* items = new QListWidget;
  items->addItems(QStringList() << "red"
                                << "green"
                                << "blue");
  foreach (QWidget* widget, QList<QWidget*>() << name << ok << agree << status << items) layout->addWidget(widget);
  window.resize(320, 260);
  window.show();
  std::printf("A Qt %s window with a line edit, a button, a check box, a label and a list\n", qVersion());
  Save(&window, "qt_demo_before.png");

  std::vector<kwhost::UnloadCall> unloadLog;
  kwhost::RecordingListener listener(L"demo listener", &unloadLog);
  {
    kwhost::ManagerHost host(L"kwQtWrappers.dll");
    if (!host.ready()) {
      std::printf("could not load kwQtWrappers.dll\n");
      return 1;
    }
    std::printf("\nkwQtWrappers.dll loaded; wrapping widgets by type name\n");
    IDispatch* edit = host.Wrap(L"QLineEdit", name);
    IDispatch* button = host.Wrap(L"QPushButton", ok);
    IDispatch* check = host.Wrap(L"QCheckBox", agree);
    IDispatch* label = host.Wrap(L"QLabel", status);
    HRESULT unknown = E_FAIL;
    host.Wrap(L"QObject", &window, &unknown);
    std::printf("  QLineEdit, QPushButton, QCheckBox, QLabel -> objects; \"QObject\" -> 0x%08lX\n",
                static_cast<unsigned long>(unknown));

    std::printf("\nSetters and getters\n");
    QString typed("Ada");
    IDispatch* typedText = host.Wrap(L"QString", &typed);
    Play("edit", edit, L"QLineEdit_setText", {Object(typedText)}, "QString \"Ada\"");
    Play("check", check, L"QAbstractButton_setChecked", {I4(1)}, "1");
    Result checked;
    Play("check", check, L"QAbstractButton_isChecked", {}, "", &checked);
    Play("button", button, L"QWidget_setEnabled", {I4(1)}, "1");
    Play("button", button, L"QWidget_setMinimumHeight", {I4(40)}, "40");

    std::printf("\nValue results come back as new objects; one goes back in as an argument\n");
    Result text, size;
    Play("edit", edit, L"QLineEdit_text", {}, "", &text);
    std::printf("    the QString object holds \"%s\"\n", TextOf(text).constData());
    QString greeting = QString("Hello, ") + QString::fromUtf8(TextOf(text));
    IDispatch* greetingText = host.Wrap(L"QString", &greeting);
    Play("label", label, L"QLabel_setText", {Object(greetingText)}, "QString \"Hello, Ada\"");
    Play("button", button, L"QAbstractButton_text", {}, "", &text);
    Play("edit", edit, L"QLineEdit_setText", {Object(text.object())}, "the button's text object");
    Play("button", button, L"QWidget_size", {}, "", &size);
    QSize* buttonSize = static_cast<QSize*>(kwhost::InstanceOf(size.object()));
    std::printf("    the QSize object holds %d x %d\n", buttonSize->width(), buttonSize->height());

    std::printf("\nA list walked through iterator wrappers\n");
    QStringList colours = QStringList() << "red"
                                        << "green"
                                        << "blue";
    IDispatch* list = host.Wrap(L"QStringList", &colours);
    Result it, end;
    Play("list", list, L"QList_QString__begin", {}, "", &it);
    Play("list", list, L"QList_QString__end", {}, "", &end);
    for (;;) {
      Result more, element, next;
      CallByName(it.object(), L"QList_QString__iterator_operator_NOTEQUAL", {Object(end.object())}, &more.value);
      if (V_I4(&more.value) == 0) break;
      CallByName(it.object(), L"QList_QString__iterator_operator_ASTERIX", {}, &element.value);
      std::printf("    operator!= 1, operator* \"%s\", operator++\n", TextOf(element).constData());
      CallByName(it.object(), L"QList_QString__iterator_operator_PLUS_PLUS_2", {}, &next.value);
    }
    std::printf("    operator!= 0: end of the list\n");

    std::printf("\nWith a dispatch sink, every object the library makes goes to the host first\n");
    kwhost::RecordingSink sink(E_NOTIMPL);
    host.notificator()->SetDispatchSink(&sink);
    Result refused;
    Play("button", button, L"QWidget_windowFlags", {}, "", &refused);
    Play("label", label, L"QLabel_text", {}, "", &refused);
    for (const auto& call : sink.calls)
      std::printf("    sink.CreateDispatch(%p, %p, \"%ls\", %d, %d, %d)\n", call.instance, call.reserved,
                  call.typeName.c_str(), call.flags[0], call.flags[1], call.flags[2]);
    host.notificator()->SetDispatchSink(nullptr);

    Save(&window, "qt_demo_after.png");
    std::printf("  label text now \"%s\", line edit \"%s\", check box %s\n", status->text().toUtf8().constData(),
                name->text().toUtf8().constData(), agree->isChecked() ? "checked" : "unchecked");

    for (IDispatch* object : {edit, button, check, label, typedText, greetingText, list}) object->Release();
    std::printf("\nUnload\n");
    IUnknown* module = nullptr;
    ImxModuleIntf* listeners = nullptr;
    reinterpret_cast<GetModuleIntfFn>(reinterpret_cast<void*>(
        GetProcAddress(GetModuleHandleW(L"kwQtWrappers.dll"), "GetModuleIntf")))(reinterpret_cast<void**>(&module));
    module->QueryInterface(IID_ImxModuleIntf, reinterpret_cast<void**>(&listeners));
    listeners->AddPrimaryListener(&listener);
    listeners->Release();
    module->Release();
  }
  std::printf("  FreeLibrary: unload listeners told: %u\n", static_cast<unsigned>(unloadLog.size()));
  for (const auto& call : unloadLog)
    std::printf("    %ls: module folder \"%ls\"\n", call.listener.c_str(), call.folder.c_str());
  std::printf("  the window is still alive: label \"%s\"\n", status->text().toUtf8().constData());
  return 0;
}
