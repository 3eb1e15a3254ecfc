#include "api/frames.h"

namespace kavo::api {

uint32_t MapToWin32(int32_t internalCode) {
  switch (internalCode) {
    case kErrNotSupported:
      return platform::kErrorNotSupported;
    case kErrPortNotFound:
      return platform::kErrorFileNotFound;
    case kErrOperationFailed:
      return platform::kErrorFileInvalid;
    case kErrInvalidParameter:
      return platform::kErrorInvalidParameter;
    case kErrOutOfMemory:
      return platform::kErrorOutOfMemory;
    default:
      return platform::kErrorNotSupported;
  }
}

}  // namespace kavo::api
