// What a GPSDriver handle refers to: a receiver, the reading thread that
// feeds it from the source, and the playback control of that source, with
// the caller's callbacks.
#pragma once

#include <cstdint>

#include "KavoMobileGPS.h"
#include "driver/driver_callbacks.h"
#include "driver/gps_reading_thread.h"
#include "nmea/receiver.h"
#include "sources/data_source.h"
#include "support/critical_section_lock.h"
#include "support/ref_counted.h"

namespace kavo {

class GpsDriver : public virtual RefCounted, private ReceiverListener {
 public:
  GpsDriver(Ref<Receiver> receiver, Ref<GpsReadingThread> readingThread, Ref<PlaybackControl> playback);

  // Stores the callbacks and starts listening.
  void Initialise(const DriverCallbacks& callbacks);
  int Start(CIMExceptionImpl* error);
  // Bounded whatever a callback does, and callable from a callback: then
  // it does not wait for the thread it runs on. No callback starts after
  // it returned.
  int Stop();
  // The handle is being released: the run ends now, and the driver stops
  // listening, though a callback under way may still hold the driver
  // until it returns.
  void Detach();

  int32_t GetStatus() { return receiver_->GetStatus(); }
  int GetLocation(GPSLocation* location, CIMExceptionImpl* error) { return receiver_->GetLocation(location, error); }
  int GetSatellitesInfo(GPSSatellites* satellites, CIMExceptionImpl* error) {
    return receiver_->GetSatellitesInfo(satellites, error);
  }
  int SetTimeoutInterval(uint32_t ms, CIMExceptionImpl* error) { return receiver_->SetTimeoutInterval(ms, error); }
  uint32_t GetTimeoutInterval() { return receiver_->GetTimeoutInterval(); }

 private:
  ~GpsDriver() override;

  void OnDataChanged(uint32_t mask, const GPSLocation& location) override { callbacks_.Data(mask, location); }
  void OnStatusChanged(int32_t status) override { callbacks_.Status(status); }
  void OnSentence(const char16_t* text) override { callbacks_.Sentence(text); }

  int32_t running_ = 0;
  DriverCallbacks callbacks_;
  Ref<Receiver> receiver_;
  Ref<GpsReadingThread> readingThread_;
  Ref<PlaybackControl> playback_;
  CriticalSectionLock startStopLock_;  // Start, Stop and the end of the driver
  ListenerEntry entry_;
};

}  // namespace kavo
