// The core's waits (kwauto::FiberRunner): a job on the GUI thread's fiber
// lets the event loop run while it waits, gives up a call that opens a
// modal dialog and goes on to close it, stops when asked, and is cut off
// when it loops in code that no stop reaches.
#include <gtest/gtest.h>

#include <windows.h>

#include <QtCore/QEvent>
#include <QtCore/QEventLoop>
#include <QtCore/QPointer>
#include <QtGui/QApplication>
#include <QtGui/QDialog>

#include "automation/EventPump.h"
#include "automation/FiberRunner.h"

#include <cstdint>
#include <thread>
#include <vector>

namespace {

using kwauto::FiberCall;
using kwauto::FiberRunner;

// Notes the posted events it gets: only a running event loop delivers them.
class Receiver : public QObject {
 public:
  int received = 0;
  bool event(QEvent* event) override {
    if (event->type() != QEvent::User) return QObject::event(event);
    ++received;
    return true;
  }
};

// Runs `job` on a runner until it ends; whether it succeeded.
template <typename Job>
bool RunJob(Job job) {
  QEventLoop loop;
  bool succeeded = false, ended = false;
  FiberRunner runner(job, [&](bool outcome) {
    succeeded = outcome;
    ended = true;
    loop.quit();
  });
  EXPECT_EQ(runner.Start().toStdString(), "");
  if (!ended) loop.exec();
  return succeeded;
}

TEST(Waits, AJobWaitsWhileTheEventLoopDelivers) {
  Receiver receiver;
  int rounds = 0;
  EXPECT_TRUE(RunJob([&] {
    QCoreApplication::postEvent(&receiver, new QEvent(QEvent::User));
    EXPECT_EQ(receiver.received, 0);  // nothing is delivered while the job runs
    while (receiver.received == 0 && kwauto::YieldToEventLoop()) ++rounds;  // the pump the runner set
    return receiver.received == 1;
  }));
  EXPECT_GE(rounds, 1);
}

TEST(Waits, AJobsOutcomeIsItsOwn) {
  EXPECT_FALSE(RunJob([] { return false; }));
  EXPECT_TRUE(RunJob([] { return true; }));
}

// exec() of a modal dialog, as a call of a job.
struct ExecDialog : FiberCall {
  QDialog* dialog = nullptr;
  int* result = nullptr;
  void Make() override { *result = dialog->exec(); }
};

TEST(Waits, ACallThatOpensAModalDialogIsGivenUpAndTheJobAnswersIt) {
  QDialog dialog;
  dialog.setGeometry(50, 50, 120, 80);
  int result = -1;
  bool returned = true, sawDialog = false;
  EXPECT_TRUE(RunJob([&] {
    auto* call = new ExecDialog;  // the runner deletes it once exec() returns
    call->dialog = &dialog;
    call->result = &result;
    returned = FiberRunner::CallOffScript(call);
    sawDialog = call->window == &dialog && dialog.isVisible();
    EXPECT_EQ(FiberRunner::CallsGivenUp(), 1);
    dialog.done(7);
    while (result == -1 && FiberRunner::YieldToEventLoop()) {
    }
    return true;
  }));
  EXPECT_FALSE(returned) << "the call waits in the dialog's loop: given up";
  EXPECT_TRUE(sawDialog);
  EXPECT_EQ(result, 7);
  EXPECT_EQ(FiberRunner::CallsGivenUp(), 0);
}

TEST(Waits, ARunnerWhoseGivenUpCallStillWaitsOutlivesItsDisposal) {
  QDialog dialog;
  dialog.setGeometry(50, 50, 120, 80);
  int result = -1;
  QEventLoop loop;
  bool inUseAtTheEnd = false, keptOnDisposal = false;
  QPointer<FiberRunner> runner;
  runner = new FiberRunner(
      [&] {
        auto* call = new ExecDialog;
        call->dialog = &dialog;
        call->result = &result;
        return !FiberRunner::CallOffScript(call);  // ends while the dialog stays open
      },
      [&](bool) {
        // In the dialog's loop, which the given-up call runs below here.
        inUseAtTheEnd = runner->InUse();
        runner->Dispose();
        keptOnDisposal = !runner.isNull();
        dialog.done(3);
        loop.quit();
      });
  runner->Start();
  loop.exec();
  EXPECT_TRUE(inUseAtTheEnd);
  EXPECT_TRUE(keptOnDisposal) << "deleted while its call still waits";
  EXPECT_EQ(result, 3);
  QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
  EXPECT_TRUE(runner.isNull()) << "deleted once the call returned";
}

TEST(Waits, OutsideAJobACallIsMadeInPlace) {
  struct Plain : FiberCall {
    bool made = false;
    void Make() override { made = true; }
  } call;
  EXPECT_TRUE(FiberRunner::CallOffScript(&call));
  EXPECT_TRUE(call.made);
}

TEST(Waits, AStopAskedForEndsTheWaitsWithItsReason) {
  Receiver receiver;
  QString reason;
  EXPECT_TRUE(RunJob([&] {
    int rounds = 0;
    while (kwauto::YieldToEventLoop())
      if (++rounds == 3) FiberRunner::RequestStop("enough waiting");
    return kwauto::StopRequested(&reason) && rounds == 3;
  }));
  EXPECT_EQ(reason.toStdString(), "enough waiting");
  // The next job starts without it.
  EXPECT_TRUE(RunJob([] {
    QString none;
    return kwauto::YieldToEventLoop() && !kwauto::StopRequested(&none);
  }));
}

// A loop that never ends by itself, standing for a script engine's; a
// function of its own, so that its code is one short range.
__attribute__((noinline)) void SpinWhileZero(const volatile int* flag) {
  while (*flag == 0) {
  }
}

TEST(Waits, AJobLoopingInTheGivenCodeIsCutOffAndTheThreadGoesOn) {
  const auto spin = reinterpret_cast<std::uintptr_t>(&SpinWhileZero);
  const std::vector<FiberRunner::CodeRange> spinCode = {{spin, spin + 64}}, nowhere = {{1, 2}};
  EXPECT_FALSE(FiberRunner::CutOff(spinCode, 100)) << "no job runs";
  volatile int never = 0;
  bool elsewhereCut = true, cut = false;
  std::thread cutter([&] {
    Sleep(200);
    FiberRunner::RequestStop("it spins");  // which the spin never sees
    elsewhereCut = FiberRunner::CutOff(nowhere, 100);
    cut = FiberRunner::CutOff(spinCode, 5000);
  });
  QEventLoop loop;
  bool ended = false, succeeded = true;
  FiberRunner runner([&] {
    SpinWhileZero(&never);
    return true;
  }, [&](bool outcome) {
    succeeded = outcome;
    ended = true;
    loop.quit();
  });
  runner.Start();
  if (!ended) loop.exec();
  cutter.join();
  EXPECT_FALSE(elsewhereCut) << "the thread was never in that code";
  EXPECT_TRUE(cut);
  EXPECT_TRUE(ended);
  EXPECT_FALSE(succeeded);
  EXPECT_TRUE(runner.WasCutOff());
  // The thread goes on in the event loop, and the next job runs there.
  Receiver receiver;
  EXPECT_TRUE(RunJob([&] {
    QCoreApplication::postEvent(&receiver, new QEvent(QEvent::User));
    while (receiver.received == 0 && kwauto::YieldToEventLoop()) {
    }
    return receiver.received == 1;
  }));
}

}  // namespace
