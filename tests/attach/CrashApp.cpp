// A Qt application with a flaw of its own: releasing the mouse on its
// button dereferences a null pointer, or with --end-gui-thread ends the GUI
// thread while the process lives on. kwscript must report either of an
// application it drives and end, not wait on Wine's crash debugger or on a
// thread that is gone.
#include <windows.h>

#include <QtGui/QApplication>
#include <QtGui/QPushButton>

namespace {

class FlawedButton : public QPushButton {
 public:
  explicit FlawedButton(bool endThread) : QPushButton(endThread ? "End" : "Crash"), m_endThread(endThread) {}

 protected:
  void mouseReleaseEvent(QMouseEvent*) override {
    if (m_endThread) ExitThread(0);
    volatile int* nowhere = nullptr;
    *nowhere = 1;
  }

 private:
  bool m_endThread;
};

}  // namespace

int main(int argc, char** argv) {
  QApplication application(argc, argv);
  FlawedButton button(application.arguments().contains("--end-gui-thread"));
  button.show();
  return application.exec();
}
