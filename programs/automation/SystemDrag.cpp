#include "automation/SystemDrag.h"

#include <windows.h>

#include <ole2.h>

#include <QtCore/QCoreApplication>
#include <QtCore/QEvent>
#include <QtCore/QEventLoop>
#include <QtGui/QApplication>
#include <QtGui/QWidget>

namespace kwauto {

namespace {

using DoDragDropFunction = HRESULT(WINAPI*)(IDataObject*, IDropSource*, DWORD, DWORD*);

DoDragDropFunction g_systemDoDragDrop = nullptr;

// The pointer that holds a button, where, and what it holds.
struct Holder {
  const void* pointer = nullptr;
  QPoint at;
  Qt::MouseButtons buttons = Qt::NoButton;
  Qt::KeyboardModifiers modifiers = Qt::NoModifier;
};
Holder g_holder;

// OLE's key state (MK_*) of buttons and modifiers.
DWORD KeyState(Qt::MouseButtons buttons, Qt::KeyboardModifiers modifiers) {
  DWORD keys = 0;
  if (buttons & Qt::LeftButton) keys |= MK_LBUTTON;
  if (buttons & Qt::RightButton) keys |= MK_RBUTTON;
  if (buttons & Qt::MidButton) keys |= MK_MBUTTON;
  if (modifiers & Qt::ShiftModifier) keys |= MK_SHIFT;
  if (modifiers & Qt::ControlModifier) keys |= MK_CONTROL;
  if (modifiers & Qt::AltModifier) keys |= MK_ALT;
  return keys;
}

// The drop target that the window under `global` registered (through
// RegisterDragDrop, which keeps it in this property of the window), and
// that window: a window of the application's own, the widget there's or
// its nearest native parent's within its window.
IDropTarget* DropTargetAt(const QPoint& global, HWND* window) {
  for (QWidget* widget = QApplication::widgetAt(global); widget != nullptr; widget = widget->parentWidget()) {
    const HWND handle = widget->internalWinId();
    if (handle != nullptr) {
      if (auto* target = static_cast<IDropTarget*>(GetPropW(handle, L"OleDropTargetInterface"))) {
        *window = handle;
        return target;
      }
    }
    if (widget->isWindow()) break;
  }
  *window = nullptr;
  return nullptr;
}

struct StepEvent : QEvent {
  static const QEvent::Type kType = static_cast<QEvent::Type>(QEvent::User + 0x4B61);
  StepEvent(DragStep step, const QPoint& at, DWORD keys) : QEvent(kType), step(step), at(at), keys(keys) {}
  DragStep step;
  QPoint at;
  DWORD keys;
};

// One drag carried by the pointer, for as long as DoDragDrop's call: a loop
// of the application's events that ends with the drop or the cancel, and
// the drop target under the pointer told of each step on the GUI thread's
// own stack, as OLE's loop tells it.
class PointerDrag : public QObject {
 public:
  static const QEvent::Type kNudge = static_cast<QEvent::Type>(QEvent::User + 0x4B62);

  PointerDrag(IDataObject* data, IDropSource* source, DWORD allowed)
      : m_data(data), m_source(source), m_allowed(allowed) {}

  HRESULT Run(DWORD* effect) {
    Over(g_holder.at, KeyState(g_holder.buttons, g_holder.modifiers));
    // The drag starts while Qt delivers the posted move that started it, and
    // Qt's loop below sends posted events only once one was posted since it
    // began that delivery: those posted before it (the step's own marker,
    // the job's timer) would wait for an unrelated event. One event posted
    // here lets the loop take them.
    QCoreApplication::postEvent(this, new QEvent(kNudge));
    m_loop.exec();  // until the drop or the cancel (or the application quits)
    Leave();
    *effect = m_result == DRAGDROP_S_DROP ? m_effect : DROPEFFECT_NONE;
    return m_result;
  }

  bool event(QEvent* event) override {
    if (event->type() == kNudge) return true;
    if (event->type() != StepEvent::kType) return QObject::event(event);
    const auto* step = static_cast<StepEvent*>(event);
    if (step->step == DragStep::kMove)
      Over(step->at, step->keys);
    else
      End(step->step == DragStep::kDrop, step->at, step->keys);
    return true;
  }

 private:
  void Over(const QPoint& global, DWORD keys) {
    HWND window = nullptr;
    IDropTarget* target = DropTargetAt(global, &window);
    const POINTL at = {global.x(), global.y()};
    DWORD effect = m_allowed;
    if (window != m_window) {
      Leave();
      if (target != nullptr) {
        target->AddRef();
        m_target = target;
        m_window = window;
        if (FAILED(m_target->DragEnter(m_data, keys, at, &effect))) effect = DROPEFFECT_NONE;
      }
    } else if (m_target != nullptr && FAILED(m_target->DragOver(keys, at, &effect))) {
      effect = DROPEFFECT_NONE;
    }
    m_effect = m_target != nullptr ? effect & m_allowed : DROPEFFECT_NONE;
    m_source->GiveFeedback(m_effect);
  }

  void Leave() {
    if (m_target == nullptr) return;
    m_target->DragLeave();
    m_target->Release();
    m_target = nullptr;
    m_window = nullptr;
  }

  // The drop where the buttons were released, when the target there takes
  // it (the last step's effect), else the drag's cancel.
  void End(bool drop, const QPoint& global, DWORD keys) {
    if (drop && m_target != nullptr && m_effect != DROPEFFECT_NONE) {
      const POINTL at = {global.x(), global.y()};
      DWORD effect = m_allowed;
      const HRESULT hr = m_target->Drop(m_data, keys, at, &effect);
      m_effect = effect & m_allowed;
      m_result = SUCCEEDED(hr) ? DRAGDROP_S_DROP : hr;
      m_target->Release();
      m_target = nullptr;
      m_window = nullptr;
    }
    m_loop.quit();
  }

  IDataObject* m_data;
  IDropSource* m_source;
  DWORD m_allowed;
  HWND m_window = nullptr;
  IDropTarget* m_target = nullptr;
  DWORD m_effect = DROPEFFECT_NONE;
  HRESULT m_result = DRAGDROP_S_CANCEL;
  QEventLoop m_loop;
};

PointerDrag* g_drag = nullptr;

HRESULT WINAPI DoDragDropOfPointer(IDataObject* data, IDropSource* source, DWORD allowed, DWORD* effect) {
  if (g_holder.pointer == nullptr || g_drag != nullptr || data == nullptr || source == nullptr || effect == nullptr)
    return g_systemDoDragDrop(data, source, allowed, effect);
  PointerDrag drag(data, source, allowed);
  g_drag = &drag;
  const HRESULT result = drag.Run(effect);
  g_drag = nullptr;
  return result;
}

// Points the module's import of `function` (its slot in the import address
// table) at `replacement`; false when the module does not import it.
bool RedirectImport(HMODULE module, const void* function, const void* replacement) {
  auto* base = reinterpret_cast<BYTE*>(module);
  const auto* dos = reinterpret_cast<const IMAGE_DOS_HEADER*>(base);
  const auto* headers = reinterpret_cast<const IMAGE_NT_HEADERS*>(base + dos->e_lfanew);
  const IMAGE_DATA_DIRECTORY& imports = headers->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT];
  if (imports.VirtualAddress == 0) return false;
  for (auto* entry = reinterpret_cast<IMAGE_IMPORT_DESCRIPTOR*>(base + imports.VirtualAddress); entry->Name != 0;
       ++entry) {
    for (auto* slot = reinterpret_cast<IMAGE_THUNK_DATA*>(base + entry->FirstThunk); slot->u1.Function != 0; ++slot) {
      if (slot->u1.Function != reinterpret_cast<ULONG_PTR>(function)) continue;
      DWORD protection = 0;
      if (!VirtualProtect(&slot->u1.Function, sizeof slot->u1.Function, PAGE_READWRITE, &protection)) return false;
      slot->u1.Function = reinterpret_cast<ULONG_PTR>(replacement);
      VirtualProtect(&slot->u1.Function, sizeof slot->u1.Function, protection, &protection);
      return true;
    }
  }
  return false;
}

}  // namespace

void InstallDragHook() {
  static bool tried = false;
  if (tried) return;
  tried = true;
  HMODULE ole = GetModuleHandleW(L"ole32.dll");
  HMODULE gui = GetModuleHandleW(L"QtGui4.dll");
  if (gui == nullptr) gui = GetModuleHandleW(L"QtGuid4.dll");
  if (ole == nullptr || gui == nullptr) return;
  void* const system = reinterpret_cast<void*>(GetProcAddress(ole, "DoDragDrop"));
  if (system == nullptr) return;
  g_systemDoDragDrop = reinterpret_cast<DoDragDropFunction>(system);
  RedirectImport(gui, system, reinterpret_cast<void*>(&DoDragDropOfPointer));
}

void NotePointerHolds(const void* pointer, const QPoint& global, Qt::MouseButtons held,
                      Qt::KeyboardModifiers modifiers) {
  if (held == Qt::NoButton) {
    if (g_holder.pointer == pointer) g_holder = Holder();
    return;
  }
  g_holder = Holder{pointer, global, held, modifiers};
}

void NotePointerGone(const void* pointer) {
  if (g_holder.pointer != pointer) return;
  g_holder = Holder();
  if (g_drag != nullptr) PostDragStep(DragStep::kCancel, QPoint(), Qt::NoButton, Qt::NoModifier);
}

bool DragUnderWay() { return g_drag != nullptr; }

void PostDragStep(DragStep step, const QPoint& global, Qt::MouseButtons held, Qt::KeyboardModifiers modifiers) {
  if (g_drag == nullptr) return;
  QCoreApplication::postEvent(g_drag, new StepEvent(step, global, KeyState(held, modifiers)));
}

}  // namespace kwauto
