#pragma once

#include <cerrno>
#include <cstdint>

#include "platform/platform.h"

namespace kavo::platform::posix {

// The Win32 code closest to an errno value, so callers see one vocabulary.
inline uint32_t Win32FromErrno(int error) {
  switch (error) {
    case 0:
      return kErrorSuccess;
    case ENOENT:
    case ENOTDIR:
      return kErrorFileNotFound;
    case EACCES:
    case EPERM:
    case EROFS:
      return kErrorAccessDenied;
    case EBUSY:
    case EWOULDBLOCK:
      return kErrorSharingViolation;
    case ENOMEM:
      return kErrorOutOfMemory;
    case EINVAL:
      return kErrorInvalidParameter;
    default:
      return kErrorNotSupported;
  }
}

inline void SetLastErrorFromErrno() { SetLastError(Win32FromErrno(errno)); }

}  // namespace kavo::platform::posix
