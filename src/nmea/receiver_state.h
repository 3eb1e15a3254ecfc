// The latest fix and satellite table decoded from the receiver, as the
// records callers receive byte for byte, with the rules by which parsers
// write into them: a value is stored only when it differs from the stored
// one, and only then is its bit set in the update mask.
#pragma once

#include <cstdint>
#include <initializer_list>

#include "KavoMobileGPS.h"
#include "nmea/field_conversions.h"
#include "platform/platform.h"

namespace kavo::nmea {

class ReceiverState {
 public:
  ReceiverState();

  // All zero, times from the local clock (GPS_TIME_LOCAL_CLOCK), status
  // receiving, mask and sentences-seen 0.
  void Reset();

  const GPSLocation& Location() const { return location_; }
  const GPSSatellites& Satellites() const { return satellites_; }
  const GPSSatellites& WorkingSatellites() const { return working_; }
  int32_t Status() const { return status_; }
  void SetStatus(int32_t status) { status_ = status; }
  uint32_t UpdateMask() const { return mask_; }
  bool SentencesSeen() const { return sentencesSeen_; }
  void SetSentencesSeen() { sentencesSeen_ = true; }

  // Brackets the parsing of one chunk: clears the mask and the
  // sentences-seen flag, and reads the local
  // clock at most once for all the chunk's sentences, which arrived together.
  void BeginChunk();
  void EndChunk() { inChunk_ = false; }
  platform::LocalTime LocalNow();

  // Compare-before-store on the location record; true when stored.
  template <class T>
  bool Update(T GPSLocation::*field, T value, uint32_t maskBit) {
    if (!(location_.*field != value)) return false;
    location_.*field = value;
    mask_ |= maskBit;
    return true;
  }
  // Values written together: all of them when any differs.
  struct FieldValue {
    double GPSLocation::*field;
    double value;
  };
  bool UpdateTogether(std::initializer_list<FieldValue> values, uint32_t maskBit);
  void AddValidFlags(uint32_t flags) { location_.ValidFlags |= flags; }
  // A time of day after a full date and time keeps that date.
  void SetTime(const ReceiverTime& time);

  // Satellite cycle assembly.
  void StartSatelliteCycle() { working_.Count = 0; }
  // False when the working table is full.
  bool AddSatellite(const GPSSatellite& satellite);
  // The last message of a cycle arrived: publish what differs.
  void CompleteSatelliteCycle();

 private:
  GPSLocation location_;
  GPSSatellites satellites_;
  GPSSatellites working_;
  int32_t status_ = GPS_STATUS_RECEIVING;
  uint32_t mask_ = 0;
  bool sentencesSeen_ = false;
  bool inChunk_ = false;
  bool haveLocalTime_ = false;
  platform::LocalTime localTime_;
};

}  // namespace kavo::nmea
