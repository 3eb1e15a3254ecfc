// Shared pieces of the NMEA tests: a store on a fixed local clock, and
// worked expected values.
#pragma once

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "common/log_capture.h"
#include "common/test_clock.h"
#include "nmea/receiver_state_store.h"
#include "support/wide_string.h"

namespace kavo::test {

inline WideString W(const std::string& text) { return FromUtf8(text); }

// Worked coordinates (ddmm.mmmm: whole degrees, then minutes), each the
// double nearest to its exact value, which the conversion must give.
constexpr double k4807_038 = 48.1173;             // 48 + 7.038 / 60
constexpr double k1131_000 = 11.516666666666667;  // 11 + 31 / 60
constexpr double k4900_000 = 49.0;                // 49 + 0 / 60

// An OLE Automation date after 1899 from its day number and time of day.
inline double OleDate(int dayNumber, int hour, int minute, int second) {
  return dayNumber + (hour * 3600 + minute * 60 + second) * 1.1574074074074073e-5;
}
constexpr int kToday = 46348;  // 22 November 2026, the test clock's date

inline bool SameBits(const void* a, const void* b, size_t size) { return std::memcmp(a, b, size) == 0; }

class StoreTest : public testing::Test {
 protected:
  void SetUp() override {
    clock_.SetLocalTime({2026, 11, 0, 22, 9, 0, 0, 0});
    store_.Reset();
  }

  // Feeds the lines, each ended by CR LF, as one chunk.
  int Feed(const std::vector<std::string>& lines) {
    std::string text;
    for (const std::string& line : lines) text += line + "\r\n";
    return store_.ProcessChunk(W(text));
  }

  std::vector<WideString> Recognised() const {
    std::vector<WideString> texts;
    const nmea::SentenceList& list = store_.RecognisedSentences();
    for (size_t i = 0; i < list.Count(); ++i) texts.emplace_back(list[i]);
    return texts;
  }

  const GPSLocation& Location() const { return store_.Location(); }
  const GPSSatellites& Satellites() const { return store_.Satellites(); }

  ManualClock clock_;
  LogCapture log_;
  nmea::ReceiverStateStore store_;
};

}  // namespace kavo::test
