// Conversions from NMEA fields to the values the receiver state stores.
// A value that cannot be accepted raises CNotSupportedException (or
// CIMExceptionEx with code -16 for an impossible date), which the sentence
// dispatch logs before it drops the sentence.
#pragma once

#include <cstdint>

#include "KavoMobileGPS.h"
#include "nmea/number_conversion.h"
#include "platform/platform.h"
#include "support/wide_string.h"

namespace kavo::nmea {

constexpr double kKnotsToMph = 1.1507794480235425;
constexpr double kDegreesToRadians = 0.0174532925;

// The whole field as a number; empty gives 0.0, anything left over raises.
double NumberField(WideView field);
// The field as a number, or 0.0 when it is empty or not a number in full.
double NumberFieldOrZero(WideView field);
// The number the field begins with, whatever follows it; 0.0 when it is
// empty or does not begin with one.
double LeadingNumberOrZero(WideView field);
// The field's leading integer (see ParseInteger); empty gives 0.
inline int32_t IntegerField(WideView field) { return ParseInteger(field); }
// Truncated toward zero and saturated; NaN gives 0.
int32_t TruncateToInt(double value);

// ddmm.mmmm / dddmm.mmmm to decimal degrees, negative unless the hemisphere
// is exactly "N" or "E".
double Coordinate(WideView value, WideView hemisphere);
inline double KnotsToMph(double knots) { return knots * kKnotsToMph; }
inline double DegreesToRadians(double degrees) { return degrees * kDegreesToRadians; }
// 0 stays 0 and 2..8 are kept; everything else means a plain fix, 1.
int32_t FixQualityFromField(WideView field);

// A receiver time as an OLE Automation date with its time type.
struct ReceiverTime {
  double value = 0.0;
  int32_t type = GPS_TIME_LOCAL_CLOCK;
};

// hhmmss[.sss] on today's local date (GPS_TIME_OF_DAY); shorter than six
// units: the local clock itself (GPS_TIME_LOCAL_CLOCK).
ReceiverTime TimeOfDay(WideView time, const platform::LocalTime& now);
// RMC time and ddmmyy date (GPS_TIME_FULL; years below 71 are 20yy);
// without a date, as TimeOfDay.
ReceiverTime DateAndTime(WideView time, WideView date, const platform::LocalTime& now);

}  // namespace kavo::nmea
