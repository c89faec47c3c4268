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

std::vector<std::wstring> ComposedInterfaces(IDispatch* exposer) {
  std::vector<std::wstring> names;
  UINT count = 0;
  if (exposer == nullptr || FAILED(exposer->GetTypeInfoCount(&count))) return names;
  for (UINT i = 0; i < count; ++i) {
    ITypeInfo* info = nullptr;
    BSTR name = nullptr;
    if (SUCCEEDED(exposer->GetTypeInfo(i, 0, &info)) &&
        SUCCEEDED(info->GetDocumentation(MEMBERID_NIL, &name, nullptr, nullptr, nullptr))) {
      names.emplace_back(name, SysStringLen(name));
    }
    SysFreeString(name);
    if (info != nullptr) info->Release();
  }
  return names;
}

}  // namespace qttest

// A Qt application around the tests, as in the applications the library is
// loaded into; the handler sees every message Qt reports.
int main(int argc, char** argv) {
  QApplication application(argc, argv);
  qInstallMsgHandler(qttest::RecordMessage);
  ::testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
