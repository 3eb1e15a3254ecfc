// The three shapes every exported function takes. Each keeps raised errors
// inside the library and leaves the calling thread's last error set.
#pragma once

#include <cstdint>

#include "platform/platform.h"
#include "support/error.h"

namespace kavo::api {

// Internal code to the Win32 code an exported function reports.
uint32_t MapToWin32(int32_t internalCode);
inline uint32_t MapToWin32(const CIMExceptionImpl& record) { return MapToWin32(record.Code()); }

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
