#include "session/reading.h"

#include <cstdio>

#include "session/gps_library.h"

namespace kavo::cli {

bool TakeReading(GPSDriverHandle driver, Reading* reading) {
  reading->status = GPSDriver_GetStatus(driver);
  if (!GPSDriver_GetLocation(driver, &reading->location)) return false;
  const SatellitesPtr state(GPSDriver_GetSatellitesInfo(driver));
  if (!state) return false;
  const int32_t count = GPSSatellitesState_GetVisibleSatellitesCount(state.get());
  reading->satellites.clear();
  reading->satellites.reserve(count > 0 ? static_cast<size_t>(count) : 0);
  for (int32_t i = 0; i < count; ++i) {
    GPSSatellite satellite{};
    if (GPSSatellitesState_GetSatellite(state.get(), i, &satellite)) reading->satellites.push_back(satellite);
  }
  return true;
}

const char* StatusWords(int32_t status) {
  switch (status) {
    case GPS_STATUS_RECEIVING:
      return "receiving NMEA";
    case GPS_STATUS_TIMEOUT:
      return "no data";
    case GPS_STATUS_STOPPED:
      return "stopped or waiting for data";
    case GPS_STATUS_NO_SENTENCE:
      return "text without NMEA sentences";
    case GPS_STATUS_PARSE_ERROR:
      return "parser error";
    default:
      return "unknown status";
  }
}

bool Has(const GPSLocation& location, uint32_t validFlag) { return (location.ValidFlags & validFlag) == validFlag; }

bool HasPosition(const GPSLocation& location) { return Has(location, GPS_VALID_POSITION); }

bool HasFix(const GPSLocation& location) { return HasPosition(location) && location.FixQuality > 0; }

int FixMode(const GPSLocation& location) {
  if (!HasFix(location)) return 1;
  return Has(location, GPS_VALID_ALTITUDE) ? 3 : 2;
}

const char* FixQualityWords(int32_t quality) {
  static const char* const words[] = {"no fix",    "GPS fix",   "DGPS fix",     "PPS fix",  "RTK fixed",
                                      "RTK float", "estimated", "manual input", "simulated"};
  return quality >= 0 && quality <= 8 ? words[quality] : "unknown fix quality";
}

double Degrees(double radians) { return radians * (180.0 / 3.14159265358979323846); }

bool FromOleDate(double date, UtcTime* time) { return date >= 1.0 && calendar::CivilFromOleDate(date, time); }

// Every field fits its width: years run from 100 to 9999. Written by hand
// because formatting it cost more than the rest of a report.
std::string IsoTime(const GPSLocation& location) {
  UtcTime t;
  if (location.TimeType != GPS_TIME_FULL || !FromOleDate(location.Time, &t)) return {};
  std::string text = "0000-00-00T00:00:00.000Z";
  const auto put = [&text](size_t at, int value, int width) {
    for (size_t i = at + static_cast<size_t>(width); i-- > at; value /= 10)
      text[i] = static_cast<char>('0' + value % 10);
  };
  put(0, t.year, 4);
  put(5, t.month, 2);
  put(8, t.day, 2);
  put(11, t.hour, 2);
  put(14, t.minute, 2);
  put(17, t.second, 2);
  put(20, t.millisecond, 3);
  return text;
}

std::string TimeOfDay(const GPSLocation& location) {
  UtcTime t;
  if (location.TimeType == GPS_TIME_LOCAL_CLOCK || !FromOleDate(location.Time, &t)) return {};
  char text[24];
  std::snprintf(text, sizeof text, "%02d:%02d:%02d", t.hour, t.minute, t.second);
  return text;
}

}  // namespace kavo::cli
