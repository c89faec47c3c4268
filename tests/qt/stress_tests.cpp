// Real Qt values under load through kwQtWrappers.dll: threads sharing one
// exposer of an implicitly shared QString, threads with QSize objects of
// their own, and random, mostly wrong, calls on value classes.
#include <QtCore/QPoint>
#include <QtCore/QRect>
#include <QtCore/QSize>

#include <atomic>

#include "DispatchStress.h"
#include "QtHost.h"

namespace qttest {
namespace {

TEST_F(QtTest, ThreadsShareOneStringExposerThenUseSizesOfTheirOwn) {
  QString hello("hello");
  const std::vector<Probe> probes = {
      {L"QString_size", {}, [](const Result& r) { return IntOf(r) == 5; }},
      {L"QString_isEmpty", {}, [](const Result& r) { return IntOf(r) == 0; }},
      {L"QString_at", {I4(1)}, [](const Result& r) { return r.object() && *InstanceAs<QChar>(r.object()) == 'e'; }},
      {L"QString_toUpper", {}, [](const Result& r) { return TextOf(r) == "HELLO"; }},
  };
  for (int fresh = 0; fresh < 50; ++fresh) {
    Held exposer = Wrap(L"QString", &hello);
    EXPECT_EQ(0, HammerExposer(exposer, probes, 8, 4));
  }
  EXPECT_EQ(QString("hello"), hello);
  EXPECT_EQ(0, HammerOwnObjects<QSize>(host_, L"QSize", 8, 300, [](IDispatch* mine, QSize& own, int value) {
              return CallByName(mine, L"QSize_setWidth", {I4(value)}) == S_OK && own.width() == value &&
                     IntOf(Get(mine, L"QSize_width")) == value;
            }));
}

TEST_F(QtTest, RandomCallsOnValueClassesGiveDispatchErrorsNeverAFault) {
  QSize size(3, 4);
  QPoint point(5, 6);
  QRect rect(1, 2, 30, 40);
  Held sizeObject = Wrap(L"QSize", &size), pointObject = Wrap(L"QPoint", &point), rectObject = Wrap(L"QRect", &rect);
  // Dividing by zero is Qt's own assertion (the test's handler throws for it).
  FuzzTally tally;
  try {
    tally = FuzzExposers({sizeObject, pointObject, rectObject}, 20000, 4807, {L"_DTOR_", L"_operator_SLASH"});
  } catch (const FatalMessage& fatal) {
    ADD_FAILURE() << "Qt reported: " << fatal.text;
  }
  EXPECT_EQ(20000, tally.calls);
  EXPECT_EQ(0, tally.unexpected);
  EXPECT_GT(tally.succeeded, 2000);
  size = QSize(7, 8);
  EXPECT_EQ(7, IntOf(Get(sizeObject, L"QSize_width")));
}

}  // namespace
}  // namespace qttest
