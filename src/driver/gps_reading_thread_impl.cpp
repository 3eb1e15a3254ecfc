#include "driver/gps_reading_thread_impl.h"

#include "log/logger.h"

namespace kavo {

GpsReadingThreadImpl::GpsReadingThreadImpl(Ref<DataSource> source)
    : source_(std::move(source)), heartbeat_(platform::Event::Create(false, false)) {
  if (!heartbeat_) Raise(nullptr);
}

int GpsReadingThreadImpl::Start(TextSink* sink, CIMExceptionImpl* error) {
  {
    CriticalSectionLock::Guard guard(sinkLock_);
    sink_ = sink;
  }
  {
    CriticalSectionLock::Guard guard(readingLock_);
    readingStop_ = 0;
  }
  // Each thread holds a reference to this object (and through it to the
  // source), so a thread abandoned by Stop never uses freed memory.
  AddRef();
  reading_ = platform::Thread::Start(&ReadingProcedure, this);
  if (!reading_) {
    Release();
    SetError(error, kErrNone, u"", u"");
    return 0;
  }
  reading_->SetPriorityAboveNormal();

  {
    CriticalSectionLock::Guard guard(watchdogLock_);
    watchdogStop_ = 0;
  }
  AddRef();
  watchdog_ = platform::Thread::Start(&WatchdogProcedure, this);
  if (!watchdog_) {
    Release();
    SetError(error, kErrNone, u"", u"");
    StopReadingThread();
    return 0;
  }
  running_ = 1;
  return 1;
}

uint32_t GpsReadingThreadImpl::ReadingProcedure(void* self) {
  auto* thread = static_cast<GpsReadingThreadImpl*>(self);
  thread->ReadingLoop();
  thread->Release();
  return 0;
}

uint32_t GpsReadingThreadImpl::WatchdogProcedure(void* self) {
  auto* thread = static_cast<GpsReadingThreadImpl*>(self);
  thread->WatchdogLoop();
  thread->Release();
  return 0;
}

void GpsReadingThreadImpl::ReadingLoop() {
  LogScope scope(u"GPS Thread started");
  std::unique_ptr<char16_t[]> buffer(new char16_t[kChunkCapacity]);
  while (!ReadingStopRequested()) ReadingStep(buffer.get());
}

void GpsReadingThreadImpl::ReadingStep(char16_t* buffer) {
  uint32_t count = 0;
  CIMExceptionImpl error;
  bool failed = false;
  try {
    if (!source_->Read(buffer, kChunkCapacity, &count, &error)) Raise(&error);
  } catch (const CIMExceptionEx& raised) {
    error = raised;
    failed = true;
  } catch (...) {
    SetError(&error, kErrNone);
    failed = true;
  }
  heartbeat_->Set();

  const Ref<TextSink> sink = CurrentSink();
  if (!sink) return;
  if (failed) {
    sink->OnError(error);
    platform::Sleep(kRetryPauseMs);
  } else if (count > 0) {
    sink->OnText(buffer, count);
  } else {
    sink->OnNoData();
    platform::Sleep(kRetryPauseMs);
  }
}

void GpsReadingThreadImpl::WatchdogLoop() {
  while (!WatchdogStopRequested()) {
    if (heartbeat_->Wait(kWatchdogMs) == platform::WaitResult::kSignaled) continue;
    if (const Ref<TextSink> sink = CurrentSink()) sink->OnNoData();
  }
}

bool GpsReadingThreadImpl::ReadingStopRequested() {
  CriticalSectionLock::Guard guard(readingLock_);
  return readingStop_ != 0;
}

bool GpsReadingThreadImpl::WatchdogStopRequested() {
  CriticalSectionLock::Guard guard(watchdogLock_);
  return watchdogStop_ != 0;
}

Ref<TextSink> GpsReadingThreadImpl::CurrentSink() {
  CriticalSectionLock::Guard guard(sinkLock_);
  return sink_;
}

int GpsReadingThreadImpl::StopReadingThread() {
  {
    CriticalSectionLock::Guard guard(readingLock_);
    readingStop_ = 1;
  }
  if (!reading_) return 0;
  if (reading_->Join(kStopWaitMs) != platform::WaitResult::kSignaled) {
    Logger::Instance().Format(u"Terminating GPS thread handle: %x\n", reading_->HandleValue());
    reading_->Terminate();
  }
  reading_.reset();
  return 1;
}

void GpsReadingThreadImpl::StopWatchdogThread() {
  {
    CriticalSectionLock::Guard guard(watchdogLock_);
    watchdogStop_ = 1;
  }
  heartbeat_->Set();  // wake the watchdog at once
  if (!watchdog_) return;
  if (watchdog_->Join(kStopWaitMs) != platform::WaitResult::kSignaled) {
    Logger::Instance().Format(u"Terminating GPS thread handle: %x\n", watchdog_->HandleValue());
    watchdog_->Terminate();
  }
  watchdog_.reset();
}

int GpsReadingThreadImpl::Stop() {
  // The sink goes first: a stopping reader has nobody to hand text to, and
  // a step without a sink takes no pause, so the reading thread ends as
  // soon as its read returns instead of one pause later.
  {
    CriticalSectionLock::Guard guard(sinkLock_);
    sink_.reset();
  }
  StopWatchdogThread();
  int result = 0;
  uint32_t exitCode = 0;
  if (reading_) {
    const bool gotCode = reading_->GetExitCode(&exitCode);
    // A reading thread that already ended is neither waited for nor closed.
    result = gotCode && exitCode == platform::kStillActive ? StopReadingThread() : gotCode;
  }
  running_ = 0;
  return result;
}

}  // namespace kavo
