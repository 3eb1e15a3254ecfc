#include "driver/gps_reading_thread_impl.h"

#include "log/logger.h"
#include "support/critical_section_lock.h"

namespace kavo {

// What the two threads of one Start share. Its threads hold it by counted
// reference: a thread abandoned by Stop keeps it, and the source and sink
// it holds, alive until it returns, and only ever sees this run's stop
// state.
class ReadingRun : public RefCounted {
 public:
  ReadingRun(Ref<DataSource> source, TextSink* sink)
      : source_(std::move(source)),
        sink_(sink),
        heartbeat_(platform::Event::Create(false, false)),
        stopping_(platform::Event::Create(true, false)) {
    if (!heartbeat_ || !stopping_) Raise(nullptr);
  }

  void ReadingLoop() {
    LogScope scope(u"GPS Thread started");
    std::unique_ptr<char16_t[]> buffer(new char16_t[GpsReadingThreadImpl::kChunkCapacity]);
    while (!Stopping(readingStop_)) ReadingStep(buffer.get());
  }

  void WatchdogLoop() {
    while (!Stopping(watchdogStop_)) {
      if (heartbeat_->Wait(GpsReadingThreadImpl::kWatchdogMs) == platform::WaitResult::kSignaled) continue;
      Deliver([](TextSink& sink) { sink.OnNoData(); });
    }
  }

  // The pause after an empty or failed step ends at once on this.
  void RequestReadingStop() {
    Request(readingStop_);
    stopping_->Set();
    source_->CancelRead();
  }

  void RequestWatchdogStop() {
    Request(watchdogStop_);
    heartbeat_->Set();  // wake the watchdog at once
  }

  // Once the threads ended or were given up on: nothing reaches the sink
  // any more. Waits for a call already under way.
  void DropSink() {
    CriticalSectionLock::Guard guard(deliveryLock_);
    sink_.reset();
  }

 private:
  void ReadingStep(char16_t* buffer) {
    uint32_t count = 0;
    CIMExceptionImpl error;
    const bool failed = !CatchInto(&error, [&] {
      CheckOrRaise(source_->Read(buffer, GpsReadingThreadImpl::kChunkCapacity, &count, &error), &error);
    });
    heartbeat_->Set();

    bool delivered;
    if (failed) {
      delivered = Deliver([&](TextSink& sink) { sink.OnError(error); });
    } else if (count > 0) {
      Deliver([&](TextSink& sink) { sink.OnText(buffer, count); });
      return;
    } else {
      delivered = Deliver([](TextSink& sink) { sink.OnNoData(); });
    }
    if (delivered) stopping_->Wait(GpsReadingThreadImpl::kRetryPauseMs);
  }

  template <class Call>
  bool Deliver(Call call) {
    CriticalSectionLock::Guard guard(deliveryLock_);
    if (!sink_) return false;
    call(*sink_);
    return true;
  }

  bool Stopping(const bool& flag) {
    CriticalSectionLock::Guard guard(stateLock_);
    return flag;
  }

  void Request(bool& flag) {
    CriticalSectionLock::Guard guard(stateLock_);
    flag = true;
  }

  Ref<DataSource> source_;
  CriticalSectionLock deliveryLock_;  // held across every call of the sink
  Ref<TextSink> sink_;                // under deliveryLock_
  CriticalSectionLock stateLock_;
  bool readingStop_ = false;   // under stateLock_
  bool watchdogStop_ = false;  // under stateLock_
  std::unique_ptr<platform::Event> heartbeat_;
  std::unique_ptr<platform::Event> stopping_;
};

namespace {

std::unique_ptr<platform::Thread> StartPlatformThread(platform::ThreadBody body) {
  return platform::Thread::Start(std::move(body));
}

// Logs and ends a thread that did not stop in time.
void EndThread(std::unique_ptr<platform::Thread>& thread) {
  if (thread->Join(GpsReadingThreadImpl::kStopWaitMs) != platform::WaitResult::kSignaled) {
    Logger::Instance().Format(u"Terminating GPS thread handle: %x\n", thread->HandleValue());
    thread->Terminate();
  }
  thread.reset();
}

}  // namespace

GpsReadingThreadImpl::GpsReadingThreadImpl(Ref<DataSource> source, ThreadStarter starter)
    : source_(std::move(source)), starter_(starter ? std::move(starter) : StartPlatformThread) {}

GpsReadingThreadImpl::~GpsReadingThreadImpl() { Stop(); }

int GpsReadingThreadImpl::Start(TextSink* sink, CIMExceptionImpl* error) {
  if (run_) {
    SetError(error, kErrNone, u"", u"");
    return 0;
  }
  Ref<ReadingRun> run;
  // No events, or no memory: nothing was started, and the caller sees the
  // general failure either way.
  if (!CatchInto(error, [&] { run = new ReadingRun(source_, sink); })) {
    SetError(error, kErrNone);
    return 0;
  }
  reading_ = starter_([run] {
    run->ReadingLoop();
    return uint32_t{0};
  });
  if (!reading_) {
    SetError(error, kErrNone, u"", u"");
    return 0;
  }
  reading_->SetPriorityAboveNormal();
  watchdog_ = starter_([run] {
    run->WatchdogLoop();
    return uint32_t{0};
  });
  if (!watchdog_) {
    SetError(error, kErrNone, u"", u"");
    StopReadingThread(*run);
    run->DropSink();
    return 0;
  }
  run_ = std::move(run);
  running_ = 1;
  return 1;
}

int GpsReadingThreadImpl::StopReadingThread(ReadingRun& run) {
  run.RequestReadingStop();
  if (!reading_) return 0;
  EndThread(reading_);
  return 1;
}

void GpsReadingThreadImpl::StopWatchdogThread(ReadingRun& run) {
  run.RequestWatchdogStop();
  if (watchdog_) EndThread(watchdog_);
}

int GpsReadingThreadImpl::Stop() {
  const Ref<ReadingRun> run = std::move(run_);
  running_ = 0;
  if (!run) return 0;
  StopWatchdogThread(*run);
  int result = 0;
  uint32_t exitCode = 0;
  if (reading_) {
    const bool gotCode = reading_->GetExitCode(&exitCode);
    // A reading thread that already ended is neither waited for nor closed.
    result = gotCode && exitCode == platform::kStillActive ? StopReadingThread(*run) : gotCode;
  }
  // Only now, so the chunk a stopping thread has in hand still reaches the
  // sink; a thread given up on finds it gone.
  run->DropSink();
  return result;
}

}  // namespace kavo
