#include "sim/sentences.h"

#include <cmath>

#include "sim/nmea_format.h"

namespace kavo::sim {
namespace {

constexpr double kKnotsPerMps = 3600.0 / 1852.0;
constexpr double kMagneticDeclination = 3.0;  // degrees east: magnetic = true - 3
constexpr double kRangeError = 3.5;           // metres of error per unit of dilution

std::string Dop(const Epoch& epoch, double value) { return epoch.fix ? Fixed(value, 1) : "99.99"; }

}  // namespace

std::string Gga(const Epoch& e, const std::string& talker, int usedCount, double hdop) {
  std::string body = talker + "GGA," + TimeField(e.time) + ',';
  if (e.fix) {
    body += LatitudeFields(e.truth.position.latitude) + ',' + LongitudeFields(e.truth.position.longitude) + ',' +
            std::to_string(e.quality) + ',' + Padded(usedCount, 2) + ',' + Fixed(hdop, 1) + ',' +
            Fixed(e.truth.position.altitude, 1) + ",M," + Fixed(e.geoidSeparation, 1) + ",M,,";
  } else {
    body += ",,,,0," + Padded(usedCount, 2) + ",99.99,,M,,M,,";
  }
  return Sentence(body);
}

std::string Rmc(const Epoch& e, const std::string& talker, bool navigationalStatus) {
  std::string body = talker + "RMC," + TimeField(e.time) + ',';
  if (e.fix) {
    body += "A," + LatitudeFields(e.truth.position.latitude) + ',' + LongitudeFields(e.truth.position.longitude) + ',' +
            Fixed(e.truth.speed * kKnotsPerMps, 2) + ',' + Fixed(e.truth.course, 1) + ',' + DateField(e.time) + ",,,A";
  } else {
    body += "V,,,,,,," + DateField(e.time) + ",,,N";
  }
  if (navigationalStatus) body += e.fix ? ",S" : ",V";  // safe, or not valid
  return Sentence(body);
}

std::string Vtg(const Epoch& e, const std::string& talker) {
  if (!e.fix) return Sentence(talker + "VTG,,T,,M,,N,,K,N");
  const double magnetic = NormalizeDegrees(e.truth.course - kMagneticDeclination);
  return Sentence(talker + "VTG," + Fixed(e.truth.course, 1) + ",T," + Fixed(magnetic, 1) + ",M," +
                  Fixed(e.truth.speed * kKnotsPerMps, 2) + ",N," + Fixed(e.truth.speed * 3.6, 2) + ",K,A");
}

std::string Gsa(const Epoch& e, const std::string& talker, System system, double pdop, double hdop, double vdop,
                int systemId) {
  std::string body = talker + "GSA,A," + (e.fix ? "3" : "1");
  int slots = 0;
  for (const SatelliteView& s : e.satellites) {
    if (s.system != system || !s.used || slots == 12) continue;
    body += ',' + Padded(s.prn, 2);
    ++slots;
  }
  for (; slots < 12; ++slots) body += ',';
  body += ',' + Dop(e, pdop) + ',' + Dop(e, hdop) + ',' + Dop(e, vdop);
  if (systemId > 0) body += ',' + std::to_string(systemId);
  return Sentence(body);
}

std::vector<std::string> Gsv(const Epoch& e, const std::string& talker, System system, int signal, bool second) {
  std::vector<const SatelliteView*> views;
  for (const SatelliteView& s : e.satellites)
    if (s.system == system && (!second || s.snr2 >= 0)) views.push_back(&s);
  if (second && views.empty()) return {};
  const size_t total = views.empty() ? 1 : (views.size() + 3) / 4;
  std::vector<std::string> result;
  for (size_t message = 0; message < total; ++message) {
    std::string body = talker + "GSV," + std::to_string(total) + ',' + std::to_string(message + 1) + ',' +
                       Padded(static_cast<long>(views.size()), 2);
    for (size_t i = message * 4; i < views.size() && i < message * 4 + 4; ++i) {
      const SatelliteView& s = *views[i];
      const int snr = second ? s.snr2 : s.snr;
      body += ',' + Padded(s.prn, 2) + ',' + Padded(s.elevation, 2) + ',' + Padded(s.azimuth, 3) + ',' +
              (snr >= 0 ? Padded(snr, 2) : "");
    }
    if (signal > 0) body += ',' + std::to_string(signal);
    result.push_back(Sentence(body));
  }
  return result;
}

std::string Pgrme(const Epoch& e) {
  if (!e.fix) return Sentence("PGRME,,M,,M,,M");
  const double horizontal = e.hdop * kRangeError, vertical = e.vdop * kRangeError;
  return Sentence("PGRME," + Fixed(horizontal, 1) + ",M," + Fixed(vertical, 1) + ",M," +
                  Fixed(e.pdop * kRangeError, 1) + ",M");
}

std::string Pgrmz(const Epoch& e) {
  const long feet = std::lround(e.truth.position.altitude / 0.3048);
  return Sentence("PGRMZ," + std::to_string(feet) + ",f," + (e.fix ? "3" : "1"));
}

}  // namespace kavo::sim
