// The data source for a receiver on a serial port: opens the port
// exclusively with the description's line settings and moves bytes, read as
// text in the system code page.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>

#include "platform/platform.h"
#include "platform/serial_port.h"
#include "sources/com_port_info.h"
#include "sources/data_source.h"
#include "support/text_converter.h"

namespace kavo {

class SerialConnection : public DataSource {
 public:
  static constexpr uint32_t kQueueSize = 4096;
  static constexpr uint32_t kReadTimeoutMs = 700;
  static constexpr uint32_t kWriteTimeoutPerByteMs = 100;
  static constexpr uint32_t kEventMask = 0xFD;  // every event but EV_RXFLAG
  static constexpr uint32_t kCloseWaitMs = 2000;

  // Raises the general failure when its mutex cannot be made.
  SerialConnection();

  // Opens (or reopens) the port. Returns 1, or 0 with `error` filled: -14
  // with the port name when the port cannot be opened, -11 with the port
  // name when a setting is refused, -1 for a name that cannot be a port.
  int Open(const COMPortInfo& port, CIMExceptionImpl* error);
  // Reads at most `capacity - 1` bytes, as characters, into `buffer`.
  int Read(char16_t* buffer, uint32_t capacity, uint32_t* count, CIMExceptionImpl* error) override;
  int Write(const char16_t* text, uint32_t length, uint32_t* written, CIMExceptionImpl* error) override;
  // Ends a read waiting for its first byte, where the port can be woken.
  void CancelRead() override;
  void ResetCancelRead() override;

  bool IsOpen() const { return open_.load() != 0; }

 private:
  ~SerialConnection() override;

  void OpenLocked(const COMPortInfo& port);
  void ApplyLineSettings(platform::SerialPort& port, const COMPortInfo& info);
  void Close();
  std::shared_ptr<platform::SerialPort> CurrentPort();
  void ReplacePort(std::shared_ptr<platform::SerialPort> port);
  std::shared_ptr<platform::SerialPort> TakePort();

  std::atomic<int32_t> open_{0};
  // Write takes no port mutex, so the port itself is swapped under a lock
  // of its own and a writer keeps the object it started with alive.
  std::shared_ptr<platform::SerialPort> port_;
  std::mutex portSwap_;
  TextConverter converter_;
  std::unique_ptr<platform::Mutex> mutex_;
  // The bytes of a read, under the port mutex; made with the connection
  // for the reading thread's usual chunk, grown for a larger one.
  static constexpr uint32_t kReadHint = 1024;
  std::unique_ptr<uint8_t[]> readBytes_;
  uint32_t readCapacity_ = 0;
};

}  // namespace kavo
