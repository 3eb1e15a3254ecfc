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

std::string FromLibraryText(const KavoChar* text) {
  if (!text) return {};
  size_t ascii = 0;  // sentences and most names: nothing to convert
  while (text[ascii] && text[ascii] < 0x80) ++ascii;
  if (!text[ascii]) {
    std::string narrow(ascii, '\0');
    for (size_t i = 0; i < ascii; ++i) narrow[i] = static_cast<char>(text[i]);
    return narrow;
  }
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

}  // namespace kavo::cli
