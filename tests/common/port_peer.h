// The receiver's side of a serial port under test: a pseudo-terminal, held
// in the test itself on POSIX, or by the pty_peer helper when the Windows
// build runs under Wine.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

namespace kavo::test {

class PortPeer {
 public:
  virtual ~PortPeer() = default;
  // The name to give the library for this port.
  virtual std::u16string PortName() const = 0;
  // The line as the receiver sees it: "<speed> <stop bits>".
  virtual std::string Settings() = 0;
  virtual void Send(const std::string& bytes) = 0;
  // What the library wrote, up to `max` bytes, waiting at most `waitMs` for each part.
  virtual std::string Receive(size_t max, uint32_t waitMs) = 0;
};

// A fresh port for one test; fails the test when none can be made.
std::unique_ptr<PortPeer> NewPortPeer();

}  // namespace kavo::test
