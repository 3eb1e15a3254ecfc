// The sentences of one epoch, built from what the epoch holds.
#pragma once

#include <string>
#include <vector>

#include "sim/simulator.h"

namespace kavo::sim {

// Geometry of the satellites of all systems together, for the combined
// ("GN") sentences.
struct CombinedFix {
  int usedCount = 0;
  double pdop = 99.99, hdop = 99.99, vdop = 99.99;
};

std::string Gga(const Epoch& epoch, const std::string& talker, int usedCount, double hdop);
// `navigationalStatus` adds the field NMEA 4.10 appends.
std::string Rmc(const Epoch& epoch, const std::string& talker = "GP", bool navigationalStatus = false);
std::string Vtg(const Epoch& epoch, const std::string& talker = "GP");
// One GSA for the satellites of `system` used in the fix; a `systemId`
// above 0 is appended as NMEA 4.10 does.
std::string Gsa(const Epoch& epoch, const std::string& talker, System system, double pdop, double hdop, double vdop,
                int systemId = 0);
// The GSV cycle for the satellites of `system` in view; with a `signal` id
// above 0 it is appended as NMEA 4.11 does, and `second` lists the
// satellites' second signal (those that have one) instead of the first.
std::vector<std::string> Gsv(const Epoch& epoch, const std::string& talker, System system, int signal = 0,
                             bool second = false);
std::string Pgrme(const Epoch& epoch);
std::string Pgrmz(const Epoch& epoch);

}  // namespace kavo::sim
