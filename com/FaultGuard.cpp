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

thread_local GuardFrame* t_innermostGuard = nullptr;

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
  GuardFrame* frame = t_innermostGuard;
  if (frame == nullptr || !IsHardwareFault(info->ExceptionRecord->ExceptionCode)) return EXCEPTION_CONTINUE_SEARCH;
  frame->faulted = true;
  *info->ContextRecord = frame->resume;
  return EXCEPTION_CONTINUE_EXECUTION;
}

}  // namespace

bool RunFaultGuarded(void (*call)(void*), void* argument) {
  GuardFrame frame;
  frame.faulted = false;
  frame.outer = t_innermostGuard;
  // The handler is installed only for the duration of the call, so nothing
  // of this library stays in the process's handler list after unload.
  PVOID handler = AddVectoredExceptionHandler(1, ResumeAfterFault);
  RtlCaptureContext(&frame.resume);
  if (!frame.faulted) {
    t_innermostGuard = &frame;
    call(argument);
  }
  t_innermostGuard = frame.outer;
  if (handler != nullptr) RemoveVectoredExceptionHandler(handler);
  return !frame.faulted;
}

}  // namespace kwatl
