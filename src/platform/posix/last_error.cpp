#include "platform/platform.h"

namespace kavo::platform {
namespace {
thread_local uint32_t t_lastError = 0;
}  // namespace

uint32_t GetLastError() { return t_lastError; }
void SetLastError(uint32_t code) { t_lastError = code; }

}  // namespace kavo::platform
