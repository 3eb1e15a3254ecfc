#include "nmea/field_conversions.h"

#include <cmath>
#include <limits>

#include "nmea/number_conversion.h"
#include "support/error.h"
#include "support/ole_date.h"

namespace kavo::nmea {
namespace {

// Rejects a field; the log shows what was rejected and a piece of it.
[[noreturn]] void Reject(const char16_t* what, WideView field) {
  constexpr size_t kShown = 40;
  WideString text(what);
  text += u" \"";
  for (char16_t c : field.substr(0, kShown)) text += c < u' ' ? u'?' : c;  // keeps the line whole
  text += field.size() > kShown ? u"...\"" : u"\"";
  throw CNotSupportedException(std::move(text));
}

// The index-th pair of digits of a time or a date, as a number; two digits
// are read directly, anything else as a number field.
double Pair(WideView field, size_t index) {
  const WideView pair = field.substr(index * 2, 2);
  if (pair.size() == 2) {
    const unsigned tens = static_cast<unsigned>(pair[0] - u'0'), ones = static_cast<unsigned>(pair[1] - u'0');
    if (tens <= 9 && ones <= 9) return static_cast<double>(tens * 10 + ones);
  }
  return NumberField(pair);
}

// Hour, minute and second of hhmmss[.sss]; fractions of a second dropped.
void ReadTimeOfDay(WideView time, DateTimeParts* parts) {
  const double hour = Pair(time, 0);
  const double minute = Pair(time, 1);
  const double second = Pair(time, 2);
  if (hour >= 24) Reject(u"hour out of range", time);
  if (minute >= 60) Reject(u"minute out of range", time);
  if (second >= 60) Reject(u"second out of range", time);
  parts->hour = static_cast<int>(hour);
  parts->minute = static_cast<int>(minute);
  parts->second = static_cast<int>(second);
}

ReceiverTime Build(const DateTimeParts& parts, int32_t type) {
  ReceiverTime time;
  if (!OleDateFromParts(parts, &time.value)) Raise(kErrNotSupported, u"Invalid date-time");
  time.type = type;
  return time;
}

}  // namespace

double NumberField(WideView field) {
  double value = 0.0;
  if (!field.empty() && ParseDouble(field, &value) != field.size()) Reject(u"not a number", field);
  return value;
}

double NumberFieldOrZero(WideView field) {
  double value = 0.0;
  return ParseDouble(field, &value) == field.size() ? value : 0.0;
}

double LeadingNumberOrZero(WideView field) {
  double value = 0.0;
  ParseDouble(field, &value);
  return value;
}

int32_t TruncateToInt(double value) {
  if (std::isnan(value)) return 0;
  if (value <= -2147483649.0) return std::numeric_limits<int32_t>::min();
  if (value >= 2147483648.0) return std::numeric_limits<int32_t>::max();
  return static_cast<int32_t>(value);
}

double Coordinate(WideView value, WideView hemisphere) {
  const double v = NumberField(value) * 0.01;
  const double degrees = std::trunc(v);
  // One operation per statement: fusing them would change the last bit.
  const double minutes = (v - degrees) * 100.0;
  const double fraction = minutes * 0.016666666666666666;
  const double result = fraction + degrees;
  return hemisphere == u"N" || hemisphere == u"E" ? result : -result;
}

int32_t FixQualityFromField(WideView field) {
  const int32_t quality = IntegerField(field);
  if (quality == 0) return 0;
  return quality >= 2 && quality <= 8 ? quality : 1;
}

ReceiverTime TimeOfDay(WideView time, const platform::LocalTime& now) {
  if (time.size() < 6) return ReceiverTime{OleDateFromLocalTime(now), GPS_TIME_LOCAL_CLOCK};
  DateTimeParts parts;
  parts.year = now.year;
  parts.month = now.month;
  parts.day = now.day;
  ReadTimeOfDay(time, &parts);
  return Build(parts, GPS_TIME_OF_DAY);
}

ReceiverTime DateAndTime(WideView time, WideView date, const platform::LocalTime& now) {
  if (date.size() < 6) return TimeOfDay(time, now);
  if (time.size() < 6) Reject(u"time too short", time);
  DateTimeParts parts;
  ReadTimeOfDay(time, &parts);
  const double day = Pair(date, 0);
  const double month = Pair(date, 1);
  const double year = Pair(date, 2);
  if (day > 31) Reject(u"day out of range", date);
  if (month > 12) Reject(u"month out of range", date);
  parts.day = static_cast<int>(day);
  parts.month = static_cast<int>(month);
  // Two-digit years pivot at 1971: 70 is 2070, 71 is 1971.
  parts.year = (year < 71 ? 2000 : 1900) + static_cast<int>(year);
  return Build(parts, GPS_TIME_FULL);
}

}  // namespace kavo::nmea
