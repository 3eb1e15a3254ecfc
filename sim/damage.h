// Damage as a serial line inflicts it: a sentence cut short, a character
// changed by a bit error, stray bytes from noise on the line.
#pragma once

#include <string>

#include "sim/prng.h"
#include "sim/simulator.h"

namespace kavo::sim {

// Picks a kind of damage and applies it. The result never matches its
// checksum, never holds a line end, and differs from `line`.
Damage DamageLine(std::string& line, Prng& random);

}  // namespace kavo::sim
