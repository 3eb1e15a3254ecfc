#include "platform/win32/win32_handles.h"

namespace kavo::platform {
namespace {

// Not in every SDK's headers; Windows 10 1803 and later know it.
constexpr DWORD kHighResolutionTimer = 0x00000002;  // CREATE_WAITABLE_TIMER_HIGH_RESOLUTION

// The performance counter and waitable timers, not GetTickCount and Sleep:
// those move and wake in steps of the system timer (10 to 16 ms), which the
// pacing of a recording would take for lateness and lose lines to.
class Win32Clock final : public Clock {
 public:
  Win32Clock() { QueryPerformanceFrequency(&frequency_); }

  uint32_t TickCount() override {
    LARGE_INTEGER now;
    QueryPerformanceCounter(&now);
    const int64_t perSecond = frequency_.QuadPart;
    // In two parts, so that the product cannot overflow however long the
    // machine has run; the ms count wraps at 2^32 as GetTickCount's does.
    return static_cast<uint32_t>(now.QuadPart / perSecond * 1000 + now.QuadPart % perSecond * 1000 / perSecond);
  }

  void Sleep(uint32_t ms) override { Wait(nullptr, ms); }
  bool SleepUnless(Event& wake, uint32_t ms) override { return Wait(win32::NativeHandle(wake), ms); }

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

 private:
  // Waits `ms`, or until `wake` (when given) is set; true when woken. A
  // high-resolution timer where the system has one, else an ordinary
  // waitable timer, else a plain wait.
  static bool Wait(HANDLE wake, uint32_t ms) {
    HANDLE timer = ms == 0 || ms == kInfinite ? nullptr : NewTimer();
    LARGE_INTEGER due;
    due.QuadPart = -int64_t{ms} * 10000;  // relative, in 100 ns units
    if (timer && !SetWaitableTimer(timer, &due, 0, nullptr, nullptr, FALSE)) {
      CloseHandle(timer);
      timer = nullptr;
    }
    if (timer) {
      // The event first: when both are set, the wake counts.
      const HANDLE handles[2] = {wake ? wake : timer, timer};
      const DWORD result = WaitForMultipleObjects(wake ? 2 : 1, handles, FALSE, INFINITE);
      CloseHandle(timer);
      return wake && result == WAIT_OBJECT_0;
    }
    if (!wake) {
      ::Sleep(ms);
      return false;
    }
    return WaitForSingleObject(wake, ms) == WAIT_OBJECT_0;
  }

  static HANDLE NewTimer() {
    if (HANDLE timer = CreateWaitableTimerExW(nullptr, nullptr, kHighResolutionTimer, TIMER_ALL_ACCESS)) return timer;
    return CreateWaitableTimerW(nullptr, TRUE, nullptr);
  }

  LARGE_INTEGER frequency_{};
};

}  // namespace

// Never destroyed: threads the library abandoned may still ask the time
// while the process exits.
Clock& SystemClock() {
  static auto* clock = new Win32Clock;
  return *clock;
}

}  // namespace kavo::platform
