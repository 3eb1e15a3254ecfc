#include "platform/win32/win32_handles.h"

namespace kavo::platform {

WaitResult WaitForThreadOrEvent(Thread& thread, Event& event, uint32_t ms) {
  // Thread first: when both are ready the thread's end is what counts, and
  // the event is then left as it was.
  const HANDLE handles[2] = {win32::NativeHandle(thread), win32::NativeHandle(event)};
  const DWORD result = WaitForMultipleObjects(2, handles, FALSE, CurrentClock().RealWaitMs(ms));
  if (result == WAIT_OBJECT_0 || result == WAIT_OBJECT_0 + 1) return WaitResult::kSignaled;
  if (result == WAIT_TIMEOUT) return WaitResult::kTimeout;
  return WaitResult::kFailed;
}

}  // namespace kavo::platform
