// Plays a recorded NMEA file back as if a receiver were attached: one line
// per interval, catching up when the reader falls behind, optionally
// starting again at the end.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

#include "platform/platform.h"
#include "sources/data_source.h"
#include "sources/encoded_text_reader.h"
#include "support/critical_section_lock.h"
#include "support/wide_string.h"

namespace kavo {

class NmeaFilePlayback : public DataSource, public PlaybackControl {
 public:
  NmeaFilePlayback();

  // Opens the file and arms the pacing; raises a system error
  // when the file cannot be opened. With `keepNul` a NUL in a line is a
  // character like any other (receivers that mix a binary protocol into
  // their NMEA send them); without, the line ends there.
  void Open(const WideString& path, uint32_t intervalMs, bool repeat, bool keepNul = false);

  // Sleeps out the rest of the interval and delivers one line, or delivers
  // every line due when late; lines lie back to back, each ending in LF.
  // While paused returns 1 at once and leaves `count` alone.
  int Read(char16_t* buffer, uint32_t capacity, uint32_t* count, CIMExceptionImpl* error) override;
  // Nothing is written back to a recording.
  int Write(const char16_t* text, uint32_t length, uint32_t* written, CIMExceptionImpl* error) override;
  // A stop ends the pacing wait at once, and that Read delivers nothing:
  // a reading thread given up on never takes lines from a later run.
  void CancelRead() override { cancel_->Set(); }
  void ResetCancelRead() override { cancel_->Reset(); }

  int Pause() override;
  int Resume(CIMExceptionImpl* error) override;

  uint32_t PendingLines() const { return pending_.load(std::memory_order_relaxed); }

 private:
  ~NmeaFilePlayback() override = default;

  int32_t open_ = 0;
  uint32_t interval_ = 0;
  EncodedTextReader reader_;
  // Resume writes these and the paused flag from the driver's thread
  // without the lock, so they are atomic.
  std::atomic<uint32_t> pending_{0};
  std::atomic<uint32_t> lastReadTick_{0};
  bool repeat_ = false;
  bool keepNul_ = false;
  bool endOfFile_ = false;
  std::atomic<bool> paused_{false};
  std::unique_ptr<platform::Event> cancel_;
  CriticalSectionLock lock_;
};

}  // namespace kavo
