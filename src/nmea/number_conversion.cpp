#include "nmea/number_conversion.h"

#include <charconv>
#include <cmath>
#include <limits>
#include <string>

namespace kavo::nmea {
namespace {

// The "C" locale's white space; no other unit is skipped.
bool IsSpace(char16_t c) { return c == u' ' || (c >= u'\t' && c <= u'\r'); }

bool IsDecimalDigit(char c) { return c >= '0' && c <= '9'; }

// The text as bytes, up to its first non-ASCII unit: no number goes past
// one, so positions in the copy are positions in the text. Fields are at
// most 255 units, so the heap is used only by callers with longer text.
class AsciiCopy {
 public:
  explicit AsciiCopy(WideView text) {
    size_t n = 0;
    while (n < text.size() && text[n] < 0x80) ++n;
    char* out = local_;
    if (n > sizeof(local_)) {
      heap_.resize(n);
      out = heap_.data();
    }
    for (size_t i = 0; i < n; ++i) out[i] = static_cast<char>(text[i]);
    begin_ = out;
    end_ = out + n;
  }
  const char* begin() const { return begin_; }
  const char* end() const { return end_; }

 private:
  char local_[256];
  std::string heap_;
  const char* begin_;
  const char* end_;
};

// For a number that does not fit a double: whether its magnitude is huge
// (true) or tiny. Only the sign of the exponent estimate matters, since
// out-of-range values lie hundreds of powers away from 1.
bool Overflows(const char* p, const char* end) {
  int64_t magnitude = 0;
  bool significant = false;
  while (p < end && *p == '0') ++p;
  for (; p < end && IsDecimalDigit(*p); ++p) {
    ++magnitude;
    significant = true;
  }
  if (p < end && *p == '.') {
    ++p;
    for (; !significant && p < end && *p == '0'; ++p) --magnitude;
    while (p < end && IsDecimalDigit(*p)) ++p;
  }
  if (p < end && (*p | 0x20) == 'e') {
    ++p;
    const bool negative = p < end && *p == '-';
    if (p < end && (*p == '-' || *p == '+')) ++p;
    int64_t exponent = 0;
    for (; p < end && IsDecimalDigit(*p); ++p)
      exponent = std::min<int64_t>(exponent * 10 + (*p - '0'), int64_t{1} << 40);
    magnitude += negative ? -exponent : exponent;
  }
  return magnitude > 0;
}

// Converts an unsigned decimal number at [begin, end): digits with an
// optional point and exponent, nothing else. Receivers never send "nan",
// "inf" or hexadecimal, and a NaN would never compare equal to itself.
// Returns where it stopped (begin when nothing converts).
const char* Convert(const char* begin, const char* end, double* value) {
  if (begin == end || !(IsDecimalDigit(*begin) || *begin == '.')) return begin;
  const auto result = std::from_chars(begin, end, *value, std::chars_format::general);
  if (result.ec == std::errc::invalid_argument) return begin;
  if (result.ec == std::errc::result_out_of_range) *value = Overflows(begin, result.ptr) ? HUGE_VAL : 0.0;
  return result.ptr;
}

// Powers of ten that a double holds exactly.
constexpr double kExactPowersOfTen[] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,  1e8,  1e9,  1e10, 1e11,
                                        1e12, 1e13, 1e14, 1e15, 1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};
constexpr uint64_t kExactMantissa = uint64_t{1} << 53;
constexpr int kMaxDigits = 19;  // any 19 decimal digits fit 64 bits

// What receivers send nearly always: digits, maybe a point and more
// digits, at most 19 of them and no exponent. The digits then make an
// integer that a double holds exactly, divided by a power of ten it holds
// exactly, and one correctly rounded division gives the correctly rounded
// value, the very double the general conversion gives. Returns where the
// number ends, or nullptr when the text needs the general conversion.
const char16_t* ConvertPlain(const char16_t* p, const char16_t* end, double* value) {
  uint64_t mantissa = 0;
  int digits = 0, fraction = 0;
  for (; p < end && static_cast<unsigned>(*p - u'0') <= 9; ++p, ++digits) mantissa = mantissa * 10 + (*p - u'0');
  if (p < end && *p == u'.') {
    for (++p; p < end && static_cast<unsigned>(*p - u'0') <= 9; ++p, ++digits, ++fraction)
      mantissa = mantissa * 10 + (*p - u'0');
  }
  if (digits == 0 || digits > kMaxDigits || mantissa > kExactMantissa) return nullptr;
  if (p < end && (*p | 0x20) == u'e') return nullptr;
  *value = static_cast<double>(mantissa) / kExactPowersOfTen[fraction];
  return p;
}

// Everything else: exponents, long numbers, nothing that converts.
size_t ConvertGeneral(WideView text, size_t start, double* value) {
  const AsciiCopy ascii(text.substr(start));
  const char* begin = ascii.begin();
  double v = 0.0;
  const char* stop = Convert(begin, ascii.end(), &v);
  if (stop == begin) return 0;
  *value = v;
  return start + static_cast<size_t>(stop - begin);
}

}  // namespace

size_t ParseDouble(WideView text, double* value) {
  // Most fields are a plain number and nothing else.
  if (!text.empty() && static_cast<unsigned>(text[0] - u'0') <= 9)
    if (const char16_t* stop = ConvertPlain(text.data(), text.data() + text.size(), value))
      return static_cast<size_t>(stop - text.data());
  *value = 0.0;
  size_t start = 0;
  while (start < text.size() && IsSpace(text[start])) ++start;
  bool negative = false;
  if (start < text.size() && (text[start] == u'+' || text[start] == u'-')) {
    negative = text[start] == u'-';
    ++start;
  }
  double v = 0.0;
  size_t used;
  if (const char16_t* stop = ConvertPlain(text.data() + start, text.data() + text.size(), &v)) {
    used = static_cast<size_t>(stop - text.data());
  } else {
    used = ConvertGeneral(text, start, &v);
    if (used == 0) return 0;
  }
  *value = negative ? -v : v;
  return used;
}

int32_t ParseIntegerGeneral(WideView text) {
  size_t i = 0;
  while (i < text.size() && IsSpace(text[i])) ++i;
  bool negative = false;
  if (i < text.size() && (text[i] == u'+' || text[i] == u'-')) negative = text[i++] == u'-';
  constexpr int64_t kLimit = int64_t{std::numeric_limits<int32_t>::max()} + 1;
  int64_t v = 0;
  for (; i < text.size() && text[i] >= u'0' && text[i] <= u'9'; ++i) v = std::min(v * 10 + (text[i] - u'0'), kLimit);
  if (negative) return static_cast<int32_t>(-v);
  return static_cast<int32_t>(std::min<int64_t>(v, kLimit - 1));
}

}  // namespace kavo::nmea
