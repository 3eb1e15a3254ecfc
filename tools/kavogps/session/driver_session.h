// Runs a started driver until its recording ends, its source fails or the
// user interrupts, showing one complete report per epoch.
//
// The library's callbacks carry no context, so each session that runs
// beside others has callbacks of its own (SessionCallbacks). The sentence
// callback, which runs for each recognised sentence
// before the records are updated with that sentence's chunk of text, queues
// the sentence with a reading of the state before it: so an epoch ending as
// the next one starts is read whole. The data and status callbacks and a
// poll every 50 ms (sooner while an epoch waits for its last sentence to
// show) queue readings of the newest state; the session's own thread,
// woken by each, drains the queue in order into an EpochAssembler. Views
// that never block may be served on the library's reading thread instead,
// straight after the records were updated: one thread hand-over less.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <optional>
#include <vector>

#include "KavoMobileGPS.h"
#include "session/epoch_assembler.h"
#include "session/fix_track.h"
#include "session/live_view.h"
#include "session/reading.h"
#include "session/waiter.h"

namespace kavo::cli {

enum class SessionEnd {
  kRecordingEnded,  // a recording was played to its end
  kInterrupted,     // Ctrl+C, SIGTERM
  kNoText,          // a recording gave no text the library could read
  kSourceFailed,    // the source failed after it had delivered text (a
                    // receiver unplugged)
  kOutputFailed,    // standard output (or the GPX file) could not be written
};

struct SessionOptions {
  // Whether the session ends with its recording. The end shows as the
  // driver status "no data": after the last line the playback delivers
  // nothing, and the status turns once `endTimeoutMs` passed without text
  // (GPSDriver_SetTimeoutInterval). A recording read to its end without a
  // single recognised sentence never leaves "stopped or waiting", which
  // `noTextMs` bounds.
  bool endsWithRecording = false;
  uint32_t endTimeoutMs = 3000;
  uint32_t noTextMs = 0;
  // An epoch is complete after this long without a sentence, when the next
  // epoch has not begun before.
  uint32_t quietMs = 300;
  // Whether the data and status callbacks drain the queue themselves, on
  // the library's reading thread: only for views that return at once.
  bool viewsOnCallbackThread = false;
};

// The longest gap between the lines of a played recording.
constexpr int64_t kMaxIntervalMs = 60000;

// How a session plays a recording at `intervalMs` per line: it ends with
// the recording unless `repeat`. The end shows as the driver's time-out
// (to be set on the driver): the gap between lines is one interval (a
// little more when the machine is busy), so twice that and a second more
// never cuts a recording short.
SessionOptions PlaybackOptions(int64_t intervalMs, bool repeat);

// How many sessions may run at the same time.
constexpr size_t kMaxSessions = 16;

// The callbacks to create one session's driver with: one of kMaxSessions
// sets, each knowing its session. Held until the driver is released.
class SessionCallbacks {
 public:
  SessionCallbacks() = default;
  ~SessionCallbacks();
  SessionCallbacks(const SessionCallbacks&) = delete;
  SessionCallbacks& operator=(const SessionCallbacks&) = delete;

  // Takes a free set; false when kMaxSessions are taken.
  bool Claim();
  GPSStatusCallback Status() const;
  GPSDataCallback Data() const;
  GPSSentenceCallback Sentence() const;
  size_t Slot() const { return slot_; }

 private:
  size_t slot_ = kMaxSessions;  // none
};

class DriverSession {
 public:
  // `callbacks` are those `driver` was created with.
  DriverSession(GPSDriverHandle driver, const SessionCallbacks& callbacks, SessionOptions options);
  ~DriverSession();  // stops the driver when Run did not
  DriverSession(const DriverSession&) = delete;
  DriverSession& operator=(const DriverSession&) = delete;

  void AddView(ReadingView* view) { views_.push_back(view); }
  // Fixes go to `track` epoch by epoch.
  void SetTrack(FixTrack* track) { track_ = track; }
  // Checked after each batch of readings; a failed output ends the session.
  void WatchOutput(std::ostream* out) { outputs_.push_back(out); }

  // Starts the driver and runs until the session ends; false with the
  // library's last error when the driver cannot start.
  bool Start(uint32_t* lastError);
  SessionEnd Run(Waiter& waiter);
  uint64_t SentencesSeen() const;

 private:
  friend struct SessionAccess;
  void Deliver(const EpochReport& report);
  // Drains the queue into the assembler and the views; whether it held anything.
  bool Drain();
  // After a poll, with `draining_` held: how the session ends, or nothing
  // while it goes on. `*delivering`: the status left "stopped" once.
  std::optional<SessionEnd> EndAfterPoll(bool interrupted, bool drained, std::chrono::steady_clock::time_point start,
                                         bool* delivering);
  void Stop();

  GPSDriverHandle driver_;
  size_t slot_;
  SessionOptions options_;
  std::vector<ReadingView*> views_;
  std::vector<std::ostream*> outputs_;
  FixTrack* track_ = nullptr;
  bool running_ = false;
  std::mutex draining_;  // the assembler, the views and `latest_`, for whichever thread drains
  Reading latest_;
  EpochAssembler epochs_;
};

}  // namespace kavo::cli
