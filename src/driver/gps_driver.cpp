#include "driver/gps_driver.h"

#include "platform/platform.h"

namespace kavo {

GpsDriver::GpsDriver(Ref<Receiver> receiver, Ref<GpsReadingThread> readingThread, Ref<PlaybackControl> playback)
    : receiver_(std::move(receiver)),
      readingThread_(std::move(readingThread)),
      playback_(std::move(playback)),
      entry_(this) {}

GpsDriver::~GpsDriver() {
  {
    CriticalSectionLock::Guard guard(startStopLock_);
    if (running_) {
      readingThread_->Stop();
      receiver_->Stop();
    }
  }
  entry_.Unlink();
  playback_.reset();
  readingThread_.reset();
  receiver_.reset();
}

void GpsDriver::Initialise(const DriverCallbacks& callbacks) {
  callbacks_ = callbacks;
  receiver_->AddListener(&entry_);
  running_ = 1;
}

int GpsDriver::Start(CIMExceptionImpl* error) {
  CriticalSectionLock::Guard guard(startStopLock_);
  if (!playback_->Resume(error)) {
    if (error) error->SetCode(kErrNotSupported);
    return 0;
  }
  // A receiver already started refuses, so a second Start never starts a
  // second reading thread.
  if (receiver_->Start(error)) {
    if (readingThread_->Start(receiver_->RunSink().get(), error)) {
      running_ = 1;
      return 1;
    }
    receiver_->Stop();
  }
  playback_->Pause();
  return 0;
}

int GpsDriver::Stop() {
  CriticalSectionLock::Guard guard(startStopLock_);
  // The threads first: the receiver is cleared only once nothing feeds it.
  readingThread_->Stop();
  receiver_->Stop();
  playback_->Pause();
  running_ = 0;
  return 1;
}

void GpsDriver::Detach() {
  {
    CriticalSectionLock::Guard guard(startStopLock_);
    if (running_) {
      readingThread_->Stop();
      receiver_->Stop();
      running_ = 0;
    }
  }
  entry_.Unlink();
}

}  // namespace kavo
