// Serial ports through the Win32 communications API, called as the library
// has always called it.
#include "platform/serial_port.h"

#include <cstddef>
#include <cstring>

#include "platform/win32/win32_handles.h"

namespace kavo::platform {
namespace {

static_assert(sizeof(DCB) == 28, "the DCB the library fills is the 28-byte one");
// The DCB bit fields share the 32-bit word after BaudRate.
constexpr size_t kDcbFlagsOffset = offsetof(DCB, BaudRate) + sizeof(DWORD);

// A test clock may shorten the time-outs: constants and intervals are real
// waits; MAXDWORD and 0 keep their special meanings.
DWORD RealTimeout(DWORD ms) {
  if (ms == 0 || ms == MAXDWORD) return ms;
  const DWORD real = CurrentClock().RealWaitMs(ms);
  return real == 0 ? 1 : real;
}

class Win32SerialPort final : public SerialPort {
 public:
  explicit Win32SerialPort(HANDLE handle) : handle_(handle) {}
  ~Win32SerialPort() override { Close(); }

  bool SetupQueues(uint32_t inputSize, uint32_t outputSize) override {
    return SetupComm(handle_, inputSize, outputSize) != FALSE;
  }

  bool GetState(SerialState* state) override {
    DCB dcb;
    std::memset(&dcb, 0, sizeof dcb);
    dcb.DCBlength = state->length;
    if (!GetCommState(handle_, &dcb)) return false;
    state->length = dcb.DCBlength;
    state->baudRate = dcb.BaudRate;
    std::memcpy(&state->flags, reinterpret_cast<const char*>(&dcb) + kDcbFlagsOffset, sizeof(uint32_t));
    state->byteSize = dcb.ByteSize;
    state->parity = dcb.Parity;
    state->stopBits = dcb.StopBits;
    // What the library does not set is sent back as the driver gave it.
    last_ = dcb;
    return true;
  }

  bool SetState(const SerialState& state) override {
    DCB dcb = last_;
    dcb.DCBlength = state.length;
    dcb.BaudRate = state.baudRate;
    std::memcpy(reinterpret_cast<char*>(&dcb) + kDcbFlagsOffset, &state.flags, sizeof(uint32_t));
    dcb.ByteSize = state.byteSize;
    dcb.Parity = state.parity;
    dcb.StopBits = state.stopBits;
    return SetCommState(handle_, &dcb) != FALSE;
  }

  bool GetTimeouts(SerialTimeouts* timeouts) override {
    COMMTIMEOUTS native{};
    if (!GetCommTimeouts(handle_, &native)) return false;
    *timeouts = requested_;
    if (!haveRequested_) {
      timeouts->readInterval = native.ReadIntervalTimeout;
      timeouts->readTotalMultiplier = native.ReadTotalTimeoutMultiplier;
      timeouts->readTotalConstant = native.ReadTotalTimeoutConstant;
      timeouts->writeTotalMultiplier = native.WriteTotalTimeoutMultiplier;
      timeouts->writeTotalConstant = native.WriteTotalTimeoutConstant;
    }
    return true;
  }

  bool SetTimeouts(const SerialTimeouts& timeouts) override {
    COMMTIMEOUTS native{};
    native.ReadIntervalTimeout = RealTimeout(timeouts.readInterval);
    native.ReadTotalTimeoutMultiplier = timeouts.readTotalMultiplier;
    native.ReadTotalTimeoutConstant = RealTimeout(timeouts.readTotalConstant);
    native.WriteTotalTimeoutMultiplier = timeouts.writeTotalMultiplier;
    native.WriteTotalTimeoutConstant = RealTimeout(timeouts.writeTotalConstant);
    if (!SetCommTimeouts(handle_, &native)) return false;
    requested_ = timeouts;
    haveRequested_ = true;
    return true;
  }

  bool SetEventMask(uint32_t mask) override { return SetCommMask(handle_, mask) != FALSE; }
  bool DiscardInput() override { return PurgeComm(handle_, PURGE_RXCLEAR) != FALSE; }

  bool Read(void* buffer, uint32_t size, uint32_t* got) override {
    return win32::ReadHandle(handle_, buffer, size, got);
  }
  bool Write(const void* data, uint32_t size, uint32_t* written) override {
    return win32::WriteHandle(handle_, data, size, written);
  }

  bool Close() override {
    HANDLE handle = handle_;
    handle_ = INVALID_HANDLE_VALUE;
    if (handle == INVALID_HANDLE_VALUE) {
      ::SetLastError(ERROR_INVALID_HANDLE);
      return false;
    }
    return CloseHandle(handle) != FALSE;
  }

  uintptr_t HandleValue() const override { return reinterpret_cast<uintptr_t>(handle_); }

 private:
  HANDLE handle_;
  DCB last_{};
  SerialTimeouts requested_;
  bool haveRequested_ = false;
};

}  // namespace

std::unique_ptr<SerialPort> SerialPort::Open(const std::u16string& name, SerialAccess access) {
  // A query opens for reading only, which changes nothing on the port.
  const DWORD rights = access == SerialAccess::kReadWrite ? GENERIC_READ | GENERIC_WRITE : GENERIC_READ;
  HANDLE handle = CreateFileW(win32::Wide(name), rights, 0, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (handle == INVALID_HANDLE_VALUE) return nullptr;
  return std::make_unique<Win32SerialPort>(handle);
}

}  // namespace kavo::platform
