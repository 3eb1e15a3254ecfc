// Satellites of several constellations in one table. Each talker (and,
// from NMEA 4.11 on, each signal of a talker) sends a GSV cycle of its own;
// the cycles of one epoch are merged and published through the receiver
// state exactly as a single cycle is, so the update mask and the table's
// time keep their meaning. The GSA sentences of the epoch, one per
// constellation, tell which satellites the solution uses.
//
// An epoch ends when a cycle comes again: its table is published as soon
// as every cycle the previous epoch had is in, so a steady receiver
// publishes once per epoch, and a constellation that stops reporting drops
// out one epoch later. All storage is fixed: nothing is allocated per line.
#pragma once

#include <cstddef>
#include <cstdint>

#include "KavoMobileGPS.h"
#include "nmea/receiver_state.h"
#include "nmea/satellite_numbering.h"
#include "support/wide_string.h"

namespace kavo::nmea {

class SkyMerger {
 public:
  static constexpr size_t kMaxCycles = 16;    // talker and signal pairs
  static constexpr size_t kMaxPerCycle = 40;  // ten messages of four
  static constexpr size_t kMaxUsed = 12;      // slots of one GSA
  static constexpr size_t kMaxMerged = 256;   // more than all systems have

  // Forgets all cycles and satellites in use.
  void Reset();
  // One GSV message; publishes into `state` when it completes the epoch.
  void AddGsv(WideView sentence, ReceiverState& state);
  // The satellites one GSA lists as used.
  void AddGsa(WideView sentence);

 private:
  struct Cycle {
    char16_t talker[2] = {};
    char16_t signal = 0;  // NMEA 4.11 signal id, 0 when not sent
    GnssSystem system = GnssSystem::kOther;
    size_t assembling = 0;
    size_t complete = 0;
    GPSSatellite building[kMaxPerCycle];
    GPSSatellite entries[kMaxPerCycle];
  };
  struct Merged {
    GPSSatellite satellite;
    bool used;
  };

  Cycle* FindCycle(WideView sentence, char16_t signal);
  bool Gather(size_t* count, size_t* bounds, size_t* runs);
  bool MergeRuns(size_t count, size_t* bounds, size_t runs);
  void Publish(ReceiverState& state);
  void MarkUsed(size_t count);
  // Keeps the GPS_MAX_SATELLITES best of the `count` merged satellites.
  void KeepBest(size_t count);

  Cycle cycles_[kMaxCycles];
  size_t cycleCount_ = 0;
  uint32_t doneThisEpoch_ = 0;  // bits of cycles_ completed in this epoch
  uint32_t doneLastEpoch_ = 0;
  bool published_ = false;  // this epoch's table went out at least once
  int32_t used_[static_cast<size_t>(GnssSystem::kCount)][kMaxUsed] = {};
  size_t usedCount_[static_cast<size_t>(GnssSystem::kCount)] = {};
  Merged merged_[kMaxMerged];
  Merged scratch_[kMaxMerged];  // for merging the cycles' runs
  int32_t loggedInView_ = 0;
};

}  // namespace kavo::nmea
