// Serial ports as the Win32 communications API shows them. The POSIX side
// maps the same calls onto termios (see posix/serial_port.cpp).
#pragma once

#include <cstdint>
#include <memory>
#include <string>

namespace kavo::platform {

// The fields of a Win32 DCB the library reads and writes. `flags` holds the
// DCB bit fields in their Win32 positions.
struct SerialState {
  uint32_t length = 28;  // DCBlength; 0 means the driver filled nothing
  uint32_t baudRate = 0;
  uint32_t flags = 0;
  uint8_t byteSize = 8;
  uint8_t parity = 0;    // 0 none, 1 odd, 2 even, 3 mark, 4 space
  uint8_t stopBits = 0;  // 0 one, 1 one and a half, 2 two
};

// DCB flag bits.
constexpr uint32_t kDcbBinary = 0x0001;
constexpr uint32_t kDcbParityCheck = 0x0002;     // fParity
constexpr uint32_t kDcbDtrControlMask = 0x0030;  // fDtrControl, 2 bits
constexpr uint32_t kDcbDtrControlEnable = 0x0010;
constexpr uint32_t kDcbRtsControlMask = 0x3000;  // fRtsControl, 2 bits
constexpr uint32_t kDcbRtsControlEnable = 0x1000;
constexpr uint32_t kDcbRtsControlToggle = 0x3000;

// MAXDWORD, which COMMTIMEOUTS fields use as a marker: a read interval of
// MAXDWORD with a multiplier of MAXDWORD and a constant between 0 and
// MAXDWORD returns at once with what is queued, else waits for the first
// byte up to the constant.
constexpr uint32_t kMaxDword = 0xFFFFFFFFu;

struct SerialTimeouts {
  uint32_t readInterval = 0;
  uint32_t readTotalMultiplier = 0;
  uint32_t readTotalConstant = 0;
  uint32_t writeTotalMultiplier = 0;
  uint32_t writeTotalConstant = 0;
};

// kReadWrite opens a port for use: exclusive, in raw mode. kQuery opens
// it only to read its settings and changes nothing on it; both refuse a
// port another program holds.
enum class SerialAccess { kQuery, kReadWrite };

class SerialPort {
 public:
  virtual ~SerialPort() = default;  // closes the port if still open
  // Opens a corrected port name ("com3:", or a device path on POSIX)
  // exclusively. nullptr with the last error set when it cannot be opened
  // or another program holds it.
  static std::unique_ptr<SerialPort> Open(const std::u16string& name, SerialAccess access);

  virtual bool SetupQueues(uint32_t inputSize, uint32_t outputSize) = 0;  // SetupComm
  virtual bool GetState(SerialState* state) = 0;                          // GetCommState
  virtual bool SetState(const SerialState& state) = 0;                    // SetCommState
  virtual bool GetTimeouts(SerialTimeouts* timeouts) = 0;
  virtual bool SetTimeouts(const SerialTimeouts& timeouts) = 0;
  virtual bool SetEventMask(uint32_t mask) = 0;  // SetCommMask
  // Drops what arrived and was not read yet (PurgeComm PURGE_RXCLEAR).
  virtual bool DiscardInput() = 0;
  // Honours the time-outs set: with the library's settings a read returns
  // at once with what is queued, else waits for the first byte up to the
  // constant. false with the last error set on failure.
  virtual bool Read(void* buffer, uint32_t size, uint32_t* got) = 0;
  virtual bool Write(const void* data, uint32_t size, uint32_t* written) = 0;
  // Makes a Read waiting for its first byte return now (with nothing), or
  // the next one if none is waiting. Any thread may call it. Where the OS
  // offers no cheap wake-up the read simply ends with its time-out.
  virtual void InterruptRead() {}
  // Drops an interruption no read took up.
  virtual void ClearInterrupt() {}
  // CloseHandle: false with the last error set when it fails.
  virtual bool Close() = 0;
  // A number that names the port in log lines.
  virtual uintptr_t HandleValue() const = 0;
};

}  // namespace kavo::platform
