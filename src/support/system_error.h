// Failures of the operating system (a file that cannot be opened or read)
// raised with the platform's own error number. They travel as a
// CIMExceptionEx whose code is the positive Win32 error, which keeps them
// apart from the library's internal codes, all of which are negative.
#pragma once

#include <cstdint>

#include "support/error.h"

namespace kavo {

// Raises a system error with `win32Code` (a code of 0 would read as no
// error, so it becomes ERROR_NOT_SUPPORTED); `detail` names the object.
[[noreturn]] void RaiseSystemError(uint32_t win32Code, const char16_t* detail = nullptr);
// Raises a system error with the calling thread's last-error value.
[[noreturn]] void RaiseLastSystemError(const char16_t* detail = nullptr);

}  // namespace kavo
