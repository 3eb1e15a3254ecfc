// The receiver as its drivers see it: started and stopped, fed text as a
// sink, queried for the latest records, and listened to.
#pragma once

#include <cstdint>

#include "KavoMobileGPS.h"
#include "nmea/receiver_listener.h"
#include "sources/text_sink.h"
#include "support/error.h"
#include "support/ref_counted.h"

namespace kavo {

class Receiver : public TextSink {
 public:
  static constexpr uint32_t kDefaultNotificationIntervalMs = 100;
  static constexpr uint32_t kDefaultTimeoutIntervalMs = 3000;

  virtual int Start(CIMExceptionImpl* error) = 0;
  virtual void Stop() = 0;
  // What the reading thread of the run in progress feeds; null when
  // stopped. Once the run is stopped it passes nothing on.
  virtual Ref<TextSink> RunSink() = 0;
  virtual int32_t GetStatus() = 0;
  virtual int GetLocation(GPSLocation* location, CIMExceptionImpl* error) = 0;
  virtual int GetSatellitesInfo(GPSSatellites* satellites, CIMExceptionImpl* error) = 0;
  virtual int SetNotificationInterval(uint32_t ms) = 0;
  virtual uint32_t GetNotificationInterval() = 0;
  virtual int SetTimeoutInterval(uint32_t ms, CIMExceptionImpl* error) = 0;
  virtual uint32_t GetTimeoutInterval() = 0;
  virtual void AddListener(ListenerEntry* entry) = 0;
};

}  // namespace kavo
