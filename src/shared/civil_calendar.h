// Calendar arithmetic in the proleptic Gregorian calendar, and OLE
// Automation dates (days since 30 December 1899, the fraction being the
// time of day). Header-only and free of everything else in the code base,
// so the library and the kavogps tool compile this one copy.
#pragma once

#include <cmath>
#include <cstdint>

namespace kavo::calendar {

struct CivilTime {
  int year = 0, month = 0, day = 0;
  int hour = 0, minute = 0, second = 0, millisecond = 0;
};

// Days since 1 January 1970 of a date, and back (H. Hinnant's civil-calendar
// algorithms).
constexpr int64_t DaysFromCivil(int64_t y, int m, int d) {
  y -= m <= 2;
  const int64_t era = (y >= 0 ? y : y - 399) / 400;
  const int64_t yoe = y - era * 400;
  const int64_t doy = (153 * (m + (m > 2 ? -3 : 9)) + 2) / 5 + d - 1;
  const int64_t doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
  return era * 146097 + doe - 719468;
}

inline void CivilFromDays(int64_t z, CivilTime* t) {
  z += 719468;
  const int64_t era = (z >= 0 ? z : z - 146096) / 146097;
  const int64_t doe = z - era * 146097;
  const int64_t yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
  const int64_t doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
  const int64_t mp = (5 * doy + 2) / 153;
  t->day = static_cast<int>(doy - (153 * mp + 2) / 5 + 1);
  t->month = static_cast<int>(mp < 10 ? mp + 3 : mp - 9);
  t->year = static_cast<int>(yoe + era * 400 + (t->month <= 2));
}

constexpr bool IsLeapYear(int y) { return (y % 4 == 0 && y % 100 != 0) || y % 400 == 0; }

constexpr int DaysInMonth(int y, int m) {
  constexpr int kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  return m == 2 && IsLeapYear(y) ? 29 : kDays[m - 1];
}

// Whether `t` is a real instant of the years 1 to 9999.
inline bool IsValid(const CivilTime& t) {
  return t.year >= 1 && t.year <= 9999 && t.month >= 1 && t.month <= 12 && t.day >= 1 &&
         t.day <= DaysInMonth(t.year, t.month) && t.hour >= 0 && t.hour < 24 && t.minute >= 0 && t.minute < 60 &&
         t.second >= 0 && t.second < 60 && t.millisecond >= 0 && t.millisecond < 1000;
}

// `t` moved on by `ms` milliseconds, across days, months and years.
inline CivilTime AddMilliseconds(const CivilTime& t, uint64_t ms) {
  constexpr uint64_t kDayMs = 86400000;
  const uint64_t sinceMidnight = ((t.hour * 60ull + t.minute) * 60ull + t.second) * 1000ull + t.millisecond + ms;
  CivilTime result;
  CivilFromDays(DaysFromCivil(t.year, t.month, t.day) + static_cast<int64_t>(sinceMidnight / kDayMs), &result);
  const uint64_t rest = sinceMidnight % kDayMs;
  result.hour = static_cast<int>(rest / 3600000);
  result.minute = static_cast<int>(rest / 60000 % 60);
  result.second = static_cast<int>(rest / 1000 % 60);
  result.millisecond = static_cast<int>(rest % 1000);
  return result;
}

constexpr int64_t kOleEpochDays = DaysFromCivil(1899, 12, 30);
constexpr double kSecondsToDays = 1.1574074074074073e-5;  // 1 / 86400

// The OLE date of a valid `t`. Before the epoch the whole days count down
// but the time of day still runs forward: 29 December 1899 06:00 is -1.25.
inline double OleDateFromCivil(const CivilTime& t) {
  const double days = static_cast<double>(DaysFromCivil(t.year, t.month, t.day) - kOleEpochDays);
  const double fraction =
      (t.hour * 3600 + t.minute * 60 + t.second) * kSecondsToDays + t.millisecond * (kSecondsToDays / 1000.0);
  return days < 0 ? days - fraction : days + fraction;
}

// Splits an OLE date into calendar time rounded to the nearest
// `resolutionMs` milliseconds (1, or 1000 for whole seconds); false when it
// is not a number or lies outside the years 100 to 9999.
inline bool CivilFromOleDate(double date, CivilTime* t, int64_t resolutionMs = 1) {
  if (!(date >= -657434.0 && date < 2958466.0)) return false;  // 1 January 100 to 9999's end
  const int64_t unitsPerDay = 86400000 / resolutionMs;
  double wholeDays = std::trunc(date);
  int64_t units = std::llround(std::fabs(date - wholeDays) * static_cast<double>(unitsPerDay));
  // The time of day runs forward on either side of the epoch, so rounding
  // up to midnight is always the next day; between -1 and 0 the day is
  // still the epoch's.
  if (units >= unitsPerDay) {
    units -= unitsPerDay;
    wholeDays += 1.0;
  }
  CivilFromDays(static_cast<int64_t>(wholeDays) + kOleEpochDays, t);
  const int64_t ms = units * resolutionMs;
  t->hour = static_cast<int>(ms / 3600000);
  t->minute = static_cast<int>(ms / 60000 % 60);
  t->second = static_cast<int>(ms / 1000 % 60);
  t->millisecond = static_cast<int>(ms % 1000);
  return t->year >= 100 && t->year <= 9999;
}

}  // namespace kavo::calendar
