#include "sources/nmea_file_playback.h"

#include <limits>

#include "platform/platform.h"

namespace kavo {
namespace {
uint32_t SaturatingAdd(uint32_t a, uint32_t b) {
  return a > std::numeric_limits<uint32_t>::max() - b ? std::numeric_limits<uint32_t>::max() : a + b;
}
}  // namespace

NmeaFilePlayback::NmeaFilePlayback() : cancel_(platform::Event::Create(true, false)) {
  if (!cancel_) Raise(kErrGeneralFailure);
}

void NmeaFilePlayback::Open(const WideString& path, uint32_t intervalMs, bool repeat, bool keepNul) {
  CriticalSectionLock::Guard guard(lock_);
  keepNul_ = keepNul;
  open_ = 0;
  reader_.Open(path);
  endOfFile_ = false;
  repeat_ = repeat;
  // An interval of 0 would divide by zero in the pacing, and a playback that
  // never sleeps would spin its reader at the end of the file: 0 paces as
  // the shortest interval there is, 1 ms.
  interval_ = intervalMs ? intervalMs : 1;
  lastReadTick_ = platform::TickCount();
  pending_ = 1;
  open_ = 1;
}

int NmeaFilePlayback::Read(char16_t* buffer, uint32_t capacity, uint32_t* count, CIMExceptionImpl* error) {
  CriticalSectionLock::Guard guard(lock_);
  // Paused: nothing flows, and the lock is not kept past the call, so a
  // reading thread that ends here leaves it free for the next one.
  if (paused_.load()) return 1;
  return CatchInto(error, [&] {
    if (!open_) Raise(kErrGeneralFailure);
    if (!buffer || !count || capacity == 0) Raise(kErrInvalidParameter);
    const uint32_t last = lastReadTick_;
    const uint32_t elapsed = platform::TickCount() - last;
    const bool onTime = elapsed < interval_;
    uint32_t lines = 1;
    if (onTime) {
      if (platform::SleepUnless(*cancel_, interval_ - elapsed)) {
        buffer[0] = 0;
        *count = 0;
        return;
      }
    } else {
      lines = SaturatingAdd(pending_, elapsed / interval_);
    }
    if (endOfFile_ && repeat_) {
      reader_.Rewind();
      endOfFile_ = false;
    }
    pending_ = lines;
    uint32_t used = 0;
    buffer[0] = 0;
    for (uint32_t i = 0; i < lines; ++i) {
      uint32_t length = 0;
      if (endOfFile_ || !reader_.ReadLine(buffer + used, capacity - used, &length)) {
        endOfFile_ = true;
        break;
      }
      // By default a line ends at its first NUL, as it always did: the next
      // line then overwrites the rest, line end included.
      used += keepNul_ ? length : static_cast<uint32_t>(WideLength(buffer + used));
      if (used >= capacity - 1) break;  // the line stays due
      --pending_;
    }
    // On time, the next line is due an interval after this one was due,
    // not after the wait happened to end: what a wait overran would add to
    // every line. Late, the pace starts again from now.
    const uint32_t now = platform::TickCount();
    const uint32_t due = last + interval_;
    lastReadTick_ = onTime && static_cast<int32_t>(now - due) >= 0 ? due : now;
    *count = used;
  });
}

int NmeaFilePlayback::Write(const char16_t*, uint32_t, uint32_t* written, CIMExceptionImpl*) {
  if (written) *written = 0;
  return 1;
}

int NmeaFilePlayback::Pause() {
  paused_ = true;
  return 1;
}

int NmeaFilePlayback::Resume(CIMExceptionImpl*) {
  lastReadTick_ = platform::TickCount();
  pending_ = 1;
  paused_ = false;
  return 1;
}

}  // namespace kavo
