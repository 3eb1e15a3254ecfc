#include "simulator/utc_time.h"

namespace kavo::sim {
namespace {

// Days since 1970-01-01 of a proleptic Gregorian date, and back
// (H. Hinnant's civil-calendar algorithms).
int64_t DaysFromCivil(int64_t y, unsigned m, unsigned d) {
  y -= m <= 2;
  const int64_t era = (y >= 0 ? y : y - 399) / 400;
  const auto yoe = static_cast<unsigned>(y - era * 400);
  const unsigned doy = (153 * (m + (m > 2 ? -3 : 9)) + 2) / 5 + d - 1;
  const unsigned doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
  return era * 146097 + static_cast<int64_t>(doe) - 719468;
}

void CivilFromDays(int64_t z, int* year, int* month, int* day) {
  z += 719468;
  const int64_t era = (z >= 0 ? z : z - 146096) / 146097;
  const auto doe = static_cast<unsigned>(z - era * 146097);
  const unsigned yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
  const unsigned doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
  const unsigned mp = (5 * doy + 2) / 153;
  *day = static_cast<int>(doy - (153 * mp + 2) / 5 + 1);
  *month = static_cast<int>(mp < 10 ? mp + 3 : mp - 9);
  *year = static_cast<int>(static_cast<int64_t>(yoe) + era * 400 + (*month <= 2));
}

}  // namespace

bool IsValid(const UtcTime& t) {
  if (t.month < 1 || t.month > 12 || t.day < 1 || t.year < 1 || t.year > 9999) return false;
  int y = 0, m = 0, d = 0;
  CivilFromDays(DaysFromCivil(t.year, t.month, t.day), &y, &m, &d);
  return y == t.year && m == t.month && d == t.day && t.hour >= 0 && t.hour < 24 &&
         t.minute >= 0 && t.minute < 60 && t.second >= 0 && t.second < 60 &&
         t.millisecond >= 0 && t.millisecond < 1000;
}

UtcTime AddMilliseconds(const UtcTime& t, uint64_t ms) {
  const uint64_t dayMs = 86400000ull;
  const uint64_t sinceMidnight = ((t.hour * 60ull + t.minute) * 60ull + t.second) * 1000ull +
                                 t.millisecond + ms;
  UtcTime result;
  CivilFromDays(DaysFromCivil(t.year, t.month, t.day) + static_cast<int64_t>(sinceMidnight / dayMs),
                &result.year, &result.month, &result.day);
  const uint64_t rest = sinceMidnight % dayMs;
  result.hour = static_cast<int>(rest / 3600000);
  result.minute = static_cast<int>(rest / 60000 % 60);
  result.second = static_cast<int>(rest / 1000 % 60);
  result.millisecond = static_cast<int>(rest % 1000);
  return result;
}

}  // namespace kavo::sim
