// A deterministic NMEA recording of a receiver on the move, made in memory
// so that no large file lives in the repository.
#pragma once

#include <cstddef>
#include <string>

namespace kavo::bench {

// About `bytes` of text: once a second GGA, GSA, RMC and VTG, and every
// other second a cycle of three GSV messages; CR LF endings.
std::string GenerateRecording(size_t bytes);

}  // namespace kavo::bench
