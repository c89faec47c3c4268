// A Qt application with a flaw of its own: releasing the mouse on its
// button dereferences a null pointer. kwscript must report the crash of an
// application it drives and end, not wait on Wine's crash debugger.
#include <QtGui/QApplication>
#include <QtGui/QPushButton>

namespace {

class FlawedButton : public QPushButton {
 public:
  FlawedButton() : QPushButton("Crash") {}

 protected:
  void mouseReleaseEvent(QMouseEvent*) override {
    volatile int* nowhere = nullptr;
    *nowhere = 1;
  }
};

}  // namespace

int main(int argc, char** argv) {
  QApplication application(argc, argv);
  FlawedButton button;
  button.show();
  return application.exec();
}
