#include "com/FaultGuard.h"

#include <windows.h>

namespace kwatl {

namespace {

// One guarded call in progress on a thread. The fault handler resumes the
// thread at the point where the context was captured, with `faulted` set.
struct GuardFrame {
  CONTEXT resume;
  volatile bool faulted;
  GuardFrame* outer;
};

// The innermost guarded call of each thread, in a Win32 TLS slot taken at
// load and given back at unload. (A C++ thread_local would go through the
// statically linked pthreads emulation, which gives every thread that
// touches it a thread object of four handles and never frees them when
// the DLL is unloaded.)
class GuardSlot {
 public:
  GuardSlot() : m_index(TlsAlloc()) {}
  ~GuardSlot() {
    if (m_index != TLS_OUT_OF_INDEXES) TlsFree(m_index);
  }
  GuardFrame* get() const {
    return m_index != TLS_OUT_OF_INDEXES ? static_cast<GuardFrame*>(TlsGetValue(m_index)) : nullptr;
  }
  void set(GuardFrame* frame) const {
    if (m_index != TLS_OUT_OF_INDEXES) TlsSetValue(m_index, frame);
  }

 private:
  DWORD m_index;
};

GuardSlot g_innermostGuard;

bool IsHardwareFault(DWORD code) {
  switch (code) {
    case EXCEPTION_ACCESS_VIOLATION:
    case EXCEPTION_IN_PAGE_ERROR:
    case EXCEPTION_ILLEGAL_INSTRUCTION:
    case EXCEPTION_PRIV_INSTRUCTION:
    case EXCEPTION_DATATYPE_MISALIGNMENT:
    case EXCEPTION_INT_DIVIDE_BY_ZERO:
      return true;
    default:
      return false;
  }
}

LONG CALLBACK ResumeAfterFault(EXCEPTION_POINTERS* info) {
  GuardFrame* frame = g_innermostGuard.get();
  if (frame == nullptr || !IsHardwareFault(info->ExceptionRecord->ExceptionCode)) return EXCEPTION_CONTINUE_SEARCH;
  frame->faulted = true;
  *info->ContextRecord = frame->resume;
  return EXCEPTION_CONTINUE_EXECUTION;
}

}  // namespace

bool RunFaultGuarded(void (*call)(void*), void* argument) {
  GuardFrame frame;
  frame.faulted = false;
  frame.outer = g_innermostGuard.get();
  // The handler is installed only for the duration of the call, so nothing
  // of this library stays in the process's handler list after unload.
  PVOID handler = AddVectoredExceptionHandler(1, ResumeAfterFault);
  RtlCaptureContext(&frame.resume);
  if (!frame.faulted) {
    g_innermostGuard.set(&frame);
    call(argument);
  }
  g_innermostGuard.set(frame.outer);
  if (handler != nullptr) RemoveVectoredExceptionHandler(handler);
  return !frame.faulted;
}

}  // namespace kwatl
