#include "nmea/checksum.h"

#include "nmea/unit_search.h"

namespace kavo::nmea {
namespace {

int HexValue(char16_t c) {
  if (c >= u'0' && c <= u'9') return c - u'0';
  if (c >= u'A' && c <= u'F') return c - u'A' + 10;
  if (c >= u'a' && c <= u'f') return c - u'a' + 10;
  return -1;
}

bool IsTrailingSpace(char16_t c) { return c == u'\r' || c == u' ' || c == u'\t'; }

}  // namespace

ChecksumState CheckChecksum(WideView sentence) {
  // The checksum is at the end: looking from there is quicker, and a "*"
  // inside the sentence then spoils the sum, as it should.
  const size_t star = sentence.rfind(u'*');
  if (star == WideView::npos) return ChecksumState::kMissing;
  if (sentence.size() < star + 3) return ChecksumState::kWrong;
  // Whole 16-bit units: a character beyond one byte cannot pass for the
  // byte it ends in.
  const unsigned sum = XorUnits(sentence.data() + 1, sentence.data() + star);
  const int high = HexValue(sentence[star + 1]), low = HexValue(sentence[star + 2]);
  if (high < 0 || low < 0 || static_cast<unsigned>(high * 16 + low) != sum) return ChecksumState::kWrong;
  for (size_t i = star + 3; i < sentence.size(); ++i)
    if (!IsTrailingSpace(sentence[i])) return ChecksumState::kWrong;
  return ChecksumState::kValid;
}

}  // namespace kavo::nmea
