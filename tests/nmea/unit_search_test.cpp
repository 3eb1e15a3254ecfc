// The block searches against one unit at a time, for each block kind this
// processor can run: every length and start around the block size, with
// the units searched for among look-alikes.
#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "nmea/unit_search.h"

namespace kavo::nmea {
namespace {

// Beside the units searched for: their neighbours (a borrow between lanes
// would take them for a match), and units sharing one of their bytes.
const char16_t kAlphabet[] = {u',', u'*', u'\n', 0x8000, u'-', u'+', u'\v', 0x8001, 0x2C00, 0x2A2C, 0x802C, 0xFFFF, 0};

const char16_t* FirstOf(const char16_t* begin, const char16_t* end, char16_t a, char16_t b) {
  while (begin < end && *begin != a && *begin != b) ++begin;
  return begin;
}

template <class Blocks>
void ExpectSameAsOneUnitAtATime(const std::vector<char16_t>& text) {
  const char16_t* base = text.data();
  for (size_t from = 0; from <= text.size(); ++from) {
    for (size_t to = from; to <= text.size(); ++to) {
      const char16_t *begin = base + from, *end = base + to;
      SCOPED_TRACE(testing::Message() << Blocks::kUnits << "-unit blocks over [" << from << ", " << to << ")");
      for (char16_t unit : {u',', u'\n', char16_t{0x8000}}) {
        ASSERT_EQ(FindUnit<Blocks>(begin, end, unit), FirstOf(begin, end, unit, unit));
        const char16_t* last = nullptr;
        for (const char16_t* p = begin; p < end; ++p)
          if (*p == unit) last = p;
        ASSERT_EQ(FindLastUnit<Blocks>(begin, end, unit), last);
      }
      ASSERT_EQ(FindSeparator<Blocks>(begin, end), FirstOf(begin, end, u',', u'*'));
      std::vector<uint32_t> all;
      for (const char16_t* p = begin; p < end; ++p)
        if (*p == u',' || *p == u'*') all.push_back(static_cast<uint32_t>(p - base));
      for (size_t max : {size_t{0}, size_t{3}, size_t{64}}) {
        std::vector<uint32_t> offsets(max);
        const size_t count = FindSeparators<Blocks>(base, begin, end, offsets.data(), max);
        offsets.resize(count);
        ASSERT_EQ(offsets, std::vector<uint32_t>(all.begin(), all.begin() + std::min(max, all.size())));
      }
    }
  }
}

TEST(UnitSearch, BlocksFindWhatOneUnitAtATimeFinds) {
  std::mt19937 random(7);
  for (int round = 0; round < 40; ++round) {
    std::vector<char16_t> text(round < 20 ? 19 : 37);
    for (char16_t& unit : text) unit = kAlphabet[random() % (sizeof kAlphabet / sizeof kAlphabet[0])];
    ExpectSameAsOneUnitAtATime<unit_search_detail::WordBlocks>(text);
    ExpectSameAsOneUnitAtATime<unit_search_detail::DefaultBlocks>(text);
  }
}

}  // namespace
}  // namespace kavo::nmea
