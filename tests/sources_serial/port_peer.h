// The receiver's side of a serial port under test: a pseudo-terminal, held
// in the test itself on POSIX, or by the pty_peer helper when the Windows
// build runs under Wine.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

namespace kavo::test {

// Line settings as the receiver's side of the port sees them. Linux keeps
// the speed and the stop bits of a pseudo-terminal but forces 8 data bits
// and no parity on it, so only those two tell what the library set.
struct LineSettings {
  uint32_t speed = 0;
  char parity = '?';  // N, O, E, M or S
  int dataBits = 0;
  int stopBits = 0;
};

// What the serial layer under test cannot do with a pseudo-terminal.
// Wine's serial emulation neither enforces an exclusive open nor reports a
// hang-up (reads just time out), and it refuses RTS toggle control, which
// a connection always sets.
struct PortLimits {
  bool exclusiveOpen = true;
  bool hangUpFailsReads = true;
  bool rtsToggle = true;
};

class PortPeer {
 public:
  virtual ~PortPeer() = default;
  virtual PortLimits Limits() const = 0;
  // The name to give the library for this port.
  virtual std::u16string PortName() const = 0;
  virtual LineSettings Settings() = 0;
  virtual void Send(const std::string& bytes) = 0;
  // What the library wrote, up to `max` bytes, waiting at most `waitMs` for
  // each part.
  virtual std::string Receive(size_t max, uint32_t waitMs) = 0;
  // The receiver goes away (its side of the pseudo-terminal is closed).
  virtual void HangUp() = 0;
};

// A fresh port for one test; fails the test when none can be made.
std::unique_ptr<PortPeer> NewPortPeer();

}  // namespace kavo::test
