// A reader on a pseudo-terminal's slave side, as a serial application
// would open it: raw, at a chosen speed.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

namespace kavo::test {

class PtyReader {
 public:
  // Opens `path` raw at 4800 or 9600 baud; `flush` drops what was queued.
  PtyReader(const std::string& path, uint32_t baud, bool flush = true);
  ~PtyReader();
  bool IsOpen() const { return fd_ >= 0; }
  // Reads until `done(text so far)` holds or `timeoutMs` passes without it
  // (0: whatever is readable now); returns everything read. Stops early at
  // end of file or an error.
  std::string ReadUntil(const std::function<bool(const std::string&)>& done, int timeoutMs);
  bool HungUp() const { return hungUp_; }

 private:
  int fd_ = -1;
  bool hungUp_ = false;
};

}  // namespace kavo::test
