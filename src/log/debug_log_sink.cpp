#include "log/logger.h"

namespace kavo {

int DebugLogSink::WriteText(const char16_t* text) {
  if (!text) return 0;
  platform::DebugOutput(text);
  return 1;
}

}  // namespace kavo
