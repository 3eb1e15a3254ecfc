#include <cerrno>
#include <ctime>

#include "platform/platform.h"

namespace kavo::platform {
namespace {

class PosixClock final : public Clock {
 public:
  uint32_t TickCount() override {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    const uint64_t ms = uint64_t(now.tv_sec) * 1000u + uint64_t(now.tv_nsec) / 1000000u;
    return static_cast<uint32_t>(ms);
  }

  void Sleep(uint32_t ms) override {
    timespec left{static_cast<time_t>(ms / 1000), static_cast<long>(ms % 1000) * 1000000L};
    while (nanosleep(&left, &left) != 0 && errno == EINTR) {}
  }

  LocalTime LocalNow() override {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    tm parts{};
    localtime_r(&now.tv_sec, &parts);
    LocalTime t;
    t.year = static_cast<uint16_t>(parts.tm_year + 1900);
    t.month = static_cast<uint16_t>(parts.tm_mon + 1);
    t.dayOfWeek = static_cast<uint16_t>(parts.tm_wday);
    t.day = static_cast<uint16_t>(parts.tm_mday);
    t.hour = static_cast<uint16_t>(parts.tm_hour);
    t.minute = static_cast<uint16_t>(parts.tm_min);
    t.second = static_cast<uint16_t>(parts.tm_sec > 59 ? 59 : parts.tm_sec);
    t.milliseconds = static_cast<uint16_t>(now.tv_nsec / 1000000L);
    return t;
  }
};

}  // namespace

// Never destroyed: threads the library abandoned may still ask the time
// while the process exits.
Clock& SystemClock() {
  static auto* clock = new PosixClock;
  return *clock;
}

}  // namespace kavo::platform
