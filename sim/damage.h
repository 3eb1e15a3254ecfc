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

// A binary message as survey and RTK modules interleave with their NMEA: a
// u-blox UBX frame (sync bytes B5 62, class, id, little-endian length,
// payload, Fletcher checksum) whose payload always holds a NUL, a lone CR,
// a lone LF and a "$". A NUL is put between a CR and an LF, so it ends no
// line of a recording, and between "$" and a letter, so it starts no
// sentence; every other byte may be anything.
std::string BinaryMessage(Prng& random);

}  // namespace kavo::sim
