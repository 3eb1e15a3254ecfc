#include "nmea/sky_merger.h"

#include <algorithm>
#include <cstring>

#include "log/logger.h"
#include "nmea/field_conversions.h"
#include "nmea/unit_search.h"

namespace kavo::nmea {
namespace {

constexpr size_t kMaxFields = 24;  // a GSV of four blocks and a signal id fits

// The sentence's comma-separated fields before its checksum, at most
// kMaxFields of them, kept as the offsets where they end.
class Fields {
 public:
  explicit Fields(WideView sentence) : text_(sentence) {
    const char16_t* base = sentence.data();
    const char16_t* star = FindUnit(base, base + sentence.size(), u'*');
    count_ = FindSeparators(base, base, star, ends_, kMaxFields);                   // commas only, before the star
    if (count_ < kMaxFields) ends_[count_++] = static_cast<uint32_t>(star - base);  // the last field
  }
  size_t Count() const { return count_; }
  WideView operator[](size_t index) const {
    const size_t start = index ? ends_[index - 1] + 1 : 0;
    return WideView(text_.data() + start, ends_[index] - start);
  }

 private:
  WideView text_;
  uint32_t ends_[kMaxFields];
  size_t count_ = 0;
};

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
  const Fields fields(sentence);
  const size_t count = fields.Count();
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
  const Fields fields(sentence);
  const size_t count = fields.Count();
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

namespace {

// By number, and for one satellite on several signals the strongest first.
bool Precedes(const GPSSatellite& a, const GPSSatellite& b) {
  if (a.PRN != b.PRN) return a.PRN < b.PRN;
  return a.SNR > b.SNR;
}

}  // namespace

// The satellites of the epoch's cycles, one cycle after the other; the
// places where each cycle's run begins go to `bounds`. True when every run
// is in strict order, as cycles usually list their satellites.
bool SkyMerger::Gather(size_t* count, size_t* bounds, size_t* runs) {
  bool ordered = true;
  *count = *runs = 0;
  for (size_t i = 0; i < cycleCount_; ++i) {
    if (!(doneThisEpoch_ & (1u << i))) continue;
    const Cycle& cycle = cycles_[i];
    bounds[(*runs)++] = *count;
    for (size_t e = 0; e < cycle.complete && *count < kMaxMerged; ++e) {
      if (e > 0 && !Precedes(cycle.entries[e - 1], cycle.entries[e])) ordered = false;
      merged_[(*count)++] = {cycle.entries[e], false};
    }
  }
  bounds[*runs] = *count;
  return ordered;
}

// Merges the ordered runs into one ordered table. False when two entries
// of one satellite tie on the signal and differ otherwise: which of them
// a sort puts first is then the sort's own affair.
bool SkyMerger::MergeRuns(size_t count, size_t* bounds, size_t runs) {
  const auto order = [](const Merged& a, const Merged& b) { return Precedes(a.satellite, b.satellite); };
  Merged* from = merged_;
  Merged* to = scratch_;
  while (runs > 1) {
    size_t merged = 0;
    for (size_t r = 0; r < runs; r += 2, ++merged) {
      const size_t end = r + 2 <= runs ? bounds[r + 2] : bounds[r + 1];
      std::merge(from + bounds[r], from + bounds[r + 1], from + bounds[r + 1], from + end, to + bounds[r], order);
      bounds[merged] = bounds[r];
    }
    bounds[merged] = count;
    runs = merged;
    std::swap(from, to);
  }
  if (from != merged_) std::copy(from, from + count, merged_);
  for (size_t i = 1; i < count; ++i) {
    const GPSSatellite& a = merged_[i - 1].satellite;
    const GPSSatellite& b = merged_[i].satellite;
    if (a.PRN == b.PRN && a.SNR == b.SNR && std::memcmp(&a, &b, sizeof a) != 0) return false;
  }
  return true;
}

void SkyMerger::Publish(ReceiverState& state) {
  published_ = true;
  size_t count = 0, runs = 0;
  size_t bounds[kMaxCycles + 1];
  // Ordered runs are merged; otherwise, and when that leaves the choice
  // between two entries open, the gathered table is sorted as it always
  // was, so that the result stays the same to the bit.
  if (!Gather(&count, bounds, &runs) || !MergeRuns(count, bounds, runs)) {
    Gather(&count, bounds, &runs);
    std::sort(merged_, merged_ + count,
              [](const Merged& a, const Merged& b) { return Precedes(a.satellite, b.satellite); });
  }
  count = static_cast<size_t>(
      std::unique(merged_, merged_ + count,
                  [](const Merged& a, const Merged& b) { return a.satellite.PRN == b.satellite.PRN; }) -
      merged_);
  const int32_t inView = static_cast<int32_t>(count);
  if (count > GPS_MAX_SATELLITES) {
    KeepBest(count);
    count = GPS_MAX_SATELLITES;
    if (inView != loggedInView_)
      Logger::Instance().Format(u"Satellites in view: %d, %d kept\n", inView, GPS_MAX_SATELLITES);
  }
  loggedInView_ = inView;
  state.StartSatelliteCycle();
  for (size_t i = 0; i < count; ++i) state.AddSatellite(merged_[i].satellite);
  state.CompleteSatelliteCycle();
}

// Those the solution uses first, then the strongest; kept in the order of
// their numbers. The numbers differ, so "better" orders the table fully
// and the twelve best are the same whichever way they are picked: here by
// their places in the table, which then keep the numbers' order.
void SkyMerger::KeepBest(size_t count) {
  MarkUsed(count);
  // "Better" as one number: used first, then the stronger signal, then the
  // lower number, which is the lower place in the table.
  uint64_t keys[kMaxMerged];
  for (size_t i = 0; i < count; ++i) {
    const uint32_t snr = static_cast<uint32_t>(merged_[i].satellite.SNR) ^ 0x80000000u;  // in order as unsigned
    keys[i] = uint64_t{merged_[i].used ? 0u : 1u} << 40 | uint64_t{0xFFFFFFFFu - snr} << 8 | i;
  }
  std::nth_element(keys, keys + GPS_MAX_SATELLITES - 1, keys + count);
  uint8_t places[GPS_MAX_SATELLITES];
  for (size_t i = 0; i < GPS_MAX_SATELLITES; ++i) places[i] = static_cast<uint8_t>(keys[i] & 0xFF);
  std::sort(places, places + GPS_MAX_SATELLITES);
  for (size_t i = 0; i < GPS_MAX_SATELLITES; ++i) merged_[i] = merged_[places[i]];
}

// A satellite is in use when a GSA of its own system lists it, or one that
// named no system. The table is in the order of the numbers, so the used
// numbers in order mark it in one walk.
void SkyMerger::MarkUsed(size_t count) {
  int32_t numbers[static_cast<size_t>(GnssSystem::kCount) * kMaxUsed];
  size_t used = 0;
  for (size_t s = 0; s < static_cast<size_t>(GnssSystem::kCount); ++s) {
    const GnssSystem system = static_cast<GnssSystem>(s);
    for (size_t i = 0; i < usedCount_[s]; ++i)
      if (system == GnssSystem::kOther || SystemOfNumber(used_[s][i]) == system) numbers[used++] = used_[s][i];
  }
  std::sort(numbers, numbers + used);
  size_t k = 0;
  for (size_t i = 0; i < count; ++i) {
    const int32_t number = merged_[i].satellite.PRN;
    while (k < used && numbers[k] < number) ++k;
    merged_[i].used = k < used && numbers[k] == number;
  }
}

}  // namespace kavo::nmea
