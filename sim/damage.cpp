#include "sim/damage.h"

#include <cctype>
#include <string_view>

namespace kavo::sim {
namespace {

// Characters a bit error may leave; never a line end.
constexpr std::string_view kReplacements = "0123456789ABCDEFGHJKLMNPQRSTUVWXYZ,.*$#!";

bool IsLineEnd(uint8_t byte) { return byte == '\r' || byte == '\n'; }

void Cut(std::string& line, Prng& random) {
  // Keep at least "$" and at most everything but the checksum's last digit.
  const int keep = random.Int(1, static_cast<int>(line.size()) - 1);
  line.resize(static_cast<size_t>(keep));
}

void Flip(std::string& line, Prng& random) {
  const size_t at = static_cast<size_t>(random.Int(1, static_cast<int>(line.size()) - 1));
  const char old = line[at];
  char now = old;
  // A hex digit of the checksum must not merely change its case.
  while (now == old || std::toupper(static_cast<unsigned char>(now)) == std::toupper(static_cast<unsigned char>(old)))
    now = kReplacements[static_cast<size_t>(random.Int(0, static_cast<int>(kReplacements.size()) - 1))];
  line[at] = now;
}

void Garbage(std::string& line, Prng& random) {
  const int count = random.Int(1, 8);
  std::string noise;
  uint8_t sum = 0;
  for (int i = 0; i < count; ++i) {
    uint8_t byte = 0;
    do byte = static_cast<uint8_t>(random.Int(0, 255));
    while (IsLineEnd(byte) || byte == '$');
    noise += static_cast<char>(byte);
    sum ^= byte;
  }
  // Inserted bytes that cancel out in the XOR would leave the checksum
  // right; one more byte breaks that.
  if (sum == 0) noise += '\xA5';
  const size_t at = static_cast<size_t>(random.Int(0, static_cast<int>(line.size())));
  line.insert(at, noise);
}

}  // namespace

Damage DamageLine(std::string& line, Prng& random) {
  if (line.size() < 2) {
    Garbage(line, random);
    return Damage::kGarbage;
  }
  switch (random.Int(0, 2)) {
    case 0:
      Cut(line, random);
      return Damage::kCut;
    case 1:
      Flip(line, random);
      return Damage::kFlip;
    default:
      Garbage(line, random);
      return Damage::kGarbage;
  }
}

}  // namespace kavo::sim
