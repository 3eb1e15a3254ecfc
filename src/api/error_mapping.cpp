#include <new>

#include "api/frames.h"

namespace kavo::api {

uint32_t MapToWin32(int32_t internalCode) {
  switch (internalCode) {
    case kErrNotSupported: return platform::kErrorNotSupported;
    case kErrPortNotFound: return platform::kErrorFileNotFound;
    case kErrOperationFailed: return platform::kErrorFileInvalid;
    case kErrInvalidParameter: return platform::kErrorInvalidParameter;
    case kErrOutOfMemory: return platform::kErrorOutOfMemory;
    default: return platform::kErrorNotSupported;
  }
}

uint32_t MapCaughtError() {
  try {
    throw;
  } catch (const CIMExceptionEx& error) {
    return MapToWin32(error);
  } catch (const CMemoryException&) {
    return MapToWin32(kErrOutOfMemory);
  } catch (const std::bad_alloc&) {
    return MapToWin32(kErrOutOfMemory);
  } catch (...) {
    return platform::kErrorNotSupported;
  }
}

}  // namespace kavo::api
