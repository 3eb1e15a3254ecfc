#include "session/driver_session.h"

#include <algorithm>
#include <chrono>
#include <mutex>
#include <ostream>
#include <thread>

#include "session/gps_library.h"

namespace kavo::cli {
namespace {

constexpr uint32_t kPollMs = 50;
// When the callbacks drain, the session's thread is woken for what they
// cannot do; its own polls only close epochs that went quiet.
constexpr uint32_t kPollMsWhileCallbacksDrain = 1000;
constexpr std::chrono::microseconds kSpinFor{500};
// The library holds a data callback back for its notification interval
// (100 ms, fixed) after the last one; a little later the next one comes.
constexpr uint64_t kDataCallbackDueAfterMs = 120;

// A sentence with the state before it, or a reading of the newest state.
struct Event {
  std::string sentence;  // empty for a reading
  Reading reading;
  uint64_t ms = 0;
};

uint64_t NowMs() {
  return static_cast<uint64_t>(
      std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now().time_since_epoch())
          .count());
}

// What the callbacks share with the session's thread.
struct Shared {
  std::mutex mutex;
  InterruptWatch* waiter = nullptr;  // where the session's thread waits, while it runs
  GPSDriverHandle driver = nullptr;  // set while a session runs
  DriverSession* inline_ = nullptr;  // set while a session drains on callbacks
  uint64_t lastDataMs = 0;           // when the data callback last came
  std::vector<Event> events;
  uint64_t sentences = 0;
};

Shared& Active() {
  static Shared shared;
  return shared;
}

// Who records: what it queues, and whether the session's thread must wake.
enum class Recorder { kSentence, kStatus, kData, kSession };

// Queues a sentence with the state before it, or (null) a reading of the
// newest state; returns the session that drains on callbacks, if one runs.
DriverSession* Record(Recorder recorder, const KavoChar* sentence = nullptr) {
  Shared& shared = Active();
  std::lock_guard<std::mutex> lock(shared.mutex);
  if (!shared.driver) return nullptr;
  Event event;
  event.ms = NowMs();
  if (recorder == Recorder::kData) shared.lastDataMs = event.ms;
  if (sentence) {
    ++shared.sentences;
    event.sentence = FromLibraryText(sentence);
    while (!event.sentence.empty() && (event.sentence.back() == '\n' || event.sentence.back() == '\r'))
      event.sentence.pop_back();
    if (event.sentence.empty()) return shared.inline_;
  }
  if (!TakeReading(shared.driver, &event.reading)) return shared.inline_;
  // A data callback follows a chunk's sentences unless the library holds it
  // back: while it comes, it drains them and the session's thread need not
  // wake for each sentence.
  const bool drainedSoon = shared.inline_ && event.ms - shared.lastDataMs > kDataCallbackDueAfterMs;
  shared.events.push_back(std::move(event));
  // A data callback that drains needs no one woken; a status change may
  // end the session, so its thread hears of that at once.
  bool wake = false;
  switch (recorder) {
    case Recorder::kSentence:
      wake = !drainedSoon;
      break;
    case Recorder::kStatus:
      wake = true;
      break;
    case Recorder::kData:
      wake = !shared.inline_;
      break;
    case Recorder::kSession:
      break;
  }
  if (wake && shared.waiter) shared.waiter->Wake();
  return shared.inline_;
}

}  // namespace

// Lets the callbacks drain a session that asked for it.
struct SessionAccess {
  static void RecordAndDrain(bool data) {
    // Stop clears the session before it joins this thread, so the session
    // outlives this call.
    if (DriverSession* session = Record(data ? Recorder::kData : Recorder::kStatus)) session->Drain();
  }
};

namespace {

void OnStatus() { SessionAccess::RecordAndDrain(false); }
void OnData(uint32_t) { SessionAccess::RecordAndDrain(true); }
void OnSentence(const KavoChar* sentence) { Record(Recorder::kSentence, sentence); }

std::vector<Event> TakeQueued() {
  Shared& shared = Active();
  std::lock_guard<std::mutex> lock(shared.mutex);
  std::vector<Event> events;
  events.reserve(shared.events.capacity());  // the next chunk's sentences need no regrowth
  events.swap(shared.events);
  return events;
}

}  // namespace

GPSStatusCallback SessionStatusCallback() { return OnStatus; }
GPSDataCallback SessionDataCallback() { return OnData; }
GPSSentenceCallback SessionSentenceCallback() { return OnSentence; }

DriverSession::DriverSession(GPSDriverHandle driver, SessionOptions options)
    : driver_(driver), options_(options), epochs_(options.quietMs, [this](const EpochReport& r) { Deliver(r); }) {}

DriverSession::~DriverSession() { Stop(); }

bool DriverSession::Start(uint32_t* lastError) {
  {
    std::lock_guard<std::mutex> lock(Active().mutex);
    Active().driver = driver_;
    Active().inline_ = options_.viewsOnCallbackThread ? this : nullptr;
    Active().events.clear();
    Active().sentences = 0;
  }
  running_ = true;
  if (GPSDriver_Start(driver_)) return true;
  *lastError = KavoMobileGPS_GetLastError();
  Stop();
  return false;
}

uint64_t DriverSession::SentencesSeen() const {
  std::lock_guard<std::mutex> lock(Active().mutex);
  return Active().sentences;
}

void DriverSession::Deliver(const EpochReport& report) {
  if (track_) track_->Add(report);
  for (ReadingView* view : views_) view->Show(report);
}

bool DriverSession::Drain() {
  std::lock_guard<std::mutex> lock(draining_);
  const std::vector<Event> events = TakeQueued();
  for (const Event& event : events) {
    if (event.sentence.empty()) {
      epochs_.Latest(event.reading, event.ms);
    } else {
      for (ReadingView* view : views_) view->Sentence(event.sentence);
      epochs_.Sentence(event.sentence, event.reading, event.ms);
    }
    latest_ = event.reading;
    for (ReadingView* view : views_) view->Status(event.reading.status);
  }
  return !events.empty();
}

namespace {

// How long the session waits before it reads the record again. Each
// sentence is taken as it comes. An epoch whose last sentence came is
// complete once the library applied it, microseconds later: the record is
// read again at once for a short while (a sleep would cost more than the
// wait), then less and less often.
class PollSchedule {
 public:
  explicit PollSchedule(std::chrono::milliseconds usual) : usual_(usual) {}

  // `due`: the open epoch waits for its last sentence to show.
  std::chrono::microseconds Next(bool due) {
    if (!due) {
      duePolls_ = 0;
      return usual_;
    }
    if (duePolls_++ == 0) {
      dueSince_ = std::chrono::steady_clock::now();
      return std::chrono::microseconds::zero();
    }
    if (std::chrono::steady_clock::now() - dueSince_ < kSpinFor) return std::chrono::microseconds::zero();
    return std::min<std::chrono::microseconds>(usual_, std::chrono::microseconds(250 << std::min(duePolls_, 8)));
  }

 private:
  std::chrono::milliseconds usual_;
  int duePolls_ = 0;
  std::chrono::steady_clock::time_point dueSince_;
};

}  // namespace

SessionEnd DriverSession::Run(InterruptWatch& interrupt) {
  const std::chrono::steady_clock::time_point start = std::chrono::steady_clock::now();
  {
    std::lock_guard<std::mutex> lock(Active().mutex);
    Active().waiter = &interrupt;
  }
  PollSchedule polls(std::chrono::milliseconds(options_.viewsOnCallbackThread ? kPollMsWhileCallbacksDrain : kPollMs));
  bool delivering = false;  // the status has left "stopped" at least once
  std::optional<SessionEnd> end;
  while (!end) {
    bool due;
    {
      std::lock_guard<std::mutex> lock(draining_);
      due = epochs_.Due();
    }
    const std::chrono::microseconds wait = polls.Next(due);
    if (wait == wait.zero()) std::this_thread::yield();
    const bool interrupted = interrupt.Wait(static_cast<uint32_t>((wait.count() + 999) / 1000));
    Record(Recorder::kSession);
    const bool drained = Drain();
    std::lock_guard<std::mutex> lock(draining_);
    for (ReadingView* view : views_) view->Tick();
    end = EndAfterPoll(interrupted, drained, start, &delivering);
  }
  Stop();
  epochs_.Finish(latest_);
  if (track_) track_->Finish();
  for (ReadingView* view : views_) view->Close();
  return *end;
}

std::optional<SessionEnd> DriverSession::EndAfterPoll(bool interrupted, bool drained,
                                                      std::chrono::steady_clock::time_point start, bool* delivering) {
  bool outputFailed = false;
  for (std::ostream* out : outputs_) outputFailed |= !out->good();
  if (interrupted || outputFailed) return interrupted ? SessionEnd::kInterrupted : SessionEnd::kOutputFailed;
  if (!drained) return std::nullopt;
  const int32_t status = latest_.status;
  if (status == GPS_STATUS_TIMEOUT && options_.endsWithRecording) return SessionEnd::kRecordingEnded;
  if (status != GPS_STATUS_STOPPED) {
    *delivering = true;
    return std::nullopt;
  }
  if (*delivering) return SessionEnd::kSourceFailed;
  if (options_.endsWithRecording &&
      std::chrono::steady_clock::now() - start > std::chrono::milliseconds(options_.noTextMs))
    return SessionEnd::kNoText;
  return std::nullopt;
}

void DriverSession::Stop() {
  if (!running_) return;
  running_ = false;
  {
    std::lock_guard<std::mutex> lock(Active().mutex);
    Active().inline_ = nullptr;
  }
  GPSDriver_Stop(driver_);  // joins the reading thread: no callback runs after this
  std::lock_guard<std::mutex> lock(Active().mutex);
  Active().driver = nullptr;
  Active().waiter = nullptr;
  Active().events.clear();
}

SessionOptions PlaybackOptions(int64_t intervalMs, bool repeat) {
  SessionOptions options;
  options.endsWithRecording = !repeat;
  options.endTimeoutMs = static_cast<uint32_t>(2 * intervalMs + 1000);
  options.noTextMs = 3000 + options.endTimeoutMs + 1000;
  // Lines come one interval apart: only a longer silence is between epochs.
  options.quietMs = std::max<uint32_t>(options.quietMs, static_cast<uint32_t>(3 * intervalMs));
  return options;
}

}  // namespace kavo::cli
