// A serial port description: its name and line parameters, in the codes of
// the serial port's own settings. What a COMPortInfo handle points to.
#pragma once

#include <cstdint>

#include "support/wide_string.h"

namespace kavo {

struct COMPortInfo {
  static constexpr size_t kMaxName = 20;  // characters, without the terminator
  static constexpr uint32_t kDefaultBaudRate = 4800;

  char16_t Name[kMaxName + 1] = {};
  uint32_t BaudRate = kDefaultBaudRate;
  uint8_t Parity = 0;  // none
  uint8_t ByteSize = 8;
  uint8_t StopBits = 0;  // one

  COMPortInfo() = default;
  // At most 20 characters of the name are kept; always terminated.
  COMPortInfo(const char16_t* name, uint32_t baudRate, uint8_t parity, uint8_t byteSize, uint8_t stopBits)
      : BaudRate(baudRate), Parity(parity), ByteSize(byteSize), StopBits(stopBits) {
    SetName(name);
  }
  void SetName(const char16_t* name) { CopyTruncated(Name, kMaxName, name); }
  // Back to an empty name and the defaults: 4800 baud, no parity, 8 data
  // bits, one stop bit.
  void Reset() { *this = COMPortInfo(); }
};

}  // namespace kavo
