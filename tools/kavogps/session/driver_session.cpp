#include "session/driver_session.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <mutex>
#include <ostream>
#include <thread>
#include <utility>

#include "session/gps_library.h"

namespace kavo::cli {
namespace {

constexpr uint32_t kPollMs = 50;
// When the callbacks drain, the session's thread is woken for what they
// cannot do; its own polls only close epochs that went quiet. With no epoch
// open it has nothing to do until woken: a status change wakes it, and a
// stop ends its wait.
constexpr uint32_t kPollMsWhileCallbacksDrain = 1000;
constexpr std::chrono::milliseconds kIdleWhileCallbacksDrain{60000};
constexpr std::chrono::microseconds kSpinFor{500};
// The library holds a data callback back for its notification interval
// (100 ms, fixed) after the last one; a little later the next one comes.
constexpr uint64_t kDataCallbackDueAfterMs = 120;

// A sentence with the state before it, or a reading of the newest state.
struct Event {
  std::string sentence;  // empty for a reading
  Reading reading;
  uint64_t ms = 0;
  std::chrono::system_clock::time_point arrival{};  // a sentence's, by the system clock
};

uint64_t NowMs() {
  return static_cast<uint64_t>(
      std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now().time_since_epoch())
          .count());
}

// What one set of callbacks shares with its session's thread.
struct Shared {
  std::mutex mutex;
  bool claimed = false;              // by a SessionCallbacks
  Waiter* waiter = nullptr;          // where the session's thread waits, while it runs
  GPSDriverHandle driver = nullptr;  // set while a session runs
  DriverSession* inline_ = nullptr;  // set while a session drains on callbacks
  uint64_t lastDataMs = 0;           // when the data callback last came
  // The first `queued` are queued; those past them were drained, and are
  // kept so that the next ones reuse their storage.
  std::vector<Event> events;
  size_t queued = 0;
  std::vector<Event> drained;  // swapped with `events`; read only by the thread that drains
  uint64_t sentences = 0;
};

// Never destroyed: an abandoned reading thread may still call back at exit.
Shared& Active(size_t slot) {
  static auto* const slots = new std::array<Shared, kMaxSessions>;
  return (*slots)[slot];
}

// A sentence without its line end into `text`, empty for none; false for
// a sentence that is nothing but a line end.
bool AssignSentence(const KavoChar* sentence, std::string* text) {
  AssignLibraryText(sentence, text);
  while (!text->empty() && (text->back() == '\n' || text->back() == '\r')) text->pop_back();
  return !sentence || !text->empty();
}

// Who records: what it queues, and whether the session's thread must wake.
enum class Recorder { kSentence, kStatus, kData, kSession };

// Queues a sentence with the state before it, or (null) a reading of the
// newest state; returns the session that drains on callbacks, if one runs.
DriverSession* Record(size_t slot, Recorder recorder, const KavoChar* sentence = nullptr) {
  // Before anything else: the nearest the tool gets to when the text was read.
  const auto arrival = sentence ? std::chrono::system_clock::now() : std::chrono::system_clock::time_point{};
  Shared& shared = Active(slot);
  std::lock_guard<std::mutex> lock(shared.mutex);
  if (!shared.driver) return nullptr;
  if (shared.queued == shared.events.size()) shared.events.emplace_back();
  Event& event = shared.events[shared.queued];
  event.ms = NowMs();
  event.arrival = arrival;
  if (recorder == Recorder::kData) shared.lastDataMs = event.ms;
  shared.sentences += sentence ? 1 : 0;
  if (!AssignSentence(sentence, &event.sentence)) return shared.inline_;
  if (!TakeReading(shared.driver, &event.reading)) return shared.inline_;
  // A data callback follows a chunk's sentences unless the library holds it
  // back: while it comes, it drains them and the session's thread need not
  // wake for each sentence.
  const bool drainedSoon = shared.inline_ && event.ms - shared.lastDataMs > kDataCallbackDueAfterMs;
  ++shared.queued;
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
  static void RecordAndDrain(size_t slot, bool data) {
    // Stop clears the session before it joins this thread, so the session
    // outlives this call.
    if (DriverSession* session = Record(slot, data ? Recorder::kData : Recorder::kStatus)) session->Drain();
  }
};

namespace {

// The callbacks of one slot.
template <size_t Slot>
struct SlotCallbacks {
  static void OnStatus() { SessionAccess::RecordAndDrain(Slot, false); }
  static void OnData(uint32_t) { SessionAccess::RecordAndDrain(Slot, true); }
  static void OnSentence(const KavoChar* sentence) { Record(Slot, Recorder::kSentence, sentence); }
};

struct CallbackSet {
  GPSStatusCallback status;
  GPSDataCallback data;
  GPSSentenceCallback sentence;
};

template <size_t... Slots>
constexpr std::array<CallbackSet, sizeof...(Slots)> CallbackTable(std::index_sequence<Slots...>) {
  return {{{SlotCallbacks<Slots>::OnStatus, SlotCallbacks<Slots>::OnData, SlotCallbacks<Slots>::OnSentence}...}};
}

constexpr std::array<CallbackSet, kMaxSessions> kCallbacks = CallbackTable(std::make_index_sequence<kMaxSessions>());

// Swaps the queued events into `drained`, whose last contents the next ones
// reuse; returns how many of them are queued.
size_t TakeQueued(size_t slot) {
  Shared& shared = Active(slot);
  std::lock_guard<std::mutex> lock(shared.mutex);
  shared.drained.swap(shared.events);
  return std::exchange(shared.queued, 0);
}

}  // namespace

bool SessionCallbacks::Claim() {
  for (size_t slot = 0; slot < kMaxSessions && slot_ == kMaxSessions; ++slot) {
    std::lock_guard<std::mutex> lock(Active(slot).mutex);
    if (!Active(slot).claimed) {
      Active(slot).claimed = true;
      slot_ = slot;
    }
  }
  return slot_ != kMaxSessions;
}

SessionCallbacks::~SessionCallbacks() {
  if (slot_ == kMaxSessions) return;
  std::lock_guard<std::mutex> lock(Active(slot_).mutex);
  Active(slot_).claimed = false;
}

GPSStatusCallback SessionCallbacks::Status() const { return kCallbacks.at(slot_).status; }
GPSDataCallback SessionCallbacks::Data() const { return kCallbacks.at(slot_).data; }
GPSSentenceCallback SessionCallbacks::Sentence() const { return kCallbacks.at(slot_).sentence; }

DriverSession::DriverSession(GPSDriverHandle driver, const SessionCallbacks& callbacks, SessionOptions options)
    : driver_(driver),
      slot_(callbacks.Slot()),
      options_(options),
      epochs_(options.quietMs, [this](const EpochReport& r) { Deliver(r); }) {}

DriverSession::~DriverSession() { Stop(); }

bool DriverSession::Start(uint32_t* lastError) {
  {
    Shared& shared = Active(slot_);
    std::lock_guard<std::mutex> lock(shared.mutex);
    shared.driver = driver_;
    shared.inline_ = options_.viewsOnCallbackThread ? this : nullptr;
    shared.queued = 0;
    shared.sentences = 0;
  }
  running_ = true;
  if (GPSDriver_Start(driver_)) return true;
  *lastError = KavoMobileGPS_GetLastError();
  Stop();
  return false;
}

uint64_t DriverSession::SentencesSeen() const {
  std::lock_guard<std::mutex> lock(Active(slot_).mutex);
  return Active(slot_).sentences;
}

void DriverSession::Deliver(const EpochReport& report) {
  if (track_) track_->Add(report);
  for (ReadingView* view : views_) view->Show(report);
}

bool DriverSession::Drain() {
  std::lock_guard<std::mutex> lock(draining_);
  const size_t count = TakeQueued(slot_);
  const std::vector<Event>& drained = Active(slot_).drained;
  for (size_t i = 0; i < count; ++i) {
    const Event& event = drained[i];
    if (event.sentence.empty()) {
      epochs_.Latest(event.reading, event.ms);
    } else {
      for (ReadingView* view : views_) view->Sentence(event.sentence);
      epochs_.Sentence(event.sentence, event.reading, event.ms, event.arrival);
    }
    latest_ = event.reading;
    for (ReadingView* view : views_) view->Status(event.reading.status);
  }
  return count > 0;
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

SessionEnd DriverSession::Run(Waiter& interrupt) {
  const std::chrono::steady_clock::time_point start = std::chrono::steady_clock::now();
  {
    std::lock_guard<std::mutex> lock(Active(slot_).mutex);
    Active(slot_).waiter = &interrupt;
  }
  PollSchedule polls(std::chrono::milliseconds(options_.viewsOnCallbackThread ? kPollMsWhileCallbacksDrain : kPollMs));
  bool delivering = false;  // the status has left "stopped" at least once
  std::optional<SessionEnd> end;
  while (!end) {
    bool due, idle;
    {
      std::lock_guard<std::mutex> lock(draining_);
      due = epochs_.Due();
      idle = options_.viewsOnCallbackThread && delivering && !epochs_.Open() && outputs_.empty();
    }
    const std::chrono::microseconds wait = idle ? kIdleWhileCallbacksDrain : polls.Next(due);
    if (wait == wait.zero()) std::this_thread::yield();
    const bool interrupted = interrupt.Wait(static_cast<uint32_t>((wait.count() + 999) / 1000));
    Record(slot_, Recorder::kSession);
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
  Shared& shared = Active(slot_);
  {
    std::lock_guard<std::mutex> lock(shared.mutex);
    shared.inline_ = nullptr;
  }
  GPSDriver_Stop(driver_);  // joins the reading thread: no callback runs after this
  std::lock_guard<std::mutex> lock(shared.mutex);
  shared.driver = nullptr;
  shared.waiter = nullptr;
  shared.queued = 0;
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
