#include "platform/posix/wait_hub.h"

namespace kavo::platform::posix {

// Never destroyed: a thread abandoned by a forced end may still signal its
// end while the process exits.
std::mutex& HubMutex() {
  static auto* mutex = new std::mutex;
  return *mutex;
}

std::condition_variable& HubChanged() {
  static auto* changed = new std::condition_variable;
  return *changed;
}

}  // namespace kavo::platform::posix
