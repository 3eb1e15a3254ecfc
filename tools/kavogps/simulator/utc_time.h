// Calendar time in UTC, as receivers report it.
#pragma once

#include <cstdint>

namespace kavo::sim {

struct UtcTime {
  int year = 2024, month = 1, day = 1;
  int hour = 0, minute = 0, second = 0, millisecond = 0;
};

bool IsValid(const UtcTime& time);
// `time` moved on by `ms` milliseconds, across days, months and years.
UtcTime AddMilliseconds(const UtcTime& time, uint64_t ms);

}  // namespace kavo::sim
