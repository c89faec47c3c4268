// What the real-Qt tests share: a Qt application with a message handler that
// records what Qt reports, the wrappers DLL loaded as a host loads it, and
// readers that turn returned objects back into Qt values.
#pragma once

#include <windows.h>
#include <oaidl.h>

#include <gtest/gtest.h>

#include <QtCore/QString>

#include <string>
#include <vector>

#include "ManagerHost.h"

namespace qttest {

using kwtest::BytesRef;
using kwtest::CallByName;
using kwtest::I4;
using kwtest::LongRef;
using kwtest::Object;
using kwtest::R8;
using kwtest::Result;

// What Qt passed to the message handler.
struct QtMessage {
  QtMsgType type;
  std::string text;
};
std::vector<QtMessage>& Messages();

// Thrown by the message handler for a fatal message (a failed assertion),
// so that the process goes on where Qt would abort it.
struct FatalMessage {
  std::string text;
};

// The instance behind an object the library handed out, as `T`.
template <class T>
T* InstanceAs(IDispatch* object) {
  return object != nullptr ? static_cast<T*>(kwtest::InstanceOf(object)) : nullptr;
}

// The interface names an exposer composes, in its type-information order.
std::vector<std::wstring> ComposedInterfaces(IDispatch* exposer);

// A test with kwQtWrappers.dll loaded and one wrappers manager.
class QtTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(host_.ready());
    Messages().clear();
  }

  // The host's own CreateWrapper; the test owns the reference.
  IDispatch* Wrap(const wchar_t* typeName, void* instance) {
    HRESULT hr = E_FAIL;
    IDispatch* object = host_.Wrap(typeName, instance, &hr);
    EXPECT_EQ(S_OK, hr) << "CreateWrapper(" << QString::fromWCharArray(typeName).toStdString() << ")";
    return object;
  }

  // A new QString object over a heap copy of `text`.
  IDispatch* WrapString(const QString& text) { return Wrap(L"QString", new QString(text)); }

  // The text of a returned QString object.
  static QString TextOf(const Result& result) {
    QString* text = InstanceAs<QString>(result.object());
    return text != nullptr ? *text : QString("<no QString>");
  }

  kwtest::ManagerHost host_{L"kwQtWrappers.dll"};
};

}  // namespace qttest
