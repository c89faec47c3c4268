// How the automation waits for the application. What it does (a click, keys,
// a menu) is posted to the GUI thread's event loop; while it waits for the
// loop to deliver, it lets the loop run through the pump its host set: a
// script or command running on a fiber hands the thread back to the loop
// and is resumed from there (so that a modal dialog's own loop delivers
// too); without a pump the pending events are processed in place.
#pragma once

#include <QtCore/QString>

namespace kwauto {

// Lets the event loop run and comes back; false when the caller is to stop.
using YieldFunction = bool (*)();
// Whether the caller is to stop, and why.
using StopFunction = bool (*)(QString* reason);

// Sets the pump (null: the default, processing events in place, never stopping).
void SetEventPump(YieldFunction yield, StopFunction stop);

bool YieldToEventLoop();
bool StopRequested(QString* reason);

}  // namespace kwauto
