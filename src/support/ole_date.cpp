#include "support/ole_date.h"

namespace kavo {

bool OleDateFromParts(const DateTimeParts& parts, double* date) {
  if (parts.year < 100 || !calendar::IsValid(parts)) return false;
  *date = calendar::OleDateFromCivil(parts);
  return true;
}

bool OleDateToParts(double date, DateTimeParts* parts) { return calendar::CivilFromOleDate(date, parts, 1000); }

double OleDateFromLocalTime(const platform::LocalTime& t) {
  DateTimeParts parts{t.year, t.month, t.day, t.hour, t.minute, t.second};
  double date = 0.0;
  OleDateFromParts(parts, &date);
  return date;
}

}  // namespace kavo
