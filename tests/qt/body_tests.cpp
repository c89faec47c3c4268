// Generated Qt bodies called through their vtables: the results that the
// platform's dispatch under Wine refuses (pointer-to-pointer retvals) and
// Qt's own index assertion, which must reach the application's handler.
#include <QtCore/QByteArray>
#include <QtCore/QStringList>

#include <cstdint>

#include "host/BodyProbe.h"
#include "QtHost.h"
#include "kwQtProbeInterfaces.h"
#include "managers/StaticWrappersManager.h"
#include "module/ComSupport.h"
#include "wrappers/WrapperBase.h"

HRESULT wrp_QString_CreateBound(void*, CStaticWrappersManager*, IDispatch**);
HRESULT wrp_QByteArray_CreateBound(void*, CStaticWrappersManager*, IDispatch**);
HRESULT wrp_QList_QString__CreateBound(void*, CStaticWrappersManager*, IDispatch**);

namespace qttest {
namespace {

// The module object every wrapper locks while it lives.
kwatl::CAtlModule g_testModule;

using kwhost::MakeWrapper;
using kwhost::RecordingManager;

TEST(QtBodyTest, PointerToPointerResultsAtTheVtable) {
  RecordingManager manager;
  QString text("utf16");
  auto* string = MakeWrapper<Iwrp_QString>(&wrp_QString_CreateBound, IID_Iwrp_QString, &text, &manager);
  ASSERT_NE(nullptr, string);
  unsigned short* characters = nullptr;
  EXPECT_EQ(S_OK, string->QString_utf16(&characters));
  EXPECT_EQ(text.utf16(), characters) << "the string's own characters, no copy";
  string->Release();

  QByteArray bytes("data");
  auto* array = MakeWrapper<Iwrp_QByteArray>(&wrp_QByteArray_CreateBound, IID_Iwrp_QByteArray, &bytes, &manager);
  ASSERT_NE(nullptr, array);
  unsigned char* data = nullptr;
  EXPECT_EQ(S_OK, array->QByteArray_data(&data));
  EXPECT_EQ(reinterpret_cast<unsigned char*>(bytes.data()), data);
  array->Release();

  EXPECT_TRUE(manager.requests.empty());
}

TEST(QtBodyTest, IndexOutOfRangeReachesQtsAssertion) {
  RecordingManager manager;
  QStringList list = QStringList() << "only";
  auto* wrapper =
      MakeWrapper<Iwrp_QList_QString_>(&wrp_QList_QString__CreateBound, IID_Iwrp_QList_QString_, &list, &manager);
  ASSERT_NE(nullptr, wrapper);
  Messages().clear();
  IDispatch* element = nullptr;
  std::string fatal;
  try {
    wrapper->QList_QString__at(-1, &element);
  } catch (const FatalMessage& message) {
    fatal = message.text;
  }
  EXPECT_NE(std::string::npos, fatal.find("QList<T>::at")) << fatal;
  EXPECT_NE(std::string::npos, fatal.find("index out of range")) << fatal;
  ASSERT_EQ(1u, Messages().size());
  EXPECT_EQ(QtFatalMsg, Messages()[0].type);
  EXPECT_TRUE(manager.requests.empty()) << "the element is never wrapped";

  // In range, the same body hands a copy of the element to the manager.
  EXPECT_EQ(S_FALSE, wrapper->QList_QString__at(0, &element)) << "the manager's answer";
  ASSERT_EQ(1u, manager.requests.size());
  EXPECT_EQ(L"QString", manager.requests[0].typeName);
  EXPECT_EQ(QString("only"), *static_cast<QString*>(manager.requests[0].instance));
  wrapper->Release();
}

}  // namespace
}  // namespace qttest
