#include "session/json_report.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdio>

namespace kavo::cli {
namespace {

// The TPV status for receivers' fix qualities beyond a plain fix.
int TpvStatus(int32_t quality) {
  switch (quality) {
    case 2:
      return 2;  // DGPS
    case 4:
      return 3;  // RTK fixed
    case 5:
      return 4;  // RTK float
    case 6:
      return 5;  // dead reckoning
    case 8:
      return 8;  // simulated
    default:
      return 1;
  }
}

// A satellite's system and number within it, as GPS daemons give them
// (gnssid 0 GPS, 1 SBAS, 2 Galileo, 3 BeiDou, 5 QZSS, 6 GLONASS), from the
// library's ranges; false for a number outside them.
bool SystemOf(int32_t prn, int* gnssid, int* svid) {
  struct Range {
    int32_t first, last;
    int gnssid, offset;
  };
  static const Range ranges[] = {{1, 32, 0, 0},       {33, 64, 1, 87},     {65, 96, 6, -64},
                                 {193, 202, 5, -192}, {301, 336, 2, -300}, {401, 463, 3, -400}};
  for (const Range& r : ranges) {
    if (prn < r.first || prn > r.last) continue;
    *gnssid = r.gnssid;
    *svid = prn + r.offset;  // SBAS as its PRN of 120 and up
    return true;
  }
  return false;
}

// `value` times 10^decimals rounded to an integer, when that is certainly
// the correctly rounded decimal: below 2^40 the product's own rounding is
// under 2^-13, so only a product that near a halfway point could round the
// wrong way, and those are left to the exact formatting.
bool ScaledExactly(double value, int decimals, long long* scaled) {
  static constexpr double kPowers[] = {1e0, 1e1, 1e2, 1e3, 1e4, 1e5, 1e6, 1e7, 1e8, 1e9};
  if (decimals < 0 || decimals > 9) return false;
  const double product = value * kPowers[decimals];
  if (!(std::fabs(product) < 0x1p40)) return false;
  if (std::fabs(product - std::floor(product) - 0.5) < 1e-3) return false;
  *scaled = std::llround(product);
  return true;
}

}  // namespace

void AppendJsonNumber(std::string* out, double value, int decimals) {
  long long scaled = 0;
  if (ScaledExactly(value, decimals, &scaled)) {  // most numbers: far cheaper than exact formatting
    char text[32];                                // 2^40 has 13 digits; a sign, a point and nine decimals more
    char* const end = text + sizeof text;
    char* digit = end;
    unsigned long long magnitude = static_cast<unsigned long long>(scaled < 0 ? -scaled : scaled);
    bool fraction = false;  // a decimal other than a trailing zero was written
    for (int place = 0; place < decimals; ++place, magnitude /= 10) {
      if (!fraction && magnitude % 10 == 0) continue;
      fraction = true;
      *--digit = static_cast<char>('0' + magnitude % 10);
    }
    if (fraction) *--digit = '.';
    do {
      *--digit = static_cast<char>('0' + magnitude % 10);
      magnitude /= 10;
    } while (magnitude);
    if (scaled < 0) *--digit = '-';
    out->append(digit, static_cast<size_t>(end - digit));
    return;
  }
  char text[400];  // the longest double in fixed notation, and its decimals
  const std::to_chars_result end = std::to_chars(text, text + sizeof text, value, std::chars_format::fixed, decimals);
  std::string number(text, end.ptr);
  if (number.find('.') != std::string::npos) {
    number.erase(number.find_last_not_of('0') + 1);
    if (number.back() == '.') number.pop_back();
  }
  out->append(number == "-0" ? "0" : number);
}

std::string JsonNumber(double value, int decimals) {
  std::string number;
  AppendJsonNumber(&number, value, decimals);
  return number;
}

void AppendInteger(std::string* out, long long value) {
  char text[24];
  out->append(text, static_cast<size_t>(std::to_chars(text, text + sizeof text, value).ptr - text));
}

std::string JsonString(const std::string& text) {
  std::string quoted = "\"";
  for (unsigned char c : text) {
    if (c == '"' || c == '\\') {
      quoted += '\\';
      quoted += static_cast<char>(c);
    } else if (c < 0x20) {
      char escape[8];
      std::snprintf(escape, sizeof escape, "\\u%04x", c);
      quoted += escape;
    } else {
      quoted += static_cast<char>(c);
    }
  }
  return quoted + "\"";
}

std::string TpvJson(const Reading& reading, const std::string& device) {
  const GPSLocation& l = reading.location;
  JsonObject tpv("TPV");
  if (!device.empty()) tpv.String("device", device);
  const int mode = FixMode(l);
  tpv.Integer("mode", mode);
  if (mode >= 2) tpv.Integer("status", TpvStatus(l.FixQuality));
  const std::string time = IsoTime(l);
  if (!time.empty()) tpv.String("time", time);
  if (mode >= 2) {
    tpv.Number("lat", l.Latitude, 9);
    tpv.Number("lon", l.Longitude, 9);
  }
  if (mode == 3) {
    tpv.Number("alt", l.Altitude, 3);
    tpv.Number("altMSL", l.Altitude, 3);
    if (Has(l, GPS_VALID_GEOID_SEPARATION)) tpv.Number("altHAE", l.Altitude + l.GeoidSeparation, 3);
  }
  if (Has(l, GPS_VALID_GEOID_SEPARATION)) tpv.Number("geoidSep", l.GeoidSeparation, 3);
  if (Has(l, GPS_VALID_SPEED)) tpv.Number("speed", l.Speed * kMetresPerSecondPerMph, 3);
  if (Has(l, GPS_VALID_COURSE)) tpv.Number("track", Degrees(l.Course), 4);
  if (Has(l, GPS_VALID_MAGNETIC_COURSE)) tpv.Number("magtrack", Degrees(l.MagneticCourse), 4);
  return tpv.Close();
}

std::string SkyJson(const Reading& reading, const std::string& device, const std::vector<int32_t>& used) {
  const GPSLocation& l = reading.location;
  JsonObject sky("SKY", 256 + 112 * reading.satellites.size());
  if (!device.empty()) sky.String("device", device);
  sky.Integer("nSat", static_cast<long long>(reading.satellites.size()));
  if (Has(l, GPS_VALID_SATELLITES_IN_USE)) sky.Integer("uSat", l.SatellitesInUse);
  if (Has(l, GPS_VALID_HDOP)) sky.Number("hdop", l.HDOP, 2);
  if (Has(l, GPS_VALID_VDOP)) sky.Number("vdop", l.VDOP, 2);
  if (Has(l, GPS_VALID_PDOP)) sky.Number("pdop", l.PDOP, 2);
  std::string& list = sky.Value("satellites");
  list += '[';
  for (size_t i = 0; i < reading.satellites.size(); ++i) {
    const GPSSatellite& s = reading.satellites[i];
    list.append(i ? ",{\"PRN\":" : "{\"PRN\":");
    AppendInteger(&list, s.PRN);
    list.append(",\"el\":");
    AppendJsonNumber(&list, Degrees(s.Elevation), 1);
    list.append(",\"az\":");
    AppendJsonNumber(&list, Degrees(s.Azimuth), 1);
    list.append(",\"ss\":");
    AppendInteger(&list, s.SNR);
    int gnssid = 0, svid = 0;
    if (SystemOf(s.PRN, &gnssid, &svid)) {
      list.append(",\"gnssid\":");
      AppendInteger(&list, gnssid);
      list.append(",\"svid\":");
      AppendInteger(&list, svid);
    }
    list.append(std::binary_search(used.begin(), used.end(), s.PRN) ? ",\"used\":true}" : ",\"used\":false}");
  }
  list += ']';
  return sky.Close();
}

}  // namespace kavo::cli
