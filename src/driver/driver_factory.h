// The two ways a driver is made: on a serial port, or on a recorded file.
// Both raise the recorded error on failure, leaving nothing open.
#pragma once

#include <cstdint>

#include "KavoMobileGPS.h"
#include "driver/driver_callbacks.h"
#include "driver/gps_driver.h"
#include "nmea/receiver_options.h"
#include "sources/com_port_info.h"
#include "support/wide_string.h"

namespace kavo {

Ref<GpsDriver> CreateDriverFromPort(const COMPortInfo& port, const DriverCallbacks& callbacks);
Ref<GpsDriver> CreateDriverFromFile(const WideString& path, uint32_t intervalMs, bool repeat,
                                    const DriverCallbacks& callbacks);

// The step both share: a receiver over the source, and a driver over both.
Ref<GpsDriver> BuildDriver(Ref<DataSource> source, Ref<PlaybackControl> playback, const DriverCallbacks& callbacks);
Ref<GpsDriver> BuildDriver(Ref<DataSource> source, Ref<PlaybackControl> playback, const DriverCallbacks& callbacks,
                           const nmea::ReceiverOptions& options);

}  // namespace kavo
