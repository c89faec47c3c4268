#include "QtHost.h"

#include <QtGui/QApplication>

namespace qttest {

std::vector<QtMessage>& Messages() {
  static std::vector<QtMessage> messages;
  return messages;
}

namespace {

void RecordMessage(QtMsgType type, const char* text) {
  Messages().push_back({type, text});
  if (type == QtFatalMsg) throw FatalMessage{text};
}

}  // namespace
}  // namespace qttest

// A Qt application around the tests, as in the applications the library is
// loaded into; the handler sees every message Qt reports.
int main(int argc, char** argv) {
  QApplication application(argc, argv);
  qInstallMsgHandler(qttest::RecordMessage);
  ::testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
