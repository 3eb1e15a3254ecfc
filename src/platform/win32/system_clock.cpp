#include "platform/win32/win32_handles.h"

namespace kavo::platform {
namespace {

class Win32Clock final : public Clock {
 public:
  uint32_t TickCount() override { return ::GetTickCount(); }
  void Sleep(uint32_t ms) override { ::Sleep(ms); }

  LocalTime LocalNow() override {
    SYSTEMTIME now{};
    ::GetLocalTime(&now);
    LocalTime t;
    t.year = now.wYear;
    t.month = now.wMonth;
    t.dayOfWeek = now.wDayOfWeek;
    t.day = now.wDay;
    t.hour = now.wHour;
    t.minute = now.wMinute;
    t.second = now.wSecond;
    t.milliseconds = now.wMilliseconds;
    return t;
  }
};

}  // namespace

// Never destroyed: threads the library abandoned may still ask the time
// while the process exits.
Clock& SystemClock() {
  static auto* clock = new Win32Clock;
  return *clock;
}

}  // namespace kavo::platform
