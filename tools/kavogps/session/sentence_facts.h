// What one NMEA sentence says about the fix, read from its own fields by a
// reader for its type, as the epoch assembler needs it.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "KavoMobileGPS.h"
#include "civil_calendar.h"

namespace kavo::cli {

// Up to N items kept in place: a sentence holds a handful of each, and it
// is read for every sentence, so its facts take nothing from the heap.
template <typename T, size_t N>
class FewOf {
 public:
  void push_back(const T& item) {
    if (size_ < N) items_[size_++] = item;
  }
  size_t size() const { return size_; }
  const T* begin() const { return items_.data(); }
  const T* end() const { return items_.data() + size_; }

 private:
  std::array<T, N> items_{};
  size_t size_ = 0;
};

// What one sentence says about the fix, read from its own fields: the
// library's validity flags only ever grow, so they cannot tell what this
// epoch left empty.
struct SentenceFacts {
  std::string key;             // "GPGGA", "GPGSV1": a second one starts a new epoch
  std::string kind;            // the key, but one kind for a satellite cycle's last message
  std::string time;            // the fix time field, empty when the sentence has none
  uint32_t said = 0;           // GPS_VALID_* flags this sentence has fields for
  uint32_t known = 0;          // those it gave a value
  std::optional<bool> fix;     // whether it reports a fix, when it says
  std::optional<int> quality;  // GGA's fix quality
  bool sky = false;            // satellites in view or in use
  // RMC's date, when it gave a valid one: the record may not hold it yet.
  std::optional<calendar::CivilTime> date;
  // The values it gave, in the units of the library's record (degrees,
  // miles per hour), by GPS_VALID_* flag: a record that holds other values
  // has not taken this sentence in yet.
  FewOf<std::pair<uint32_t, double>, 6> values;
  FewOf<GPSSatellite, 9> satellites;  // a satellite message's, elevation and azimuth in degrees
  bool cycleEnd = false;              // the last message of its cycle
  bool hasUsed = false;               // a GSA: `used` names the satellites the fix uses
  FewOf<int32_t, 12> used;
};
SentenceFacts ReadSentenceFacts(const std::string& sentence);

// A field's leading number, 0 without one, as the readers read it.
double FieldNumber(std::string_view field);

}  // namespace kavo::cli
