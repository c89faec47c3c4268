// Generated Qt bodies called through their vtables: the results that the
// platform's dispatch under Wine refuses (pointer-to-pointer retvals) and
// Qt's own index assertion, which must reach the application's handler.
#include <QtCore/QByteArray>
#include <QtCore/QStringList>

#include <cstdint>
#include <cstring>
#include <functional>
#include <QtCore/QPointF>
#include <QtCore/QSizeF>
#include <QtCore/QVector>

#include "wrappers/BodyProbe.h"
#include "QtHost.h"
#include "kwQtProbeInterfaces.h"
#include "managers/StaticWrappersManager.h"
#include "com/ComSupport.h"
#include "wrappers/WrapperBase.h"

HRESULT wrp_QString_CreateBound(void*, CStaticWrappersManager*, IDispatch**);
HRESULT wrp_QByteArray_CreateBound(void*, CStaticWrappersManager*, IDispatch**);
HRESULT wrp_QList_QString__CreateBound(void*, CStaticWrappersManager*, IDispatch**);
HRESULT wrp_QVector_int__CreateBound(void*, CStaticWrappersManager*, IDispatch**);
HRESULT wrp_QPointF_CreateBound(void*, CStaticWrappersManager*, IDispatch**);
HRESULT wrp_QSizeF_CreateBound(void*, CStaticWrappersManager*, IDispatch**);

namespace qttest {
namespace {

// The module object every wrapper locks while it lives.
kwatl::CAtlModule g_testModule;

using kwwrap::MakeWrapper;
using kwwrap::RecordingManager;

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

// A scalar reference result fills the pointer-sized slot with the value it
// refers to: an int sign-extended, a double in its own eight bytes.
TEST(QtBodyTest, ScalarReferenceResultsStoreTheReferencedValue) {
  RecordingManager manager;
  QVector<int> vector(1, -2);
  QPointF point(2.75, 1.0);
  QSizeF size(3.0, -0.5);
  auto* ints = MakeWrapper<Iwrp_QVector_int_>(&wrp_QVector_int__CreateBound, IID_Iwrp_QVector_int_, &vector, &manager);
  auto* points = MakeWrapper<Iwrp_QPointF>(&wrp_QPointF_CreateBound, IID_Iwrp_QPointF, &point, &manager);
  auto* sizes = MakeWrapper<Iwrp_QSizeF>(&wrp_QSizeF_CreateBound, IID_Iwrp_QSizeF, &size, &manager);
  ASSERT_TRUE(ints != nullptr && points != nullptr && sizes != nullptr);
  auto bitsOf = [](double value) {
    std::uint64_t bits = 0;
    std::memcpy(&bits, &value, sizeof bits);
    return bits;
  };
  struct Row {
    const char* member;
    std::function<HRESULT(void**)> call;
    std::uint64_t slot;
  };
  const Row rows[] = {
      {"QVector_int__at(0) on -2", [&](void** s) { return ints->QVector_int__at(0, reinterpret_cast<int**>(s)); },
       0xFFFFFFFFFFFFFFFEull},
      {"QPointF_rx on 2.75", [&](void** s) { return points->QPointF_rx(reinterpret_cast<double**>(s)); }, bitsOf(2.75)},
      {"QSizeF_rheight on -0.5", [&](void** s) { return sizes->QSizeF_rheight(reinterpret_cast<double**>(s)); },
       bitsOf(-0.5)},
  };
  for (const Row& row : rows) {
    void* slot = reinterpret_cast<void*>(0x5A5A5A5A5A5A5A5Aull);
    EXPECT_EQ(S_OK, row.call(&slot)) << row.member;
    EXPECT_EQ(row.slot, reinterpret_cast<std::uint64_t>(slot)) << row.member;
  }
  ints->Release();
  points->Release();
  sizes->Release();
  EXPECT_TRUE(manager.requests.empty());
}

// A const member that gives access to a list's data is called on the bound
// list as on a non-const one: a list that shares its data with a copy is
// detached first, and the copy keeps what it had.
TEST(QtBodyTest, ConstOverloadsThatGiveAccessDetachSharedData) {
  using Call = std::function<HRESULT(Iwrp_QList_QString_*, IDispatch**)>;
  const std::pair<const char*, Call> rows[] = {
      {"begin_2", [](Iwrp_QList_QString_* w, IDispatch** r) { return w->QList_QString__begin_2(r); }},
      {"end_2", [](Iwrp_QList_QString_* w, IDispatch** r) { return w->QList_QString__end_2(r); }},
      {"constBegin", [](Iwrp_QList_QString_* w, IDispatch** r) { return w->QList_QString__constBegin(r); }},
      {"operator[] const",
       [](Iwrp_QList_QString_* w, IDispatch** r) { return w->QList_QString__operator_INDEXING(0, r); }},
  };
  for (const auto& [member, call] : rows) {
    RecordingManager manager;
    QStringList list = QStringList() << "a"
                                     << "b";
    const QStringList copy = list;
    ASSERT_FALSE(list.isDetached());
    auto* wrapper =
        MakeWrapper<Iwrp_QList_QString_>(&wrp_QList_QString__CreateBound, IID_Iwrp_QList_QString_, &list, &manager);
    ASSERT_NE(nullptr, wrapper);
    IDispatch* result = nullptr;
    EXPECT_EQ(S_FALSE, call(wrapper, &result)) << member << ": the manager's answer";
    EXPECT_TRUE(list.isDetached()) << member;
    EXPECT_TRUE(copy.isDetached()) << member << ": the copy keeps the data it shared";
    EXPECT_EQ(copy, list) << member;
    EXPECT_EQ(1u, manager.requests.size()) << member;
    wrapper->Release();
  }
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
