#include "nmea/number_conversion.h"

#include <charconv>
#include <cmath>
#include <cstring>
#include <limits>
#include <string>

namespace kavo::nmea {
namespace {

// The "C" locale's white space; no other unit is skipped.
bool IsSpace(char16_t c) { return c == u' ' || (c >= u'\t' && c <= u'\r'); }

bool IsDecimalDigit(char c) { return c >= '0' && c <= '9'; }
bool IsHexDigit(char c) {
  return IsDecimalDigit(c) || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}
int DigitValue(char c) {
  if (IsDecimalDigit(c)) return c - '0';
  return (c | 0x20) - 'a' + 10;
}

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
bool Overflows(const char* p, const char* end, bool hex) {
  const int64_t weight = hex ? 4 : 1;  // bits or decimal places per digit
  auto isDigit = hex ? IsHexDigit : IsDecimalDigit;
  int64_t magnitude = 0;
  bool significant = false;
  while (p < end && *p == '0') ++p;
  for (; p < end && isDigit(*p); ++p) {
    magnitude += weight;
    significant = true;
  }
  if (p < end && *p == '.') {
    ++p;
    for (; !significant && p < end && *p == '0'; ++p) magnitude -= weight;
    while (p < end && isDigit(*p)) ++p;
  }
  if (p < end && (*p | 0x20) == (hex ? 'p' : 'e')) {
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

// Unsigned number with the base taken from its prefix ("0x" hex, "0"
// octal, else decimal), saturating; false unless it spans [p, end) whole.
bool ParseUnsignedAnyBase(const char* p, const char* end, uint64_t* value) {
  int base = 10;
  if (end - p >= 3 && p[0] == '0' && (p[1] | 0x20) == 'x' && IsHexDigit(p[2])) {
    base = 16;
    p += 2;
  } else if (p < end && *p == '0') {
    base = 8;
  }
  uint64_t v = 0;
  bool saturated = false;
  for (; p < end; ++p) {
    if (!IsHexDigit(*p) || DigitValue(*p) >= base) return false;
    const uint64_t digit = static_cast<uint64_t>(DigitValue(*p));
    if (v > (std::numeric_limits<uint64_t>::max() - digit) / static_cast<uint64_t>(base))
      saturated = true;
    v = v * static_cast<uint64_t>(base) + digit;
  }
  *value = saturated ? std::numeric_limits<uint64_t>::max() : v;
  return true;
}

// "nan(n)" carries n in the low 51 bits of the quiet NaN, as the C library
// puts it there; anything else in the parentheses leaves the plain NaN.
double NanPayload(const char* begin, const char* end, double nan) {
  if (end - begin < 2 || end[-1] != ')') return nan;
  const char* open = static_cast<const char*>(std::memchr(begin, '(', static_cast<size_t>(end - begin)));
  uint64_t payload = 0;
  if (!open || !ParseUnsignedAnyBase(open + 1, end - 1, &payload)) return nan;
  uint64_t bits = 0;
  std::memcpy(&bits, &nan, sizeof bits);
  bits = (bits & ~((uint64_t{1} << 51) - 1)) | (payload & ((uint64_t{1} << 51) - 1));
  double result = 0.0;
  std::memcpy(&result, &bits, sizeof result);
  return result;
}

// Converts an unsigned number at [begin, end); returns where it stopped
// (begin when nothing converts).
const char* Convert(const char* begin, const char* end, bool hex, double* value) {
  if (begin == end || *begin == '-' || *begin == '+') return begin;  // one sign only
  const auto format = hex ? std::chars_format::hex : std::chars_format::general;
  const auto result = std::from_chars(begin, end, *value, format);
  if (result.ec == std::errc::invalid_argument) return begin;
  if (result.ec == std::errc::result_out_of_range)
    *value = Overflows(begin, result.ptr, hex) ? HUGE_VAL : 0.0;
  else if (std::isnan(*value))
    *value = NanPayload(begin, result.ptr, *value);
  return result.ptr;
}

}  // namespace

size_t ParseDouble(WideView text, double* value) {
  *value = 0.0;
  size_t start = 0;
  while (start < text.size() && IsSpace(text[start])) ++start;
  bool negative = false;
  if (start < text.size() && (text[start] == u'+' || text[start] == u'-')) {
    negative = text[start] == u'-';
    ++start;
  }
  const AsciiCopy ascii(text.substr(start));
  const char* begin = ascii.begin();
  const char* end = ascii.end();
  double v = 0.0;
  const char* stop;
  if (end - begin >= 2 && begin[0] == '0' && (begin[1] | 0x20) == 'x') {
    // "0x" without hex digits after it is the number 0; nor may the words
    // "inf" and "nan" follow it.
    const char* digits = begin + 2;
    const bool hexDigits = (digits < end && IsHexDigit(*digits)) ||
                           (end - digits >= 2 && digits[0] == '.' && IsHexDigit(digits[1]));
    stop = hexDigits ? Convert(digits, end, true, &v) : digits;
    if (stop == digits) {
      v = 0.0;
      stop = begin + 1;
    }
  } else {
    stop = Convert(begin, end, false, &v);
  }
  if (stop == begin) return 0;
  *value = negative ? -v : v;
  return start + static_cast<size_t>(stop - begin);
}

int32_t ParseInteger(WideView text) {
  size_t i = 0;
  while (i < text.size() && IsSpace(text[i])) ++i;
  bool negative = false;
  if (i < text.size() && (text[i] == u'+' || text[i] == u'-')) negative = text[i++] == u'-';
  constexpr int64_t kLimit = int64_t{std::numeric_limits<int32_t>::max()} + 1;
  int64_t v = 0;
  for (; i < text.size() && text[i] >= u'0' && text[i] <= u'9'; ++i)
    v = std::min(v * 10 + (text[i] - u'0'), kLimit);
  if (negative) return static_cast<int32_t>(-v);
  return static_cast<int32_t>(std::min<int64_t>(v, kLimit - 1));
}

}  // namespace kavo::nmea
