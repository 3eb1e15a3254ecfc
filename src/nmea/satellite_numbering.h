// One numbering for the satellites of every system, so that a table merged
// from several constellations never holds two satellites under one number.
// GPS 1-32, SBAS 33-64 and GLONASS 65-96 keep the numbers NMEA gives them;
// the others take the ranges GPS daemons use for the PRN of their JSON
// output (beside gnssid/svid), so that tools line up with them:
//   QZSS    193-202  (svid 1-10 + 192)
//   Galileo 301-336  (svid 1-36 + 300)
//   BeiDou  401-463  (svid 1-63 + 400)
// A number already in its system's range is kept as sent.
#pragma once

#include <cstdint>

namespace kavo::nmea {

enum class GnssSystem : uint8_t { kGps, kGlonass, kGalileo, kBeidou, kQzss, kOther, kCount };

// GP, GL, GA, GB/BD, GQ/QZ; anything else (GN among them) is kOther, whose
// numbers are taken as sent.
GnssSystem SystemOfTalker(char16_t first, char16_t second);
// The system id that NMEA 4.10 and later add to GSA and GSV: 1 GPS,
// 2 GLONASS, 3 Galileo, 4 BeiDou, 5 QZSS; anything else is kOther.
GnssSystem SystemOfId(int32_t id);
// The system a number of the merged table belongs to (kGps for SBAS).
GnssSystem SystemOfNumber(int32_t number);

// The merged table's number for satellite `sent` of `system`.
inline int32_t TableNumber(GnssSystem system, int32_t sent) {
  switch (system) {
    case GnssSystem::kGlonass:
      return sent >= 1 && sent <= 32 ? sent + 64 : sent;
    case GnssSystem::kGalileo:
      return sent >= 1 && sent <= 36 ? sent + 300 : sent;
    case GnssSystem::kBeidou:
      return sent >= 1 && sent <= 63 ? sent + 400 : sent;
    case GnssSystem::kQzss:
      return sent >= 1 && sent <= 10 ? sent + 192 : sent;
    default:
      return sent;
  }
}

}  // namespace kavo::nmea
