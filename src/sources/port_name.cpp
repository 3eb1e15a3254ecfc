#include "sources/port_name.h"

#include "log/logger.h"

namespace kavo {

bool CorrectPortName(WideView name, WideString* corrected) {
  constexpr size_t kMaxLength = kCorrectedPortNameCapacity - 1;
  if (name.empty() || name.size() > kMaxLength) return false;
  WideString result(name);
  if (result.back() != u':') {
    Logger::Instance().Write(u"colon symbol is not found in port name\n");
    result += u':';
    if (result.size() > kMaxLength) return false;
  }
  Logger::Instance().Format(u"port name length: %d\n", result.size());
  *corrected = ToLower(result);
  return true;
}

}  // namespace kavo
