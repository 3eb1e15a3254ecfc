// The three shapes every exported function takes. Each keeps raised errors
// inside the library and leaves the calling thread's last error set.
#pragma once

#include <cstdint>

#include "KavoMobileGPS.h"
#include "platform/platform.h"
#include "support/error.h"

namespace kavo::api {

// The values the header names are those the library sets.
static_assert(KAVOGPS_ERROR_SUCCESS == platform::kErrorSuccess);
static_assert(KAVOGPS_ERROR_FILE_NOT_FOUND == platform::kErrorFileNotFound);
static_assert(KAVOGPS_ERROR_OUTOFMEMORY == platform::kErrorOutOfMemory);
static_assert(KAVOGPS_ERROR_NOT_SUPPORTED == platform::kErrorNotSupported);
static_assert(KAVOGPS_ERROR_INVALID_PARAMETER == platform::kErrorInvalidParameter);
static_assert(KAVOGPS_ERROR_BAD_ARGUMENTS == platform::kErrorBadArguments);
static_assert(KAVOGPS_ERROR_FILE_INVALID == platform::kErrorFileInvalid);

// The last-error value a failed record reports (support/error_codes.h).
inline uint32_t MapToWin32(const CIMExceptionImpl& record) { return LastErrorForCode(record.Code()); }

// Plain accessor: bad arguments give `failure` and 160, else the value and 0.
template <class R, class Work>
R AccessorFrame(bool argumentsOk, R failure, Work&& work) {
  if (!argumentsOk) {
    platform::SetLastError(platform::kErrorBadArguments);
    return failure;
  }
  R result = work();
  platform::SetLastError(platform::kErrorSuccess);
  return result;
}

// Operation that may fail inside: `work(record)` returns non-zero on success
// or zero with the record filled.
template <class Work>
int32_t OperationFrame(bool argumentsOk, Work&& work) {
  if (!argumentsOk) {
    platform::SetLastError(platform::kErrorBadArguments);
    return 0;
  }
  CIMExceptionImpl record;
  const int ok = CatchInto(&record, [&] { CheckOrRaise(work(&record), &record); });
  platform::SetLastError(ok ? platform::kErrorSuccess : MapToWin32(record));
  return ok;
}

// Creating function: `create(record)` runs the creation steps through
// CheckOrRaise and returns the new handle; a raised error gives null and its
// mapped code. Objects held by the steps are released as the stack unwinds.
template <class Handle, class Create>
Handle CreatingFrame(bool argumentsOk, Create&& create) {
  if (!argumentsOk) {
    platform::SetLastError(platform::kErrorBadArguments);
    return nullptr;
  }
  CIMExceptionImpl record;
  Handle result = nullptr;
  const int ok = CatchInto(&record, [&] { result = create(record); });
  platform::SetLastError(ok ? platform::kErrorSuccess : MapToWin32(record));
  return ok ? result : nullptr;
}

}  // namespace kavo::api
