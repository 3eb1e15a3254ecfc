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

std::string BinaryMessage(Prng& random) {
  const int size = random.Int(8, 40);
  std::string payload;
  for (int i = 0; i < size; ++i) payload += static_cast<char>(random.Int(0, 255));
  // The bytes every such message shows somewhere.
  const char kAlways[] = {'\0', '\r', '\n', '$'};
  const int quarter = size / 4;
  for (int i = 0; i < 4; ++i) payload[static_cast<size_t>(i * quarter + random.Int(0, quarter - 1))] = kAlways[i];
  std::string frame = "\xB5\x62";
  frame += static_cast<char>(random.Int(1, 0x2A));  // class
  frame += static_cast<char>(random.Int(0, 255));   // id
  frame += static_cast<char>(size & 0xFF);
  frame += static_cast<char>(size >> 8);
  frame += payload;
  uint8_t a = 0, b = 0;
  for (size_t i = 2; i < frame.size(); ++i) b = static_cast<uint8_t>(b + (a = static_cast<uint8_t>(a + frame[i])));
  frame += static_cast<char>(a);
  frame += static_cast<char>(b);
  // A CR LF would end a line of a recording, and "$" and a letter might
  // start a sentence: a NUL goes between such bytes.
  std::string sent;
  for (const char byte : frame) {
    const bool afterCr = !sent.empty() && sent.back() == '\r' && byte == '\n';
    const bool afterDollar = !sent.empty() && sent.back() == '$' && std::isalpha(static_cast<unsigned char>(byte));
    if (afterCr || afterDollar) sent += '\0';
    sent += byte;
  }
  return sent;
}

}  // namespace kavo::sim
