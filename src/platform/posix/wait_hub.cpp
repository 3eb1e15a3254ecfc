#include "platform/posix/wait_hub.h"

namespace kavo::platform::posix {

std::mutex& HubMutex() {
  static std::mutex mutex;
  return mutex;
}

std::condition_variable& HubChanged() {
  static std::condition_variable changed;
  return changed;
}

}  // namespace kavo::platform::posix
