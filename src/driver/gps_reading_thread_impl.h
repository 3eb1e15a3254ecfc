// The reading thread and its watchdog, which reports a source whose reads
// stopped completing.
#pragma once

#include <cstdint>
#include <memory>

#include "platform/platform.h"
#include "sources/data_source.h"
#include "sources/gps_reading_thread.h"
#include "sources/text_sink.h"
#include "support/critical_section_lock.h"
#include "support/ref_counted.h"

namespace kavo {

class GpsReadingThreadImpl : public GpsReadingThread {
 public:
  static constexpr uint32_t kChunkCapacity = 1024;
  static constexpr uint32_t kRetryPauseMs = 150;
  static constexpr uint32_t kWatchdogMs = 2000;
  static constexpr uint32_t kStopWaitMs = 5000;

  // Raises the general failure when the heartbeat event cannot be made.
  explicit GpsReadingThreadImpl(Ref<DataSource> source);

  // 1 on success; 0 with code -1 and an empty message on `error`.
  int Start(TextSink* sink, CIMExceptionImpl* error) override;
  // The result of the last platform call made (non-zero for success).
  int Stop() override;

  bool Running() const { return running_ != 0; }

 private:
  ~GpsReadingThreadImpl() override = default;

  static uint32_t ReadingProcedure(void* self);
  static uint32_t WatchdogProcedure(void* self);
  void ReadingLoop();
  void WatchdogLoop();
  void ReadingStep(char16_t* buffer);
  bool ReadingStopRequested();
  bool WatchdogStopRequested();
  Ref<TextSink> CurrentSink();
  int StopReadingThread();
  void StopWatchdogThread();

  int32_t running_ = 0;
  int32_t readingStop_ = 0;   // under readingLock_
  int32_t watchdogStop_ = 0;  // under watchdogLock_
  std::unique_ptr<platform::Thread> reading_;
  std::unique_ptr<platform::Thread> watchdog_;
  // The sink is read by both threads while the caller may clear it; its own
  // lock lets a thread take a reference it can safely use.
  Ref<TextSink> sink_;
  CriticalSectionLock sinkLock_;
  Ref<DataSource> source_;
  CriticalSectionLock readingLock_;
  CriticalSectionLock watchdogLock_;
  std::unique_ptr<platform::Event> heartbeat_;
};

}  // namespace kavo
