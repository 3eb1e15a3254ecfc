// The library's internal error codes, in one table: each code's name, the
// last-error value an exported function reports for it, and the standard
// text a record gets when it is given none. The codes are negative; a
// positive code in a record is an operating-system error (see
// system_error.h) and 0 is none of these.
#pragma once

#include <cstdint>
#include <string>

#include "platform/last_error.h"

namespace kavo {

// X(name, code, last error, standard text)
#define KAVO_ERROR_CODES(X)                                                                                       \
  /* also: a thread, event or mutex could not be made; a record that failed */                                    \
  /* without saying why holds it */                                                                               \
  X(kErrGeneralFailure, -1, platform::kErrorNotSupported, u"The operation failed.")                               \
  X(kErrCancelled, -2, platform::kErrorNotSupported, u"The operation was cancelled.")                             \
  X(kErrOutOfMemory, -3, platform::kErrorOutOfMemory, u"Not enough memory.")                                      \
  X(kErrNotInitialised, -4, platform::kErrorNotSupported, u"The object is not initialised.")                      \
  X(kErrPortCollection, -5, platform::kErrorNotSupported, u"The list of serial ports could not be built.")        \
  X(kErrAlreadyInitialised, -6, platform::kErrorNotSupported, u"The object is already initialised.")              \
  X(kErrTimedOut, -7, platform::kErrorNotSupported, u"The operation timed out.")                                  \
  X(kErrAccessDenied, -8, platform::kErrorNotSupported, u"Access was denied.")                                    \
  X(kErrInvalidParameter, -9, platform::kErrorInvalidParameter, u"A parameter is not valid.")                     \
  X(kErrInvalidData, -10, platform::kErrorNotSupported, u"The data are not valid.")                               \
  X(kErrOperationFailed, -11, platform::kErrorFileInvalid, u"A serial port or file operation failed.")            \
  X(kErrDeviceBusy, -12, platform::kErrorNotSupported, u"The device is busy.")                                    \
  X(kErrNoAnswer, -13, platform::kErrorNotSupported, u"The device did not answer.")                               \
  X(kErrPortNotFound, -14, platform::kErrorFileNotFound, u"The port cannot be opened, or no GPS port was found.") \
  X(kErrEndOfData, -15, platform::kErrorNotSupported, u"The end of the data was reached.")                        \
  X(kErrNotSupported, -16, platform::kErrorNotSupported, u"The operation is not supported.")                      \
  X(kErrNotAllowedNow, -17, platform::kErrorNotSupported, u"The operation is not allowed now.")                   \
  X(kErrNotConnected, -18, platform::kErrorNotSupported, u"The receiver is not connected.")                       \
  X(kErrOutOfRange, -19, platform::kErrorNotSupported, u"The value is out of range.")

enum ErrorCode : int32_t {
#define KAVO_ERROR_ENUMERATOR(name, code, lastError, text) name = code,
  KAVO_ERROR_CODES(KAVO_ERROR_ENUMERATOR)
#undef KAVO_ERROR_ENUMERATOR
};

// The last-error value for a record's code: that of the table, and
// ERROR_NOT_SUPPORTED for any code not in it.
uint32_t LastErrorForCode(int32_t code);

// The standard text of a code: that of the table, "Unknown error." for
// another negative code, empty for 0 and the operating system's codes.
std::u16string StandardErrorText(int32_t code);

}  // namespace kavo
