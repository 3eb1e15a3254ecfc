#include "platform/win32/win32_handles.h"

namespace kavo::platform {

uint32_t GetLastError() { return ::GetLastError(); }
void SetLastError(uint32_t code) { ::SetLastError(code); }

}  // namespace kavo::platform
