// Searches over 16-bit text that the chunk path makes for every character
// of every line: the line feed that ends a line, the separator that ends a
// field, the exclusive-or of a checksum. One unit at a time they cost
// several instructions a character; these look at a block of units at once
// (eight with SSE2, four in a plain 64-bit word elsewhere). They never read
// outside [begin, end).
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#if defined(__SSE2__) || defined(_M_X64)
#  include <emmintrin.h>
#endif

namespace kavo::nmea {

namespace unit_search_detail {

// The index of the lowest set bit; `bits` is not 0.
inline unsigned LowestBit(uint32_t bits) { return static_cast<unsigned>(__builtin_ctz(bits)); }
// The index of the highest set bit; `bits` is not 0.
inline unsigned HighestBit(uint32_t bits) { return 31u - static_cast<unsigned>(__builtin_clz(bits)); }

// A block is kUnits units from p; Matches gives one bit per unit of it
// (bit i for unit i) that equals `a` or `b`. The searches below are written
// once over a block kind; each processor gets its best kind by default.

// Four units in a plain 64-bit word, for any processor.
struct WordBlocks {
  static constexpr ptrdiff_t kUnits = 4;
  static constexpr uint64_t kOnes = 0x0001000100010001u;
  static constexpr uint64_t kLows = 0x7FFF7FFF7FFF7FFFu;

  static uint32_t Matches(const char16_t* p, char16_t a, char16_t b) {
    uint64_t word;
    std::memcpy(&word, p, sizeof word);
    return PerUnit(ZeroLanesHigh(word ^ (kOnes * a)) | ZeroLanesHigh(word ^ (kOnes * b)));
  }
  // The high bit of each 16-bit lane that is 0, and nothing else: no lane
  // borrows from another, so every lane is exact.
  static uint64_t ZeroLanesHigh(uint64_t x) { return ~(((x & kLows) + kLows) | x) & ~kLows; }
  // The high bits of the lanes as bits 0-3, lane by lane in memory order.
  static uint32_t PerUnit(uint64_t highs) {
    uint16_t lanes[4];
    std::memcpy(lanes, &highs, sizeof lanes);
    return (lanes[0] >> 15) | (lanes[1] >> 15) << 1 | (lanes[2] >> 15) << 2 | (lanes[3] >> 15) << 3;
  }
};

#if defined(__SSE2__) || defined(_M_X64)
// Eight units in an SSE2 register, which every x86-64 processor has.
struct Sse2Blocks {
  static constexpr ptrdiff_t kUnits = 8;

  static uint32_t Matches(const char16_t* p, char16_t a, char16_t b) {
    const __m128i units = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
    const __m128i either = _mm_or_si128(_mm_cmpeq_epi16(units, _mm_set1_epi16(static_cast<short>(a))),
                                        _mm_cmpeq_epi16(units, _mm_set1_epi16(static_cast<short>(b))));
    // Each unit's 0 or -1 narrowed to a byte, then one bit a byte.
    return static_cast<uint32_t>(_mm_movemask_epi8(_mm_packs_epi16(either, _mm_setzero_si128())));
  }
};
using DefaultBlocks = Sse2Blocks;
#else
using DefaultBlocks = WordBlocks;
#endif

}  // namespace unit_search_detail

// The first `unit` in [begin, end), or end.
template <class Blocks = unit_search_detail::DefaultBlocks>
const char16_t* FindUnit(const char16_t* begin, const char16_t* end, char16_t unit) {
  const char16_t* p = begin;
  for (; end - p >= Blocks::kUnits; p += Blocks::kUnits)
    if (const uint32_t hits = Blocks::Matches(p, unit, unit)) return p + unit_search_detail::LowestBit(hits);
  while (p < end && *p != unit) ++p;
  return p;
}

// The last `unit` in [begin, end), or nullptr.
template <class Blocks = unit_search_detail::DefaultBlocks>
const char16_t* FindLastUnit(const char16_t* begin, const char16_t* end, char16_t unit) {
  if (end - begin < Blocks::kUnits) {
    for (const char16_t* p = end; p != begin;)
      if (*--p == unit) return p;
    return nullptr;
  }
  // Blocks from the end; the first block overlaps the one after it, which
  // held no match.
  for (const char16_t* p = end;;) {
    p = p - begin >= Blocks::kUnits ? p - Blocks::kUnits : begin;
    if (const uint32_t hits = Blocks::Matches(p, unit, unit)) return p + unit_search_detail::HighestBit(hits);
    if (p == begin) return nullptr;
  }
}

// The first ',' or '*' in [begin, end), or end: where a field ends.
template <class Blocks = unit_search_detail::DefaultBlocks>
const char16_t* FindSeparator(const char16_t* begin, const char16_t* end) {
  const char16_t* p = begin;
  for (; end - p >= Blocks::kUnits; p += Blocks::kUnits)
    if (const uint32_t hits = Blocks::Matches(p, u',', u'*')) return p + unit_search_detail::LowestBit(hits);
  while (p < end && *p != u',' && *p != u'*') ++p;
  return p;
}

// The offsets from `base` of the ',' and '*' in [begin, end), in order, at
// most `max` of them: where the fields of a sentence end. Returns how many.
template <class Blocks = unit_search_detail::DefaultBlocks>
size_t FindSeparators(const char16_t* base, const char16_t* begin, const char16_t* end, uint32_t* offsets,
                      size_t max) {
  using unit_search_detail::LowestBit;
  size_t count = 0;
  const char16_t* p = begin;
  for (; end - p >= Blocks::kUnits; p += Blocks::kUnits) {
    uint32_t hits = Blocks::Matches(p, u',', u'*');
    if (!hits) continue;
    const uint32_t at = static_cast<uint32_t>(p - base);
    // Room for a whole block's worth lets the common case skip the bound.
    if (max - count < static_cast<size_t>(Blocks::kUnits)) {
      for (; hits; hits &= hits - 1) {
        if (count == max) return count;
        offsets[count++] = at + LowestBit(hits);
      }
    } else {
      for (; hits; hits &= hits - 1) offsets[count++] = at + LowestBit(hits);
    }
  }
  for (; p < end; ++p) {
    if (*p != u',' && *p != u'*') continue;
    if (count == max) return count;
    offsets[count++] = static_cast<uint32_t>(p - base);
  }
  return count;
}

// The exclusive-or of the units in [begin, end).
inline uint32_t XorUnits(const char16_t* begin, const char16_t* end) {
  const char16_t* p = begin;
  uint64_t wide = 0;
  for (; end - p >= 4; p += 4) {
    uint64_t word;
    std::memcpy(&word, p, sizeof word);
    wide ^= word;
  }
  uint32_t sum = static_cast<uint32_t>(wide ^ wide >> 32);
  sum = (sum ^ sum >> 16) & 0xFFFFu;
  while (p < end) sum ^= *p++;
  return sum;
}

}  // namespace kavo::nmea
