#include "nmea/receiver_state.h"

#include <cstring>

#include "support/ole_date.h"

namespace kavo::nmea {

ReceiverState::ReceiverState() {
  std::memset(&location_, 0, sizeof location_);
  std::memset(&satellites_, 0, sizeof satellites_);
  std::memset(&working_, 0, sizeof working_);
}

void ReceiverState::Reset() {
  status_ = GPS_STATUS_RECEIVING;
  mask_ = 0;
  sentencesSeen_ = false;
  const double now = OleDateFromLocalTime(platform::LocalNow());
  std::memset(&location_, 0, sizeof location_);
  location_.Time = now;
  location_.TimeType = GPS_TIME_LOCAL_CLOCK;
  std::memset(&satellites_, 0, sizeof satellites_);
  satellites_.Time = now;
  satellites_.TimeType = GPS_TIME_LOCAL_CLOCK;
  working_ = satellites_;
}

void ReceiverState::BeginChunk() {
  mask_ = 0;
  sentencesSeen_ = false;
  inChunk_ = true;
  haveLocalTime_ = false;
}

platform::LocalTime ReceiverState::LocalNow() {
  if (inChunk_ && haveLocalTime_) return localTime_;
  localTime_ = platform::LocalNow();
  haveLocalTime_ = inChunk_;
  return localTime_;
}

bool ReceiverState::UpdateTogether(std::initializer_list<FieldValue> values, uint32_t maskBit) {
  bool differs = false;
  for (const FieldValue& v : values) differs = differs || location_.*v.field != v.value;
  if (!differs) return false;
  for (const FieldValue& v : values) location_.*v.field = v.value;
  mask_ |= maskBit;
  return true;
}

void ReceiverState::SetTime(const ReceiverTime& time) {
  if (time.type == GPS_TIME_OF_DAY && location_.TimeType == GPS_TIME_FULL) {
    DateTimeParts stored, clock;
    double combined = 0.0;
    if (OleDateToParts(location_.Time, &stored) && OleDateToParts(time.value, &clock)) {
      stored.hour = clock.hour;
      stored.minute = clock.minute;
      stored.second = clock.second;
      if (OleDateFromParts(stored, &combined)) {
        location_.Time = combined;
        return;
      }
    }
  }
  location_.Time = time.value;
  location_.TimeType = time.type;
}

bool ReceiverState::AddSatellite(const GPSSatellite& satellite) {
  if (working_.Count >= GPS_MAX_SATELLITES) return false;
  working_.Satellites[working_.Count++] = satellite;
  return true;
}

void ReceiverState::CompleteSatelliteCycle() {
  working_.Time = OleDateFromLocalTime(LocalNow());
  working_.TimeType = GPS_TIME_LOCAL_CLOCK;
  if (working_.Count != satellites_.Count) {
    satellites_ = working_;
    working_.Count = 0;
    mask_ |= GPS_CHANGED_SATELLITES;
    return;
  }
  // Same number of satellites: refresh the entries that changed, and keep
  // the table's time, so an unchanged sky raises no notification.
  for (int32_t i = 0; i < working_.Count; ++i) {
    const GPSSatellite& fresh = working_.Satellites[i];
    GPSSatellite& published = satellites_.Satellites[i];
    if (published.PRN != fresh.PRN || published.SNR != fresh.SNR || published.Azimuth != fresh.Azimuth ||
        published.Elevation != fresh.Elevation) {
      published = fresh;
      mask_ |= GPS_CHANGED_SATELLITES;
    }
  }
  working_.Count = 0;
}

}  // namespace kavo::nmea
