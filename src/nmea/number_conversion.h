// Text-to-number conversions of NMEA fields. They never consult the process
// locale: a receiver writes "4807.038" whatever language the device is set
// to.
#pragma once

#include <cstdint>

#include "support/wide_string.h"

namespace kavo::nmea {

// Like wcstod in the "C" locale, restricted to what receivers send: leading
// white space, an optional sign, then decimal digits with an optional point
// and exponent. No "inf", "nan" or hexadecimal. Out-of-range values become
// infinity or zero as wcstod makes them. Returns the number of units
// consumed, 0 (and *value 0.0) when nothing converts.
size_t ParseDouble(WideView text, double* value);

// Like wcstol with base 10 on a platform with a 32-bit long: leading white
// space, an optional sign, then the leading digits; saturates at the int32
// limits. Text without digits gives 0.
int32_t ParseInteger(WideView text);

}  // namespace kavo::nmea
