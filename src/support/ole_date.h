// OLE Automation dates: days since 30 December 1899 as a double, the
// fraction being the time of day.
#pragma once

#include "civil_calendar.h"
#include "platform/platform.h"

namespace kavo {

// The library keeps whole seconds: milliseconds stay 0.
using DateTimeParts = calendar::CivilTime;

// Builds the date; false when the parts are not a valid instant (year 100 to
// 9999, a real calendar day, hour < 24, minute and second < 60).
bool OleDateFromParts(const DateTimeParts& parts, double* date);

// Splits a date into its parts, rounded to the second; false when it lies
// outside the years 100 to 9999 or is not a number.
bool OleDateToParts(double date, DateTimeParts* parts);

// A local clock reading as a date (milliseconds dropped).
double OleDateFromLocalTime(const platform::LocalTime& time);

}  // namespace kavo
