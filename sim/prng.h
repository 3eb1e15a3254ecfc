// A small pseudo-random generator (PCG32, XSH RR) with the few helpers the
// simulator needs. The standard library's distributions are not specified
// bit for bit, so a seed would give other recordings on other platforms;
// everything here is integer arithmetic and plain floating-point operations.
#pragma once

#include <cstdint>

namespace kavo::sim {

class Prng {
 public:
  explicit Prng(uint64_t seed, uint64_t stream = 0);

  uint32_t Next();
  // Uniform in [0, 1).
  double Unit() { return (Next() >> 5) * (1.0 / 134217728.0); }
  double Uniform(double lo, double hi) { return lo + (hi - lo) * Unit(); }
  // Uniform integer in [lo, hi].
  int Int(int lo, int hi);
  bool Chance(double probability) { return Unit() < probability; }
  // Roughly normal with mean 0 and deviation 1 (sum of uniforms), bounded
  // to about +-3.5: enough for noise, and free of log/cos.
  double Normal();
  // An independent generator for one concern (track, sky, damage...), so
  // that switching one option on leaves the others' sequences unchanged.
  Prng Fork(uint64_t salt) const;

 private:
  uint64_t state_ = 0;
  uint64_t increment_ = 0;
  uint64_t seed_ = 0;
};

}  // namespace kavo::sim
