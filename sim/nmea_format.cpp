#include "sim/nmea_format.h"

#include <cmath>
#include <cstdlib>

namespace kavo::sim {
namespace {

constexpr char kHex[] = "0123456789ABCDEF";

std::string Coordinate(double degrees, int degreeDigits, char positive, char negative) {
  // Whole ten-thousandths of a minute, so a minute that rounds up to 60
  // carries into the degrees.
  const long long units = std::llround(std::fabs(degrees) * 600000.0);
  std::string text = Padded(static_cast<long>(units / 600000), degreeDigits);
  text += Padded(static_cast<long>(units % 600000 / 10000), 2);
  text += '.';
  text += Padded(static_cast<long>(units % 10000), 4);
  text += ',';
  text += degrees < 0 ? negative : positive;
  return text;
}

}  // namespace

uint8_t NmeaChecksum(std::string_view body) {
  uint8_t sum = 0;
  for (char c : body) sum ^= static_cast<uint8_t>(c);
  return sum;
}

std::string Sentence(std::string_view body) {
  const uint8_t sum = NmeaChecksum(body);
  std::string text;
  text.reserve(body.size() + 4);
  text += '$';
  text += body;
  text += '*';
  text += kHex[sum >> 4];
  text += kHex[sum & 15];
  return text;
}

std::string Fixed(double value, int decimals, int width) {
  long long scale = 1;
  for (int i = 0; i < decimals; ++i) scale *= 10;
  const long long units = std::llround(value * static_cast<double>(scale));
  const long long magnitude = std::llabs(units);
  std::string text = units < 0 ? "-" : "";
  text += Padded(static_cast<long>(magnitude / scale), width);
  if (decimals > 0) text += '.' + Padded(static_cast<long>(magnitude % scale), decimals);
  return text;
}

std::string Padded(long value, int width) {
  std::string digits = std::to_string(value);
  if (static_cast<int>(digits.size()) < width) digits.insert(0, width - digits.size(), '0');
  return digits;
}

std::string LatitudeFields(double degrees) { return Coordinate(degrees, 2, 'N', 'S'); }
std::string LongitudeFields(double degrees) { return Coordinate(degrees, 3, 'E', 'W'); }

std::string TimeField(const UtcTime& t) {
  return Padded(t.hour, 2) + Padded(t.minute, 2) + Padded(t.second, 2) + '.' + Padded(t.millisecond / 10, 2);
}

std::string DateField(const UtcTime& t) { return Padded(t.day, 2) + Padded(t.month, 2) + Padded(t.year % 100, 2); }

}  // namespace kavo::sim
