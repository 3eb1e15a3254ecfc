// The GPSSatellitesState_ functions: reads of a private satellites snapshot.
#include <cstring>

#include "KavoMobileGPS.h"
#include "api/frames.h"
#include "api/handles.h"

using kavo::api::AccessorFrame;

extern "C" {

KAVOGPS_API int32_t GPSSatellitesState_GetVisibleSatellitesCount(GPSSatellitesStateHandle state) {
  return AccessorFrame<int32_t>(state != nullptr, 0, [&] { return kavo::api::Snapshot(state)->Count; });
}

KAVOGPS_API uint8_t GPSSatellitesState_GetSatellite(GPSSatellitesStateHandle state, int32_t index,
                                                    GPSSatellite* satellite) {
  // Checked as unsigned against the count and as signed, so -1 fails twice.
  const bool ok = state && satellite &&
                  static_cast<uint32_t>(index) < static_cast<uint32_t>(kavo::api::Snapshot(state)->Count) &&
                  index >= 0 && index < GPS_MAX_SATELLITES;
  return AccessorFrame<uint8_t>(ok, 0, [&] {
    std::memcpy(satellite, &kavo::api::Snapshot(state)->Satellites[index], sizeof *satellite);
    return uint8_t{1};
  });
}

// The output pointer is checked too: a crash is never the better answer.
KAVOGPS_API uint8_t GPSSatellitesState_GetTime(GPSSatellitesStateHandle state, double* time) {
  return AccessorFrame<uint8_t>(state != nullptr && time != nullptr, 0, [&] {
    std::memcpy(time, &kavo::api::Snapshot(state)->Time, sizeof *time);
    return uint8_t{1};
  });
}

KAVOGPS_API int32_t GPSSatellitesState_GetTimeType(GPSSatellitesStateHandle state) {
  return AccessorFrame<int32_t>(state != nullptr, GPS_TIME_LOCAL_CLOCK,
                                [&] { return kavo::api::Snapshot(state)->TimeType; });
}

KAVOGPS_API void GPSSatellitesState_Release(GPSSatellitesStateHandle state) {
  AccessorFrame<int>(state != nullptr, 0, [&] {
    delete state;  // as allocated: the record type has no virtual destructor
    return 0;
  });
}

}  // extern "C"
