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
  std::unique_ptr<platform::Event> heartbeat_;
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
