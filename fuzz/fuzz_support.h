// What both fuzz targets need: a quiet log, a clock that stands still, and
// a check that stays on in every build type.
#pragma once

#include <cstdio>
#include <cstdlib>

namespace kavo::fuzz {

// Installs once: a log sink that drops everything (a log line per rejected
// field would drown the fuzzer) and a clock fixed at 22 November 2026 09:00.
void QuietFixedWorld();

}  // namespace kavo::fuzz

#define FUZZ_CHECK(condition)                                                            \
  do {                                                                                   \
    if (!(condition)) {                                                                  \
      std::fprintf(stderr, "%s:%d: check failed: %s\n", __FILE__, __LINE__, #condition); \
      std::abort();                                                                      \
    }                                                                                    \
  } while (0)
