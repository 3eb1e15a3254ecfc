// Field and sentence formatting for NMEA 0183 output. Numbers are rounded
// with integer arithmetic rather than printf, so that every platform writes
// the same digits.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "sim/utc_time.h"

namespace kavo::sim {

// XOR of every character of `body` (the text between "$" and "*").
uint8_t NmeaChecksum(std::string_view body);
// "$" + body + "*" + two upper-case hex digits.
std::string Sentence(std::string_view body);

// `value` rounded to `decimals` places, the integer part zero-padded to
// `width` digits ("004.20" for Fixed(4.2, 2, 3)).
std::string Fixed(double value, int decimals, int width = 1);
// Zero-padded integer.
std::string Padded(long value, int width);
// "ddmm.mmmm,N" and "dddmm.mmmm,E" (hemisphere from the sign).
std::string LatitudeFields(double degrees);
std::string LongitudeFields(double degrees);
// "hhmmss.ss" and "ddmmyy".
std::string TimeField(const UtcTime& time);
std::string DateField(const UtcTime& time);

}  // namespace kavo::sim
