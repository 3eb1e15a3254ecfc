#include "session/gps_library.h"

#include <filesystem>

namespace kavo::cli {

// std::filesystem::path converts between the system's narrow encoding
// (UTF-8 here, the ANSI code page on Windows) and UTF-16, which is exactly
// the conversion command-line text and file names need.
LibraryText ToLibraryText(const std::string& text) {
  std::u16string wide;
  try {
    wide = std::filesystem::path(text).u16string();
  } catch (const std::exception&) {
    for (unsigned char c : text) wide += static_cast<char16_t>(c);  // not valid UTF-8: bytes as Latin-1
  }
  return LibraryText(wide.begin(), wide.end());
}

namespace {

// Text with characters beyond ASCII, `ascii` of them plain first.
std::string Converted(const KavoChar* text, size_t ascii) {
  std::u16string wide(text, text + ascii);
  text += ascii;
  for (; *text; ++text) wide += static_cast<char16_t>(*text);
  try {
    return std::filesystem::path(wide).u8string();
  } catch (const std::exception&) {
    std::string replaced;
    for (char16_t c : wide) replaced += c < 0x80 ? static_cast<char>(c) : '?';
    return replaced;
  }
}

}  // namespace

void AssignLibraryText(const KavoChar* text, std::string* out) {
  out->clear();
  if (!text) return;
  // Sentences and most names are plain ASCII: copied as they are, in a
  // loop the compiler can widen once the length is known.
  size_t length = 0;
  KavoChar bits = 0;
  for (; text[length]; ++length) bits |= text[length];
  if (bits >= 0x80) {
    size_t ascii = 0;
    while (text[ascii] < 0x80) ++ascii;
    *out = Converted(text, ascii);
    return;
  }
  out->resize(length);
  char* narrow = out->data();
  for (size_t i = 0; i < length; ++i) narrow[i] = static_cast<char>(text[i]);
}

std::string FromLibraryText(const KavoChar* text) {
  std::string narrow;
  AssignLibraryText(text, &narrow);
  return narrow;
}

}  // namespace kavo::cli
