// Dilution of precision from the geometry of the satellites used in a fix.
#pragma once

#include <vector>

#include "sim/geodesy.h"

namespace kavo::sim {

struct Dilution {
  double pdop = 0, hdop = 0, vdop = 0;
};

// false when fewer than four satellites or a geometry that fixes nothing.
bool ComputeDilution(const std::vector<LookAngles>& used, Dilution* out);

}  // namespace kavo::sim
