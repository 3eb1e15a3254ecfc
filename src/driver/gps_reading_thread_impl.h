// The reading thread and its watchdog, which reports a source whose reads
// stopped completing.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>

#include "driver/gps_reading_thread.h"
#include "platform/platform.h"
#include "sources/data_source.h"
#include "sources/text_sink.h"
#include "support/ref_counted.h"

namespace kavo {

class ReadingRun;

class GpsReadingThreadImpl : public GpsReadingThread {
 public:
  static constexpr uint32_t kChunkCapacity = 1024;
  static constexpr uint32_t kRetryPauseMs = 150;
  static constexpr uint32_t kWatchdogMs = 2000;
  static constexpr uint32_t kStopWaitMs = 5000;

  // How threads are made; tests pass one that fails.
  using ThreadStarter = std::function<std::unique_ptr<platform::Thread>(platform::ThreadBody)>;

  explicit GpsReadingThreadImpl(Ref<DataSource> source, ThreadStarter starter = nullptr);

  // 1 on success; 0 with code -1 and an empty message on `error`.
  int Start(TextSink* sink, CIMExceptionImpl* error) override;
  // The result of the last platform call made (non-zero for success).
  int Stop() override;

  bool Running() const { return running_ != 0; }

 private:
  ~GpsReadingThreadImpl() override;

  int StopReadingThread(ReadingRun& run);
  void StopWatchdogThread(ReadingRun& run);

  int32_t running_ = 0;
  Ref<DataSource> source_;
  ThreadStarter starter_;
  // Each Start makes a run of its own; its threads hold it, never this
  // object, so one abandoned by Stop cannot see a later run's state.
  Ref<ReadingRun> run_;
  std::unique_ptr<platform::Thread> reading_;
  std::unique_ptr<platform::Thread> watchdog_;
};

}  // namespace kavo
