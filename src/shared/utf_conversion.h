// UTF-8 <-> UTF-16. Header-only and free of everything else in the code
// base, so the library (paths on POSIX, .reg and .ini files), the kavogps
// tool and the tests compile this one copy. Malformed input becomes U+FFFD.
#pragma once

#include <string>

namespace kavo::unicode {
namespace detail {

constexpr char32_t kReplacement = 0xFFFD;

inline void AppendUtf8(std::string& out, char32_t cp) {
  if (cp < 0x80) {
    out += static_cast<char>(cp);
  } else if (cp < 0x800) {
    out += static_cast<char>(0xC0 | (cp >> 6));
    out += static_cast<char>(0x80 | (cp & 0x3F));
  } else if (cp < 0x10000) {
    out += static_cast<char>(0xE0 | (cp >> 12));
    out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (cp & 0x3F));
  } else {
    out += static_cast<char>(0xF0 | (cp >> 18));
    out += static_cast<char>(0x80 | ((cp >> 12) & 0x3F));
    out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (cp & 0x3F));
  }
}

inline void AppendUtf16(std::u16string& out, char32_t cp) {
  if (cp < 0x10000) {
    out += static_cast<char16_t>(cp);
  } else {
    cp -= 0x10000;
    out += static_cast<char16_t>(0xD800 + (cp >> 10));
    out += static_cast<char16_t>(0xDC00 + (cp & 0x3FF));
  }
}

}  // namespace detail

inline std::string Utf16ToUtf8(const std::u16string& text) {
  std::string out;
  out.reserve(text.size());
  for (size_t i = 0; i < text.size(); ++i) {
    char32_t unit = text[i];
    if (unit >= 0xD800 && unit <= 0xDBFF && i + 1 < text.size() && text[i + 1] >= 0xDC00 && text[i + 1] <= 0xDFFF) {
      detail::AppendUtf8(out, 0x10000 + ((unit - 0xD800) << 10) + (text[++i] - 0xDC00));
    } else if (unit >= 0xD800 && unit <= 0xDFFF) {
      detail::AppendUtf8(out, detail::kReplacement);
    } else {
      detail::AppendUtf8(out, unit);
    }
  }
  return out;
}

inline std::u16string Utf8ToUtf16(const std::string& text) {
  std::u16string out;
  out.reserve(text.size());
  size_t i = 0;
  while (i < text.size()) {
    const unsigned char lead = static_cast<unsigned char>(text[i]);
    size_t length = lead < 0x80 ? 1 : lead >= 0xF0 && lead <= 0xF4 ? 4 : lead >= 0xE0 ? 3 : lead >= 0xC2 ? 2 : 0;
    if (length == 0 || lead > 0xF4) {
      out += static_cast<char16_t>(detail::kReplacement);
      ++i;
      continue;
    }
    char32_t cp = length == 1 ? lead : lead & (0xFF >> (length + 1));
    size_t got = 1;
    for (; got < length && i + got < text.size(); ++got) {
      const unsigned char next = static_cast<unsigned char>(text[i + got]);
      if ((next & 0xC0) != 0x80) break;
      cp = (cp << 6) | (next & 0x3F);
    }
    const bool overlong = (length == 3 && cp < 0x800) || (length == 4 && cp < 0x10000);
    if (got != length || overlong || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) {
      out += static_cast<char16_t>(detail::kReplacement);
      i += got;
      continue;
    }
    detail::AppendUtf16(out, cp);
    i += length;
  }
  return out;
}

}  // namespace kavo::unicode
