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
int32_t ParseIntegerGeneral(WideView text);

// The same, quicker for what receivers send: a field that starts with a
// digit and holds at most nine units cannot overflow, and its leading
// digits are the whole answer. Most hold two or three (satellite numbers,
// elevations, azimuths, signal strengths), read without a loop.
inline int32_t ParseInteger(WideView text) {
  const size_t size = text.size();
  if (size == 0 || size > 9) return ParseIntegerGeneral(text);
  const unsigned first = static_cast<unsigned>(text[0] - u'0');
  if (first > 9) return ParseIntegerGeneral(text);
  if (size == 1) return static_cast<int32_t>(first);
  const unsigned second = static_cast<unsigned>(text[1] - u'0');
  if (second > 9) return static_cast<int32_t>(first);
  unsigned value = first * 10 + second;
  for (size_t i = 2; i < size; ++i) {
    const unsigned digit = static_cast<unsigned>(text[i] - u'0');
    if (digit > 9) break;
    value = value * 10 + digit;
  }
  return static_cast<int32_t>(value);
}

}  // namespace kavo::nmea
