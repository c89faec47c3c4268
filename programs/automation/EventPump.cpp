#include "automation/EventPump.h"

#include <QtCore/QCoreApplication>

namespace kwauto {

namespace {

bool ProcessInPlace() {
  QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
  return true;
}

bool NeverStop(QString*) { return false; }

YieldFunction g_yield = &ProcessInPlace;
StopFunction g_stop = &NeverStop;

}  // namespace

void SetEventPump(YieldFunction yield, StopFunction stop) {
  g_yield = yield != nullptr ? yield : &ProcessInPlace;
  g_stop = stop != nullptr ? stop : &NeverStop;
}

bool YieldToEventLoop() { return g_yield(); }

bool StopRequested(QString* reason) { return g_stop(reason); }

}  // namespace kwauto
