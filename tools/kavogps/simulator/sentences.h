// The sentences of one epoch, built from what the epoch holds.
#pragma once

#include <string>
#include <vector>

#include "simulator/simulator.h"

namespace kavo::sim {

// Geometry of the satellites of all systems together, for the combined
// ("GN") sentences.
struct CombinedFix {
  int usedCount = 0;
  double pdop = 99.99, hdop = 99.99, vdop = 99.99;
};

std::string Gga(const Epoch& epoch, const std::string& talker, int usedCount, double hdop);
std::string Rmc(const Epoch& epoch);
std::string Vtg(const Epoch& epoch);
// One GSA for the satellites of `system` used in the fix.
std::string Gsa(const Epoch& epoch, const std::string& talker, System system, double pdop,
                double hdop, double vdop);
// The GSV cycle for the satellites of `system` in view.
std::vector<std::string> Gsv(const Epoch& epoch, const std::string& talker, System system);
std::string Pgrme(const Epoch& epoch);
std::string Pgrmz(const Epoch& epoch);

}  // namespace kavo::sim
