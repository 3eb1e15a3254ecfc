#include "nmea/sky_merger.h"

#include <algorithm>

#include "log/logger.h"
#include "nmea/field_conversions.h"

namespace kavo::nmea {
namespace {

constexpr size_t kMaxFields = 24;  // a GSV of four blocks and a signal id fits

// The sentence's comma-separated fields before its checksum, at most `max`
// of them kept; returns how many there are.
size_t SplitFields(WideView sentence, WideView* fields, size_t max) {
  size_t count = 0, start = 0;
  for (size_t i = 0; i <= sentence.size(); ++i) {
    const bool end = i == sentence.size() || sentence[i] == u'*';
    if (!end && sentence[i] != u',') continue;
    if (count < max) fields[count] = sentence.substr(start, i - start);
    ++count;
    start = i + 1;
    if (end) break;
  }
  return count;
}

}  // namespace

void SkyMerger::Reset() {
  cycleCount_ = 0;
  doneThisEpoch_ = doneLastEpoch_ = 0;
  published_ = false;
  std::fill(std::begin(usedCount_), std::end(usedCount_), 0);
  loggedInView_ = 0;
}

SkyMerger::Cycle* SkyMerger::FindCycle(WideView sentence, char16_t signal) {
  for (size_t i = 0; i < cycleCount_; ++i) {
    Cycle& cycle = cycles_[i];
    if (cycle.talker[0] == sentence[1] && cycle.talker[1] == sentence[2] && cycle.signal == signal) return &cycle;
  }
  if (cycleCount_ == kMaxCycles) return nullptr;  // a receiver this busy keeps its first cycles
  Cycle& cycle = cycles_[cycleCount_++];
  cycle.talker[0] = sentence[1];
  cycle.talker[1] = sentence[2];
  cycle.signal = signal;
  cycle.system = SystemOfTalker(sentence[1], sentence[2]);
  cycle.assembling = cycle.complete = 0;
  return &cycle;
}

void SkyMerger::AddGsv(WideView sentence, ReceiverState& state) {
  WideView fields[kMaxFields];
  const size_t count = std::min(SplitFields(sentence, fields, kMaxFields), kMaxFields);
  if (count < 4) return;
  size_t blockFields = count - 4;
  char16_t signal = 0;
  if (blockFields % 4 == 1) {  // NMEA 4.11: the signal id follows the blocks
    --blockFields;
    if (!fields[count - 1].empty()) signal = fields[count - 1][0];
  }
  Cycle* cycle = FindCycle(sentence, signal);
  if (!cycle) return;
  const int32_t messages = IntegerField(fields[1]);
  const int32_t message = IntegerField(fields[2]);
  if (message == 1) cycle->assembling = 0;
  for (size_t block = 4; block + 4 <= 4 + blockFields; block += 4) {
    if (fields[block].empty()) continue;  // a padded, empty block
    if (cycle->assembling == kMaxPerCycle) break;
    GPSSatellite& satellite = cycle->building[cycle->assembling++];
    satellite.PRN = TableNumber(cycle->system, IntegerField(fields[block]));
    satellite.Elevation = DegreesToRadians(IntegerField(fields[block + 1]));
    satellite.Azimuth = DegreesToRadians(IntegerField(fields[block + 2]));
    satellite.SNR = IntegerField(fields[block + 3]);
  }
  if (message != messages) return;

  const uint32_t bit = 1u << (cycle - cycles_);
  if (doneThisEpoch_ & bit) {  // this cycle again: a new epoch begins
    if (!published_) Publish(state);
    doneLastEpoch_ = doneThisEpoch_;
    doneThisEpoch_ = 0;
    published_ = false;
  }
  std::copy(cycle->building, cycle->building + cycle->assembling, cycle->entries);
  cycle->complete = cycle->assembling;
  cycle->assembling = 0;
  doneThisEpoch_ |= bit;
  if ((doneThisEpoch_ & doneLastEpoch_) == doneLastEpoch_) Publish(state);
}

void SkyMerger::AddGsa(WideView sentence) {
  WideView fields[kMaxFields];
  const size_t count = std::min(SplitFields(sentence, fields, kMaxFields), kMaxFields);
  if (count < 15) return;
  GnssSystem system = SystemOfTalker(sentence[1], sentence[2]);
  if (count >= 19 && !fields[18].empty()) system = SystemOfId(IntegerField(fields[18]));
  int32_t sent[kMaxUsed];
  size_t used = 0;
  for (size_t i = 3; i < 15; ++i)
    if (const int32_t number = IntegerField(fields[i]); number > 0) sent[used++] = number;
  // A combined GSA without a system id: its numbers tell the system.
  if (system == GnssSystem::kOther && used > 0) system = SystemOfNumber(sent[0]);
  const size_t index = static_cast<size_t>(system);
  for (size_t i = 0; i < used; ++i) used_[index][i] = TableNumber(system, sent[i]);
  usedCount_[index] = used;
}

bool SkyMerger::IsUsed(int32_t number) const {
  for (const GnssSystem system : {SystemOfNumber(number), GnssSystem::kOther}) {
    const size_t index = static_cast<size_t>(system);
    const int32_t* begin = used_[index];
    if (std::find(begin, begin + usedCount_[index], number) != begin + usedCount_[index]) return true;
  }
  return false;
}

void SkyMerger::Publish(ReceiverState& state) {
  published_ = true;
  size_t count = 0;
  for (size_t i = 0; i < cycleCount_; ++i) {
    if (!(doneThisEpoch_ & (1u << i))) continue;
    const Cycle& cycle = cycles_[i];
    for (size_t e = 0; e < cycle.complete && count < kMaxMerged; ++e) merged_[count++] = {cycle.entries[e], false};
  }
  // One satellite on several signals: its strongest comes first, and stays.
  std::sort(merged_, merged_ + count, [](const Merged& a, const Merged& b) {
    if (a.satellite.PRN != b.satellite.PRN) return a.satellite.PRN < b.satellite.PRN;
    return a.satellite.SNR > b.satellite.SNR;
  });
  count = static_cast<size_t>(
      std::unique(merged_, merged_ + count,
                  [](const Merged& a, const Merged& b) { return a.satellite.PRN == b.satellite.PRN; }) -
      merged_);
  const int32_t inView = static_cast<int32_t>(count);
  if (count > GPS_MAX_SATELLITES) {
    // Those the solution uses first, then the strongest.
    for (size_t i = 0; i < count; ++i) merged_[i].used = IsUsed(merged_[i].satellite.PRN);
    const auto better = [](const Merged& a, const Merged& b) {
      if (a.used != b.used) return a.used;
      if (a.satellite.SNR != b.satellite.SNR) return a.satellite.SNR > b.satellite.SNR;
      return a.satellite.PRN < b.satellite.PRN;
    };
    std::partial_sort(merged_, merged_ + GPS_MAX_SATELLITES, merged_ + count, better);
    count = GPS_MAX_SATELLITES;
    std::sort(merged_, merged_ + count,
              [](const Merged& a, const Merged& b) { return a.satellite.PRN < b.satellite.PRN; });
    if (inView != loggedInView_)
      Logger::Instance().Format(u"Satellites in view: %d, %d kept\n", inView, GPS_MAX_SATELLITES);
  }
  loggedInView_ = inView;
  state.StartSatelliteCycle();
  for (size_t i = 0; i < count; ++i) state.AddSatellite(merged_[i].satellite);
  state.CompleteSatelliteCycle();
}

}  // namespace kavo::nmea
