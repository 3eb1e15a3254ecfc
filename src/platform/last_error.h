// The calling thread's last-error value, and the Win32 error codes the
// library and its platform seam use: one list, so that no module declares a
// code of its own. On POSIX the seam maps errno onto these.
#pragma once

#include <cstdint>

namespace kavo::platform {

// SetLastError/GetLastError on Win32; a thread_local value on POSIX.
uint32_t GetLastError();
void SetLastError(uint32_t code);

constexpr uint32_t kErrorSuccess = 0;
constexpr uint32_t kErrorFileNotFound = 2;
constexpr uint32_t kErrorAccessDenied = 5;
constexpr uint32_t kErrorInvalidHandle = 6;
constexpr uint32_t kErrorOutOfMemory = 14;
constexpr uint32_t kErrorSharingViolation = 32;
constexpr uint32_t kErrorNotSupported = 50;
constexpr uint32_t kErrorInvalidParameter = 87;
constexpr uint32_t kErrorBadArguments = 160;
constexpr uint32_t kErrorMoreData = 234;
constexpr uint32_t kErrorNoMoreItems = 259;
constexpr uint32_t kErrorFileInvalid = 1006;
constexpr uint32_t kErrorKeyDeleted = 1018;
constexpr uint32_t kErrorDeviceNotConnected = 1167;

}  // namespace kavo::platform
