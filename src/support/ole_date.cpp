#include "support/ole_date.h"

#include <cmath>

namespace kavo {
namespace {

constexpr double kSecondsToDays = 1.1574074074074073e-5;  // 1 / 86400
constexpr double kMinDate = -657434.0;   // 1 January 100
constexpr double kMaxDate = 2958465.0;   // 31 December 9999, start of day

// Days from 1 January 1970 of a proleptic Gregorian date.
int64_t DaysFromCivil(int64_t y, int m, int d) {
  y -= m <= 2;
  const int64_t era = (y >= 0 ? y : y - 399) / 400;
  const int64_t yoe = y - era * 400;
  const int64_t doy = (153 * (m + (m > 2 ? -3 : 9)) + 2) / 5 + d - 1;
  const int64_t doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
  return era * 146097 + doe - 719468;
}

void CivilFromDays(int64_t z, int* y, int* m, int* d) {
  z += 719468;
  const int64_t era = (z >= 0 ? z : z - 146096) / 146097;
  const int64_t doe = z - era * 146097;
  const int64_t yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
  const int64_t doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
  const int64_t mp = (5 * doy + 2) / 153;
  *d = static_cast<int>(doy - (153 * mp + 2) / 5 + 1);
  *m = static_cast<int>(mp < 10 ? mp + 3 : mp - 9);
  *y = static_cast<int>(yoe + era * 400 + (*m <= 2));
}

const int64_t kEpochDays = DaysFromCivil(1899, 12, 30);

bool IsLeap(int y) { return (y % 4 == 0 && y % 100 != 0) || y % 400 == 0; }

int DaysInMonth(int y, int m) {
  static const int kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  return m == 2 && IsLeap(y) ? 29 : kDays[m - 1];
}

}  // namespace

bool OleDateFromParts(const DateTimeParts& p, double* date) {
  if (p.year < 100 || p.year > 9999 || p.month < 1 || p.month > 12 || p.day < 1 ||
      p.day > DaysInMonth(p.year, p.month) || p.hour < 0 || p.hour > 23 || p.minute < 0 ||
      p.minute > 59 || p.second < 0 || p.second > 59) {
    return false;
  }
  const double days = static_cast<double>(DaysFromCivil(p.year, p.month, p.day) - kEpochDays);
  const double fraction = (p.hour * 3600 + p.minute * 60 + p.second) * kSecondsToDays;
  // Before the epoch the time of day counts away from zero.
  *date = days < 0 ? days - fraction : days + fraction;
  return true;
}

bool OleDateToParts(double date, DateTimeParts* parts) {
  if (!(date >= kMinDate && date < kMaxDate + 1.0)) return false;
  double wholeDays = std::trunc(date);
  int64_t seconds = std::llround(std::fabs(date - wholeDays) * 86400.0);
  if (seconds >= 86400) {
    seconds -= 86400;
    wholeDays += date < 0 ? -1.0 : 1.0;
  }
  // -0.25 is 30 December 1899 06:00: negative dates keep day 0 for their
  // first day, as the fraction is subtracted.
  CivilFromDays(static_cast<int64_t>(wholeDays) + kEpochDays, &parts->year, &parts->month,
                &parts->day);
  parts->hour = static_cast<int>(seconds / 3600);
  parts->minute = static_cast<int>(seconds / 60 % 60);
  parts->second = static_cast<int>(seconds % 60);
  return parts->year >= 100 && parts->year <= 9999;
}

double OleDateFromLocalTime(const platform::LocalTime& t) {
  DateTimeParts parts{t.year, t.month, t.day, t.hour, t.minute, t.second};
  double date = 0.0;
  OleDateFromParts(parts, &date);
  return date;
}

double OleDateNow() { return OleDateFromLocalTime(platform::LocalNow()); }

}  // namespace kavo
