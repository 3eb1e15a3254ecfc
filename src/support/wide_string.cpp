#include "support/wide_string.h"

#include <algorithm>

#include "utf_conversion.h"

namespace kavo {
namespace {

char16_t LowerUnit(char16_t c) {
  if ((c >= u'A' && c <= u'Z') || (c >= 0xC0 && c <= 0xDE && c != 0xD7)) return c + 0x20;
  return c;
}

}  // namespace

size_t WideLength(const char16_t* text) {
  if (!text) return 0;
  size_t n = 0;
  while (text[n]) ++n;
  return n;
}

size_t CopyTruncated(char16_t* dest, size_t maxChars, const char16_t* source) {
  size_t n = 0;
  if (source) {
    while (n < maxChars && source[n]) {
      dest[n] = source[n];
      ++n;
    }
  }
  dest[n] = 0;
  return n;
}

WideString ToLower(WideView text) {
  WideString out(text);
  for (auto& c : out) c = LowerUnit(c);
  return out;
}

bool EqualsIgnoreCase(WideView a, WideView b) {
  return a.size() == b.size() &&
         std::equal(a.begin(), a.end(), b.begin(), [](char16_t x, char16_t y) { return LowerUnit(x) == LowerUnit(y); });
}

bool Contains(WideView haystack, WideView needle) { return haystack.find(needle) != WideView::npos; }

WideString FromUtf8(std::string_view text) { return unicode::Utf8ToUtf16(std::string(text)); }
std::string ToUtf8(WideView text) { return unicode::Utf16ToUtf8(WideString(text)); }

}  // namespace kavo
