// A reader on a pseudo-terminal's slave side, as a serial application
// would open it: raw, at a chosen speed.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

namespace kavo::test {

class PtyReader {
 public:
  // Opens `path` raw at `baud`; `flush` drops whatever was queued before.
  PtyReader(const std::string& path, uint32_t baud, bool flush = true);
  ~PtyReader();
  bool IsOpen() const { return fd_ >= 0; }
  // Reads until `done(text so far)` holds or `timeoutMs` passes without it;
  // returns everything read. Stops early at end of file or an error.
  std::string ReadUntil(const std::function<bool(const std::string&)>& done, int timeoutMs);
  // Whatever is readable right now.
  std::string ReadAvailable();
  bool HungUp() const { return hungUp_; }

 private:
  int fd_ = -1;
  bool hungUp_ = false;
};

// Waits (polling, bounded) until `condition` holds; false on time-out.
bool WaitFor(const std::function<bool()>& condition, int timeoutMs);

}  // namespace kavo::test
