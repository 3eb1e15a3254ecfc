// Where a session's thread waits between its readings: woken early by the
// library's callbacks, and told when to stop. The console's interruption
// is one; a server running several receivers gives each its own.
#pragma once

#include <cstdint>

namespace kavo::cli {

class Waiter {
 public:
  virtual ~Waiter() = default;
  // Waits up to `ms`, less after a Wake; true once the waiting is to stop.
  virtual bool Wait(uint32_t ms) = 0;
  // Ends the Wait under way, or else the next one, early. Any thread.
  virtual void Wake() = 0;
};

}  // namespace kavo::cli
