// Searches over 16-bit text that the chunk path makes for every character
// of every line: the line feed that ends a line, the separator that ends a
// field, the exclusive-or of a checksum. One unit at a time they cost
// several instructions a character; these look at eight units at once
// (SSE2, which every x86-64 processor has) or four (plain 64-bit words
// elsewhere). They never read outside [begin, end).
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#if defined(__SSE2__) || defined(_M_X64)
#  include <emmintrin.h>
#  define KAVO_UNIT_SEARCH_SSE2 1
#endif

namespace kavo::nmea {

namespace unit_search_detail {

// The index of the lowest set bit; `bits` is not 0.
inline unsigned LowestBit(uint32_t bits) { return static_cast<unsigned>(__builtin_ctz(bits)); }

#if !defined(KAVO_UNIT_SEARCH_SSE2)
constexpr uint64_t kOnes = 0x0001000100010001u;
constexpr uint64_t kHighs = 0x8000800080008000u;

inline uint64_t Load4(const char16_t* p) {
  uint64_t word;
  std::memcpy(&word, p, sizeof word);
  return word;
}
// High bit set in each 16-bit lane of `word` that equals `unit` (exact for
// the lowest such lane, which is all the callers use).
inline uint64_t LanesEqual(uint64_t word, char16_t unit) {
  const uint64_t x = word ^ (kOnes * unit);
  return (x - kOnes) & ~x & kHighs;
}
// The lane of the lowest high bit, in the platform's byte order.
inline unsigned FirstLane(uint64_t highs) {
  uint16_t lanes[4];
  std::memcpy(lanes, &highs, sizeof lanes);
  unsigned lane = 0;
  while (lanes[lane] == 0) ++lane;
  return lane;
}
#endif

}  // namespace unit_search_detail

// The first `unit` in [begin, end), or end.
inline const char16_t* FindUnit(const char16_t* begin, const char16_t* end, char16_t unit) {
  using namespace unit_search_detail;
  const char16_t* p = begin;
#if defined(KAVO_UNIT_SEARCH_SSE2)
  const __m128i wanted = _mm_set1_epi16(static_cast<short>(unit));
  for (; end - p >= 8; p += 8) {
    const __m128i units = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
    const uint32_t hits = static_cast<uint32_t>(_mm_movemask_epi8(_mm_cmpeq_epi16(units, wanted)));
    if (hits) return p + LowestBit(hits) / 2;
  }
#else
  for (; end - p >= 4; p += 4)
    if (const uint64_t hits = LanesEqual(Load4(p), unit)) return p + FirstLane(hits);
#endif
  while (p < end && *p != unit) ++p;
  return p;
}

// The last `unit` in [begin, end), or nullptr.
inline const char16_t* FindLastUnit(const char16_t* begin, const char16_t* end, char16_t unit) {
#if defined(KAVO_UNIT_SEARCH_SSE2)
  if (end - begin >= 8) {
    const __m128i wanted = _mm_set1_epi16(static_cast<short>(unit));
    // Blocks of eight from the end; the first block overlaps the one after
    // it, which held no match.
    for (const char16_t* p = end;;) {
      p = p - begin >= 8 ? p - 8 : begin;
      const __m128i units = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
      const uint32_t hits = static_cast<uint32_t>(_mm_movemask_epi8(_mm_cmpeq_epi16(units, wanted)));
      if (hits) return p + (31 - __builtin_clz(hits)) / 2;
      if (p == begin) return nullptr;
    }
  }
#endif
  for (const char16_t* p = end; p != begin;)
    if (*--p == unit) return p;
  return nullptr;
}

// The first ',' or '*' in [begin, end), or end: where a field ends.
inline const char16_t* FindSeparator(const char16_t* begin, const char16_t* end) {
  using namespace unit_search_detail;
  const char16_t* p = begin;
#if defined(KAVO_UNIT_SEARCH_SSE2)
  const __m128i comma = _mm_set1_epi16(u','), star = _mm_set1_epi16(u'*');
  for (; end - p >= 8; p += 8) {
    const __m128i units = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
    const __m128i either = _mm_or_si128(_mm_cmpeq_epi16(units, comma), _mm_cmpeq_epi16(units, star));
    const uint32_t hits = static_cast<uint32_t>(_mm_movemask_epi8(either));
    if (hits) return p + LowestBit(hits) / 2;
  }
#else
  for (; end - p >= 4; p += 4) {
    const uint64_t word = Load4(p);
    if (const uint64_t hits = LanesEqual(word, u',') | LanesEqual(word, u'*')) return p + FirstLane(hits);
  }
#endif
  while (p < end && *p != u',' && *p != u'*') ++p;
  return p;
}

// The offsets from `base` of the ',' and '*' in [begin, end), in order, at
// most `max` of them: where the fields of a sentence end. Returns how many.
inline size_t FindSeparators(const char16_t* base, const char16_t* begin, const char16_t* end, uint32_t* offsets,
                             size_t max) {
  using namespace unit_search_detail;
  size_t count = 0;
  const char16_t* p = begin;
#if defined(KAVO_UNIT_SEARCH_SSE2)
  const __m128i comma = _mm_set1_epi16(u','), star = _mm_set1_epi16(u'*');
  for (; end - p >= 8; p += 8) {
    const __m128i units = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
    const __m128i either = _mm_or_si128(_mm_cmpeq_epi16(units, comma), _mm_cmpeq_epi16(units, star));
    // One bit per unit: the low byte's.
    uint32_t hits = static_cast<uint32_t>(_mm_movemask_epi8(either)) & 0x5555u;
    if (!hits) continue;
    const uint32_t at = static_cast<uint32_t>(p - base);
    if (max - count < 8) {
      for (; hits; hits &= hits - 1) {
        if (count == max) return count;
        offsets[count++] = at + LowestBit(hits) / 2;
      }
    } else {
      for (; hits; hits &= hits - 1) offsets[count++] = at + LowestBit(hits) / 2;
    }
  }
#endif
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
