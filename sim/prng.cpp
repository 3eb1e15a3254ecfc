#include "sim/prng.h"

namespace kavo::sim {

Prng::Prng(uint64_t seed, uint64_t stream) : increment_((stream << 1u) | 1u), seed_(seed) {
  Next();
  state_ += seed;
  Next();
}

uint32_t Prng::Next() {
  const uint64_t old = state_;
  state_ = old * 6364136223846793005ull + increment_;
  const auto xorshifted = static_cast<uint32_t>(((old >> 18u) ^ old) >> 27u);
  const auto rot = static_cast<uint32_t>(old >> 59u);
  return (xorshifted >> rot) | (xorshifted << ((32u - rot) & 31u));
}

int Prng::Int(int lo, int hi) {
  const auto span = static_cast<uint64_t>(static_cast<int64_t>(hi) - lo + 1);
  return static_cast<int>(lo + static_cast<int64_t>((Next() * span) >> 32u));
}

double Prng::Normal() {
  // Irwin-Hall with four terms, scaled to unit variance.
  const double sum = Unit() + Unit() + Unit() + Unit();
  return (sum - 2.0) * 1.7320508075688772;
}

Prng Prng::Fork(uint64_t salt) const {
  // splitmix64 of seed and salt, so forks of nearby seeds differ widely.
  uint64_t z = seed_ + 0x9E3779B97F4A7C15ull * (salt + 1);
  z = (z ^ (z >> 30u)) * 0xBF58476D1CE4E5B9ull;
  z = (z ^ (z >> 27u)) * 0x94D049BB133111EBull;
  z ^= z >> 31u;
  return Prng(z, salt);
}

}  // namespace kavo::sim
