// Readings as JSON lines in the shape programs reading a GPS daemon's
// stream expect: TPV objects for time, position and velocity, SKY objects
// for the satellites and the dilutions of precision. Field names and units
// follow that stream (metres, metres per second, degrees); fields the
// library cannot give are left out.
#pragma once

#include <string>

#include "cli/reading.h"

namespace kavo::cli {

std::string TpvJson(const Reading& reading, const std::string& device);
std::string SkyJson(const Reading& reading, const std::string& device);

// A number with at most `decimals` places, trailing zeros dropped, never in
// exponent form.
std::string JsonNumber(double value, int decimals);
std::string JsonString(const std::string& text);

}  // namespace kavo::cli
