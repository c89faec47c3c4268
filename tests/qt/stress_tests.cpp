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
  const std::vector<kwtest::Probe> probes = {
      {L"QString_size", {}, [](const Result& r) { return V_I4(&r.value) == 5; }},
      {L"QString_isEmpty", {}, [](const Result& r) { return V_VT(&r.value) == VT_I4 && V_I4(&r.value) == 0; }},
      {L"QString_at", {I4(1)}, [](const Result& r) { return r.object() && *InstanceAs<QChar>(r.object()) == 'e'; }},
      {L"QString_toUpper", {}, [](const Result& r) { return TextOf(r) == "HELLO"; }},
  };
  for (int fresh = 0; fresh < 50; ++fresh) {
    IDispatch* exposer = Wrap(L"QString", &hello);
    ASSERT_NE(nullptr, exposer);
    EXPECT_EQ(0, kwtest::HammerExposer(exposer, probes, 8, 4));
    EXPECT_EQ(0u, exposer->Release());
  }
  EXPECT_EQ(QString("hello"), hello);

  std::atomic<int> wrong{0};
  kwtest::RunOnThreads(8, [&](int thread) {
    QSize own;
    IDispatch* mine = Wrap(L"QSize", &own);
    for (int round = 0; round < 300 && mine != nullptr; ++round) {
      const int value = thread * 1000 + round;
      Result width;
      if (CallByName(mine, L"QSize_setWidth", {I4(value)}) != S_OK ||
          CallByName(mine, L"QSize_width", {}, &width.value) != S_OK || V_I4(&width.value) != value)
        ++wrong;
    }
    if (mine == nullptr || mine->Release() != 0) ++wrong;
  });
  EXPECT_EQ(0, wrong.load());
}

TEST_F(QtTest, RandomCallsOnValueClassesGiveDispatchErrorsNeverAFault) {
  QSize size(3, 4);
  QPoint point(5, 6);
  QRect rect(1, 2, 30, 40);
  std::vector<IDispatch*> exposers = {Wrap(L"QSize", &size), Wrap(L"QPoint", &point), Wrap(L"QRect", &rect)};
  // Dividing by zero is Qt's own assertion (the test's handler throws for it).
  kwtest::FuzzTally tally;
  try {
    tally = kwtest::FuzzExposers(exposers, 20000, 4807, {L"_DTOR_", L"_operator_SLASH"});
  } catch (const FatalMessage& fatal) {
    ADD_FAILURE() << "Qt reported: " << fatal.text;
  }
  EXPECT_EQ(20000, tally.calls);
  EXPECT_EQ(0, tally.unexpected);
  EXPECT_GT(tally.succeeded, 2000);
  size = QSize(7, 8);
  Result width;
  EXPECT_EQ(S_OK, CallByName(exposers[0], L"QSize_width", {}, &width.value));
  EXPECT_EQ(7, V_I4(&width.value));
  for (IDispatch* exposer : exposers) EXPECT_EQ(0u, exposer->Release());
}

}  // namespace
}  // namespace qttest
