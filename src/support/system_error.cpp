#include "support/system_error.h"

#include <string>

#include "platform/platform.h"
#include "support/wide_string.h"

namespace kavo {

void RaiseSystemError(uint32_t win32Code, const char16_t* detail) {
  if (win32Code == 0 || win32Code > 0x7FFFFFFFu) win32Code = platform::kErrorNotSupported;
  const WideString message = u"System error " + FromUtf8(std::to_string(win32Code));
  CIMExceptionEx error;
  SetError(&error, static_cast<int32_t>(win32Code), message.c_str(), detail && *detail ? detail : message.c_str());
  throw error;
}

void RaiseLastSystemError(const char16_t* detail) { RaiseSystemError(platform::GetLastError(), detail); }

}  // namespace kavo
