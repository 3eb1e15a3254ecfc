// The three shapes every exported function takes. Each keeps raised errors
// inside the library and leaves the calling thread's last error set.
#pragma once

#include <cstdint>
#include <new>

#include "platform/platform.h"
#include "support/error.h"

namespace kavo::api {

// Internal code to the Win32 code an exported function reports.
uint32_t MapToWin32(int32_t internalCode);
inline uint32_t MapToWin32(const CIMExceptionImpl& record) { return MapToWin32(record.Code()); }

// Last error for an error escaping an inner operation.
uint32_t MapCaughtError();  // call only inside a catch block

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
  uint32_t lastError;
  try {
    lastError = work(&record) ? platform::kErrorSuccess : MapToWin32(record);
  } catch (...) {
    lastError = MapCaughtError();
  }
  platform::SetLastError(lastError);
  return lastError == platform::kErrorSuccess ? 1 : 0;
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
  uint32_t lastError = platform::kErrorSuccess;
  try {
    result = create(record);
  } catch (...) {
    lastError = MapCaughtError();
    result = nullptr;
  }
  platform::SetLastError(lastError);
  return result;
}

}  // namespace kavo::api
