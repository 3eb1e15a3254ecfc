#include "fuzz_support.h"

#include "log/logger.h"
#include "platform/platform.h"

namespace kavo::fuzz {
namespace {

class NullSink : public LogSink {
 public:
  int WriteText(const char16_t*) override { return 1; }
  int Flush() override { return 1; }
};

class FixedClock : public platform::Clock {
 public:
  uint32_t TickCount() override { return 1000; }
  void Sleep(uint32_t) override {}
  platform::LocalTime LocalNow() override {
    platform::LocalTime t;
    t.year = 2026;
    t.month = 11;
    t.day = 22;
    t.hour = 9;
    return t;
  }
};

}  // namespace

void QuietFixedWorld() {
  static const bool installed = [] {
    Logger::Instance().SetSink(Ref<LogSink>(new NullSink));
    static FixedClock clock;
    platform::SetClock(&clock);
    return true;
  }();
  (void)installed;
}

}  // namespace kavo::fuzz
