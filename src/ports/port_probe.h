// Listens on one serial port, on a thread of its own, for NMEA text: at
// 4800 baud, then at 9600 and 2400 while the port talks but not in NMEA.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

#include "nmea/receiver_options.h"
#include "platform/platform.h"
#include "sources/com_port_info.h"
#include "support/error.h"
#include "support/ref_counted.h"

namespace kavo {

// An event shared by the search and a probe that may outlive it.
class SharedEvent : public virtual RefCounted {
 public:
  // Raises the general failure when the event cannot be made.
  SharedEvent();
  platform::Event& Get() { return *event_; }

 private:
  std::unique_ptr<platform::Event> event_;
};

class PortProbe : public virtual RefCounted {
 public:
  // What one speed gave.
  enum Result : int { kSilent = 1, kNotNmea = 2, kNmea = 3 };
  static constexpr uint32_t kAttempts = 5;
  static constexpr uint32_t kReadCapacity = 512;
  static constexpr uint32_t kPauseMs = 600;
  static constexpr uint32_t kFirstBaudRate = 4800;
  static constexpr uint32_t kSecondBaudRate = 9600;
  static constexpr uint32_t kThirdBaudRate = 2400;

  // Probes the port named in `port` with the default line settings, and
  // sets `dataFound` when it hears NMEA of a talker `options` accept.
  PortProbe(const COMPortInfo& port, Ref<SharedEvent> dataFound,
            const nmea::ReceiverOptions& options = nmea::ReceiverOptions());

  // Starts the probe thread, which holds its own reference. Raises when the
  // thread cannot be made.
  platform::Thread& StartThread();

  bool Found() const { return found_.load() != 0; }
  // The port and the speed NMEA was heard at; read after Found().
  COMPortInfo Record() const { return record_; }

 private:
  ~PortProbe() override = default;

  static uint32_t ThreadProcedure(void* self);
  void Run();
  int ProbeAt(uint32_t baudRate);

  COMPortInfo record_;
  std::unique_ptr<platform::Thread> thread_;
  std::atomic<int32_t> found_{0};
  CIMExceptionImpl error_;
  Ref<SharedEvent> dataFound_;
  nmea::ReceiverOptions options_;
};

}  // namespace kavo
