// Drag and drop carried by the automation's pointer. Qt starts a drag (of
// an item, of selected text) with OLE's DoDragDrop, whose own loop follows
// the system's mouse: the cursor's place and the buttons' state, which
// posted events leave alone, so a drag started by posted events would drop
// at once, wherever the real cursor is. While a Pointer (InputEvents.h)
// holds a button, the drag Qt starts is carried by that pointer instead:
// its moves are the drag's moves, its release the drop and Escape the
// cancel, delivered to the drop targets the application's windows
// registered, as OLE delivers them. Any other drag (a user's) is OLE's.
#pragma once

#include <QtCore/QPoint>
#include <QtCore/Qt>

namespace kwauto {

// Routes QtGui4.dll's DoDragDrop through here; once per process, on the
// GUI thread, before the first press.
void InstallDragHook();

// The pointer (any identity) holding `held` at `global`; NoButton when it
// has released every button. A drag Qt starts from here on starts there.
void NotePointerHolds(const void* pointer, const QPoint& global, Qt::MouseButtons held,
                      Qt::KeyboardModifiers modifiers);
// The pointer is gone: a drag it carries is cancelled.
void NotePointerGone(const void* pointer);

// Whether a drag carried by a pointer is under way (its loop runs).
bool DragUnderWay();

enum class DragStep { kMove, kDrop, kCancel };
// Posts a step of the drag under way, taken by its loop like the events
// posted before it: the pointer moved to `global`, the buttons released
// there, or the drag cancelled.
void PostDragStep(DragStep step, const QPoint& global, Qt::MouseButtons held, Qt::KeyboardModifiers modifiers);

}  // namespace kwauto
