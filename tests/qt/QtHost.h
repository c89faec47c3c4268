// What the real-Qt tests share: a Qt application with a message handler that
// records what Qt reports, and kwQtWrappers.dll loaded as a host loads it.
#pragma once

#include <windows.h>
#include <oaidl.h>

#include <gtest/gtest.h>

#include <QtCore/QString>

#include <string>
#include <vector>

#include "HostTest.h"

namespace qttest {

using namespace kwtest;

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

// The text of a returned QString object.
inline QString TextOf(const Result& result) {
  QString* text = InstanceAs<QString>(result.object());
  return text != nullptr ? *text : QString("<no QString>");
}

class QtTest : public HostTest {
 protected:
  QtTest() : HostTest(L"kwQtWrappers.dll") {}
  void SetUp() override {
    HostTest::SetUp();
    Messages().clear();
  }
  // A new QString object over a heap copy of `text`.
  Held WrapString(const QString& text) { return Wrap(L"QString", new QString(text)); }
};

}  // namespace qttest
