// What the driver knows at one moment, taken through the exported
// functions, and the same values in the units people and programs read.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "KavoMobileGPS.h"
#include "civil_calendar.h"

namespace kavo::cli {

struct Reading {
  GPSLocation location{};
  std::vector<GPSSatellite> satellites;
  int32_t status = GPS_STATUS_STOPPED;
};

// Fills `reading` from the driver; false when a call failed.
bool TakeReading(GPSDriverHandle driver, Reading* reading);

// The driver status in words.
const char* StatusWords(int32_t status);

bool HasPosition(const GPSLocation& location);
bool HasFix(const GPSLocation& location);  // a position and a fix quality above 0
// 1 no fix, 2 two-dimensional, 3 with altitude.
int FixMode(const GPSLocation& location);
const char* FixQualityWords(int32_t quality);
bool Has(const GPSLocation& location, uint32_t validFlag);

constexpr double kMetresPerSecondPerMph = 0.44704;
constexpr double kKmhPerMph = 1.609344;
double Degrees(double radians);

using UtcTime = calendar::CivilTime;
// An OLE Automation date (days since 30 December 1899) as calendar time;
// false for a value outside the years 1900 to 9999 (0 is a location
// without a time).
bool FromOleDate(double date, UtcTime* time);
// "2024-05-14T10:00:05.000Z" when the location carries the receiver's full
// date and time, else empty.
std::string IsoTime(const GPSLocation& location);
// "10:00:05" from the receiver, or empty when it sent no time.
std::string TimeOfDay(const GPSLocation& location);

}  // namespace kavo::cli
