// What the Win32 files share: the OS header, and the native handles behind
// the platform objects, so that one wait can cover a thread and an event.
#pragma once

#ifndef WIN32_LEAN_AND_MEAN
#  define WIN32_LEAN_AND_MEAN
#endif
#ifndef NOMINMAX
#  define NOMINMAX
#endif
#include <windows.h>

#include "platform/platform.h"

namespace kavo::platform::win32 {

HANDLE NativeHandle(Thread& thread);
HANDLE NativeHandle(Event& event);

// A library time-out in clock milliseconds as a real wait, then the result.
inline WaitResult WaitOn(HANDLE handle, uint32_t ms) {
  switch (WaitForSingleObject(handle, CurrentClock().RealWaitMs(ms))) {
    case WAIT_OBJECT_0:
      return WaitResult::kSignaled;
    case WAIT_TIMEOUT:
      return WaitResult::kTimeout;
    case WAIT_ABANDONED:
      return WaitResult::kAbandoned;
    default:
      return WaitResult::kFailed;
  }
}

// ReadFile and WriteFile as files and serial ports both call them: the
// count is 0 whenever the call failed. Defined in file.cpp.
bool ReadHandle(HANDLE handle, void* buffer, uint32_t size, uint32_t* got);
bool WriteHandle(HANDLE handle, const void* data, uint32_t size, uint32_t* written);

// wchar_t and char16_t are both UTF-16 units here; the casts live in this
// folder only.
inline const wchar_t* Wide(const char16_t* text) { return reinterpret_cast<const wchar_t*>(text); }
inline const wchar_t* Wide(const std::u16string& text) { return Wide(text.c_str()); }

}  // namespace kavo::platform::win32
