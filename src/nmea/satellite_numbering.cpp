#include "nmea/satellite_numbering.h"

namespace kavo::nmea {

GnssSystem SystemOfTalker(char16_t first, char16_t second) {
  if (first == u'G') {
    switch (second) {
      case u'P':
        return GnssSystem::kGps;
      case u'L':
        return GnssSystem::kGlonass;
      case u'A':
        return GnssSystem::kGalileo;
      case u'B':
        return GnssSystem::kBeidou;
      case u'Q':
        return GnssSystem::kQzss;
      default:
        return GnssSystem::kOther;
    }
  }
  if (first == u'B' && second == u'D') return GnssSystem::kBeidou;
  if (first == u'Q' && second == u'Z') return GnssSystem::kQzss;
  return GnssSystem::kOther;
}

GnssSystem SystemOfId(int32_t id) {
  switch (id) {
    case 1:
      return GnssSystem::kGps;
    case 2:
      return GnssSystem::kGlonass;
    case 3:
      return GnssSystem::kGalileo;
    case 4:
      return GnssSystem::kBeidou;
    case 5:
      return GnssSystem::kQzss;
    default:
      return GnssSystem::kOther;
  }
}

GnssSystem SystemOfNumber(int32_t number) {
  if (number >= 1 && number <= 64) return GnssSystem::kGps;
  if (number >= 65 && number <= 96) return GnssSystem::kGlonass;
  if (number >= 193 && number <= 202) return GnssSystem::kQzss;
  if (number >= 301 && number <= 336) return GnssSystem::kGalileo;
  if (number >= 401 && number <= 463) return GnssSystem::kBeidou;
  return GnssSystem::kOther;
}

}  // namespace kavo::nmea
