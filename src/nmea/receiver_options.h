// How the library reads a receiver beyond the basic contract. The defaults
// (talker "GP" only, checksums ignored) give exactly the contract's
// behaviour; other talkers, merged constellations and checksum checking are
// opted into through the [Receiver] section of the .ini beside the library
// (Talkers=, Checksums=) or the environment (KAVOGPS_TALKERS,
// KAVOGPS_CHECKSUMS), which wins. Read once per driver and handed down.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "support/wide_string.h"

namespace kavo::nmea {

enum class ChecksumMode { kIgnore, kVerify, kRequire };

class ReceiverOptions {
 public:
  static constexpr size_t kMaxTalkers = 16;

  ReceiverOptions() = default;

  // "GP,GN,GL" (case and spaces around ids ignored); false, leaving the
  // options as they were, for an empty list or an id that is not two letters.
  bool SetTalkers(std::string_view list);
  // "ignore", "verify" or "require" (case ignored); false otherwise.
  bool SetChecksums(std::string_view name);

  // Whether a sentence of talker `first``second` is read.
  bool Accepts(char16_t first, char16_t second) const {
    for (size_t i = 0; i < count_; ++i)
      if (talkers_[i][0] == first && talkers_[i][1] == second) return true;
    return false;
  }
  // True once anything but "GP" alone is accepted: satellites of several
  // talkers are then merged into one table.
  bool MergesConstellations() const { return count_ != 1 || talkers_[0][0] != u'G' || talkers_[0][1] != u'P'; }
  ChecksumMode Checksums() const { return checksums_; }
  // True once the options go beyond the contract's defaults at all: such a
  // receiver may mix a binary protocol into its NMEA, so a sentence is
  // looked for after other bytes on its line (from the line's last "$"),
  // and a NUL byte in a recording is kept as a character.
  bool ReadsMixedStreams() const { return MergesConstellations() || checksums_ != ChecksumMode::kIgnore; }
  // True when `text` holds "$" followed by an accepted talker id: how a
  // port probe recognises a receiver ("$GP" with the defaults).
  bool HasAcceptedTalker(WideView text) const;

 private:
  char16_t talkers_[kMaxTalkers][2] = {{u'G', u'P'}};
  size_t count_ = 1;
  ChecksumMode checksums_ = ChecksumMode::kIgnore;
};

// The options of a driver created now: the [Receiver] section of
// `iniPath` (no file: defaults), then the environment. A bad value is
// logged with its key and value, and that option keeps its default.
ReceiverOptions ReadReceiverOptions(const WideString& iniPath);
// The same for the .ini beside the library.
ReceiverOptions LoadReceiverOptions();

}  // namespace kavo::nmea
