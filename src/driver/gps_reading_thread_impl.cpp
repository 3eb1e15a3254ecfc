#include "driver/gps_reading_thread_impl.h"

#include <atomic>

#include "log/logger.h"
#include "support/critical_section_lock.h"

namespace kavo {

// What the two threads of one Start share. Its threads hold it by counted
// reference: a thread abandoned by Stop keeps it, and the source and sink
// it holds, alive until it returns, and only ever sees this run's stop
// state.
class ReadingRun : public RefCounted {
 public:
  // The chunk buffer is made here, on the thread that starts the run: the
  // reading thread then allocates nothing of its own, and the C library
  // gives it no memory arena of its own.
  ReadingRun(Ref<DataSource> source, TextSink* sink)
      : source_(std::move(source)),
        sink_(sink),
        buffer_(new char16_t[GpsReadingThreadImpl::kChunkCapacity]),
        watchdogWake_(platform::Event::Create(true, false)),
        stopping_(platform::Event::Create(true, false)) {
    if (!watchdogWake_ || !stopping_) Raise(nullptr);
  }

  void ReadingLoop() {
    LogScope scope(u"GPS Thread started");
    while (!Stopping(readingStop_)) ReadingStep(buffer_.get());
  }

  // Reports when no read completed for the watchdog's period. Reads only
  // count themselves (heartbeats), waking nobody: the watchdog sleeps until
  // the period has passed since the last one it knows of, and looks again.
  void WatchdogLoop() {
    uint32_t known = heartbeats_.load();
    uint32_t waitMs = GpsReadingThreadImpl::kWatchdogMs;
    while (!Stopping(watchdogStop_)) {
      if (watchdogWake_->Wait(waitMs) == platform::WaitResult::kSignaled) continue;
      const uint32_t beats = heartbeats_.load();
      waitMs = GpsReadingThreadImpl::kWatchdogMs;
      if (beats != known) {
        // Reads completed meanwhile: the period runs from the last one.
        known = beats;
        const uint32_t since = platform::TickCount() - lastHeartbeat_.load();
        if (since < GpsReadingThreadImpl::kWatchdogMs) waitMs -= since;
        continue;
      }
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
    watchdogWake_->Set();  // wake the watchdog at once
  }

  // Once the threads ended or were given up on: nothing reaches the sink
  // any more. A call already under way goes on; it holds its own reference.
  void DropSink() {
    CriticalSectionLock::Guard guard(stateLock_);
    sink_.reset();
  }

  // Only a reading thread blocked in its source's read may be killed: it
  // holds none of the library's locks there and runs no application code.
  bool InRead() const { return inRead_.load(); }

 private:
  void ReadingStep(char16_t* buffer) {
    uint32_t count = 0;
    CIMExceptionImpl error;
    inRead_ = true;
    const bool failed = !CatchInto(&error, [&] {
      CheckOrRaise(source_->Read(buffer, GpsReadingThreadImpl::kChunkCapacity, &count, &error), &error);
    });
    inRead_ = false;
    lastHeartbeat_ = platform::TickCount();
    ++heartbeats_;

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

  // No lock is held during the call: the sink may call back into the
  // driver, stop it, or block, and a stop must not wait on it for longer
  // than its bound.
  template <class Call>
  bool Deliver(Call call) {
    Ref<TextSink> sink;
    {
      CriticalSectionLock::Guard guard(stateLock_);
      sink = sink_;
    }
    if (!sink) return false;
    call(*sink);
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
  CriticalSectionLock stateLock_;
  Ref<TextSink> sink_;         // under stateLock_
  bool readingStop_ = false;   // under stateLock_
  bool watchdogStop_ = false;  // under stateLock_
  std::atomic<bool> inRead_{false};
  std::unique_ptr<char16_t[]> buffer_;
  std::atomic<uint32_t> heartbeats_{0};     // reads completed, whatever their outcome
  std::atomic<uint32_t> lastHeartbeat_{0};  // the tick count of the last
  std::unique_ptr<platform::Event> watchdogWake_;
  std::unique_ptr<platform::Event> stopping_;
};

namespace {

std::unique_ptr<platform::Thread> StartPlatformThread(platform::ThreadBody body) {
  return platform::Thread::Start(std::move(body));
}

// Waits for a thread to end, up to the bound; one that did not is logged
// and ended by force where `killable` allows, else given up on. A stop
// made on the thread itself (from a callback) does not wait for it: the
// thread ends once the callback returns.
void EndThread(std::unique_ptr<platform::Thread>& thread, const std::function<bool()>& killable) {
  if (!thread->IsCurrent() && thread->Join(GpsReadingThreadImpl::kStopWaitMs) != platform::WaitResult::kSignaled) {
    Logger::Instance().Format(u"Terminating GPS thread handle: %x\n", thread->HandleValue());
    thread->Terminate(killable);
  }
  thread.reset();
}

}  // namespace

GpsReadingThreadImpl::GpsReadingThreadImpl(Ref<DataSource> source, ThreadStarter starter)
    : source_(std::move(source)), starter_(starter ? std::move(starter) : StartPlatformThread) {}

GpsReadingThreadImpl::~GpsReadingThreadImpl() { Stop(); }

int GpsReadingThreadImpl::Start(TextSink* sink, CIMExceptionImpl* error) {
  if (run_) {
    SetError(error, kErrGeneralFailure, u"", u"");
    return 0;
  }
  // A cancel left over from the last stop must not cut the first read short.
  source_->ResetCancelRead();
  Ref<ReadingRun> run;
  // No events, or no memory: nothing was started, and the caller sees the
  // general failure either way.
  if (!CatchInto(error, [&] { run = new ReadingRun(source_, sink); })) {
    SetError(error, kErrGeneralFailure);
    return 0;
  }
  reading_ = starter_([run] {
    run->ReadingLoop();
    return uint32_t{0};
  });
  if (!reading_) {
    SetError(error, kErrGeneralFailure, u"", u"");
    return 0;
  }
  reading_->SetPriorityAboveNormal();
  watchdog_ = starter_([run] {
    run->WatchdogLoop();
    return uint32_t{0};
  });
  if (!watchdog_) {
    SetError(error, kErrGeneralFailure, u"", u"");
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
  EndThread(reading_, [&run] { return run.InRead(); });
  return 1;
}

void GpsReadingThreadImpl::StopWatchdogThread(ReadingRun& run) {
  run.RequestWatchdogStop();
  // Away from its wait the watchdog is in the sink: never killed there.
  if (watchdog_) EndThread(watchdog_, nullptr);
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
