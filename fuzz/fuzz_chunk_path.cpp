// The chunk path (framing, dispatch, parsers, store) on arbitrary text cut
// at arbitrary places, under receiver options of the input's choosing. The
// tail of the input chooses the chunk sizes. An input that starts with 0xFE
// takes the receiver options from its next byte (talkers from the low three
// bits, the checksum mode from the next two); any other keeps the defaults,
// so seeds written for them read as before. The rest is the text, widened
// byte for byte, or taken as UTF-16 units when its first byte is 0xFF.
//
// Checked: nothing escapes and nothing grows without bound (leftover at most
// 512 units, the line buffer no longer than its first size or the longest
// line), the
// records stay within their ranges, and when no line reaches 512 units the
// cut makes no difference at all.
#include <fuzzer/FuzzedDataProvider.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "fuzz_support.h"
#include "nmea/receiver_state_store.h"

using kavo::nmea::ReceiverStateStore;
using kavo::nmea::SentenceFramer;

namespace {

struct Outcome {
  GPSLocation location;
  GPSSatellites satellites;
  GPSSatellites working;
  std::u16string sentences;  // all recognised sentences, each ended by '\n'
};

void CheckRecords(const ReceiverStateStore& store) {
  const GPSLocation& l = store.Location();
  FUZZ_CHECK((l.ValidFlags & ~0x7FFu) == 0);
  FUZZ_CHECK(l.TimeType >= 0 && l.TimeType <= 2);
  FUZZ_CHECK(l.FixQuality >= 0 && l.FixQuality <= 8);
  FUZZ_CHECK(store.Satellites().Count >= 0 && store.Satellites().Count <= GPS_MAX_SATELLITES);
  FUZZ_CHECK(store.State().WorkingSatellites().Count >= 0 &&
             store.State().WorkingSatellites().Count <= GPS_MAX_SATELLITES);
  FUZZ_CHECK((store.UpdateMask() & ~0x3Fu) == 0);
  FUZZ_CHECK(store.Status() == 0);  // only a failed allocation makes it -4
}

// The options an input byte names.
kavo::nmea::ReceiverOptions OptionsOf(uint8_t byte) {
  static const char* const kTalkers[] = {"GP",    "GP,GN", "GN", "GL,GA", "GP,GN,GL,GA,GB,BD,GQ,QZ",
                                         "QZ,GB", "GP,GL", "BD"};
  static const char* const kChecksums[] = {"ignore", "verify", "require", "ignore"};
  kavo::nmea::ReceiverOptions options;
  options.SetTalkers(kTalkers[byte & 7]);
  options.SetChecksums(kChecksums[(byte >> 3) & 3]);
  return options;
}

Outcome Play(const std::u16string& text, const std::vector<size_t>& cuts, const kavo::nmea::ReceiverOptions& options) {
  ReceiverStateStore store(options);
  store.Reset();
  Outcome outcome;
  size_t longestLine = 0;
  size_t at = 0;
  for (size_t i = 0; at < text.size() || i == 0; ++i) {
    const size_t size = std::min(cuts[i % cuts.size()], text.size() - at);
    const std::u16string_view chunk = std::u16string_view(text).substr(at, size);
    at += size;

    // The lines this chunk completes, as the framing must see them.
    size_t lineStart = 0, carried = store.Framer().Leftover().size(), lines = 0;
    for (size_t feed; (feed = chunk.find(u'\n', lineStart)) != chunk.npos; lineStart = feed + 1) {
      longestLine = std::max(longestLine, carried + feed - lineStart);
      carried = 0;
      ++lines;
    }

    FUZZ_CHECK(store.ProcessChunk(chunk) == 1);
    FUZZ_CHECK(store.Framer().Leftover().size() <= SentenceFramer::kMaxLeftover);
    FUZZ_CHECK(store.Framer().LineBufferCapacity() <= std::max(SentenceFramer::kLineHint, longestLine + 1));
    const auto& list = store.RecognisedSentences();
    FUZZ_CHECK(list.Count() <= lines);
    FUZZ_CHECK(store.SentencesSeen() == (list.Count() > 0 ? 1u : 0u));
    for (size_t s = 0; s < list.Count(); ++s) {
      FUZZ_CHECK(list[s].size() >= 6 && list[s][0] == u'$' && options.Accepts(list[s][1], list[s][2]));
      FUZZ_CHECK(list[s].find(u'\n') == list[s].npos);
      // A sentence after other bytes is read only when the options go beyond the defaults.
      FUZZ_CHECK(!options.ReadsMixedStreams() || list[s].find(u'$', 1) == list[s].npos);
      FUZZ_CHECK(std::u16string_view(list.Text(s)).size() <= list[s].size());
      outcome.sentences.append(list[s]);
      outcome.sentences += u'\n';
    }
    CheckRecords(store);
  }
  outcome.location = store.Location();
  outcome.satellites = store.Satellites();
  outcome.working = store.State().WorkingSatellites();
  return outcome;
}

bool Same(const Outcome& a, const Outcome& b) {
  return std::memcmp(&a.location, &b.location, sizeof a.location) == 0 &&
         std::memcmp(&a.satellites, &b.satellites, sizeof a.satellites) == 0 &&
         std::memcmp(&a.working, &b.working, sizeof a.working) == 0 && a.sentences == b.sentences;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  kavo::fuzz::QuietFixedWorld();
  FuzzedDataProvider input(data, size);
  std::vector<size_t> cuts(1 + input.ConsumeIntegralInRange<size_t>(0, 7));
  for (size_t& cut : cuts) cut = input.ConsumeIntegralInRange<size_t>(0, 1100);
  if (std::all_of(cuts.begin(), cuts.end(), [](size_t c) { return c == 0; })) cuts[0] = 1;
  const std::vector<uint8_t> bytes = input.ConsumeRemainingBytes<uint8_t>();

  size_t first = 0;  // of the text
  kavo::nmea::ReceiverOptions options;
  if (bytes.size() >= 2 && bytes[0] == 0xFE) {
    options = OptionsOf(bytes[1]);
    first = 2;
  }
  std::u16string text;
  if (first < bytes.size() && bytes[first] == 0xFF) {
    for (size_t i = first + 1; i + 1 < bytes.size(); i += 2)
      text += static_cast<char16_t>(bytes[i] | bytes[i + 1] << 8);
  } else {
    text.assign(bytes.begin() + static_cast<std::ptrdiff_t>(first), bytes.end());
  }

  const Outcome cut = Play(text, cuts, options);
  // With every line shorter than the leftover cap, cutting changes nothing.
  size_t longest = 0, start = 0;
  for (size_t feed; (feed = text.find(u'\n', start)) != text.npos; start = feed + 1)
    longest = std::max(longest, feed - start);
  longest = std::max(longest, text.size() - start);
  if (longest < SentenceFramer::kMaxLeftover) FUZZ_CHECK(Same(cut, Play(text, {text.size() + 1}, options)));
  return 0;
}
