#include "cli/driver_session.h"

#include <chrono>
#include <mutex>
#include <ostream>

namespace kavo::cli {
namespace {

constexpr uint32_t kPollMs = 50;

// What the callbacks share with the session's thread.
struct Shared {
  std::mutex mutex;
  GPSDriverHandle driver = nullptr;  // set while a session runs
  std::vector<Reading> readings;
  uint64_t sentences = 0;
};

Shared& Active() {
  static Shared shared;
  return shared;
}

void Record(bool sentence) {
  Shared& shared = Active();
  std::lock_guard<std::mutex> lock(shared.mutex);
  if (!shared.driver) return;
  if (sentence) ++shared.sentences;
  Reading reading;
  if (TakeReading(shared.driver, &reading)) shared.readings.push_back(std::move(reading));
}

void OnStatus() { Record(false); }
void OnData(uint32_t) { Record(false); }
void OnSentence(const KavoChar*) { Record(true); }

std::vector<Reading> TakeQueued() {
  Shared& shared = Active();
  std::lock_guard<std::mutex> lock(shared.mutex);
  std::vector<Reading> readings;
  readings.swap(shared.readings);
  return readings;
}

}  // namespace

GPSStatusCallback SessionStatusCallback() { return OnStatus; }
GPSDataCallback SessionDataCallback() { return OnData; }
GPSSentenceCallback SessionSentenceCallback() { return OnSentence; }

DriverSession::DriverSession(GPSDriverHandle driver, SessionOptions options)
    : driver_(driver), options_(options) {}

DriverSession::~DriverSession() { Stop(); }

bool DriverSession::Start(uint32_t* lastError) {
  {
    std::lock_guard<std::mutex> lock(Active().mutex);
    Active().driver = driver_;
    Active().readings.clear();
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

void DriverSession::Deliver(const std::vector<Reading>& readings) {
  for (const Reading& reading : readings) {
    if (track_) track_->Add(reading.location);
    for (ReadingView* view : views_) view->Show(reading);
  }
}

SessionEnd DriverSession::Run(InterruptWatch& interrupt) {
  using Clock = std::chrono::steady_clock;
  const Clock::time_point start = Clock::now();
  bool delivering = false;  // the status has left "stopped" at least once
  SessionEnd end = SessionEnd::kInterrupted;
  for (;;) {
    const bool interrupted = interrupt.Wait(kPollMs);
    Record(false);
    const std::vector<Reading> readings = TakeQueued();
    Deliver(readings);
    for (ReadingView* view : views_) view->Tick();
    bool outputFailed = false;
    for (std::ostream* out : outputs_) outputFailed |= !out->good();
    if (interrupted || outputFailed) {
      end = interrupted ? SessionEnd::kInterrupted : SessionEnd::kOutputFailed;
      break;
    }
    if (readings.empty() || !options_.endsWithRecording) continue;
    const int32_t status = readings.back().status;
    if (status == GPS_STATUS_TIMEOUT) {
      end = SessionEnd::kRecordingEnded;
      break;
    }
    if (status != GPS_STATUS_STOPPED) {
      delivering = true;
    } else if (delivering) {
      end = SessionEnd::kSourceFailed;
      break;
    } else if (Clock::now() - start > std::chrono::milliseconds(options_.noTextMs)) {
      end = SessionEnd::kNoText;
      break;
    }
  }
  Stop();
  if (track_) track_->Finish();
  for (ReadingView* view : views_) view->Close();
  return end;
}

void DriverSession::Stop() {
  if (!running_) return;
  running_ = false;
  GPSDriver_Stop(driver_);  // joins the reading thread: no callback runs after this
  std::lock_guard<std::mutex> lock(Active().mutex);
  Active().driver = nullptr;
  Active().readings.clear();
}

}  // namespace kavo::cli
