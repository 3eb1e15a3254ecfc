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
  size_t length = 0;
  while (text[length]) ++length;
  std::string ascii;  // sentences and most names: nothing to convert
  ascii.reserve(length);
  for (; *text && *text < 0x80; ++text) ascii += static_cast<char>(*text);
  if (!*text) return ascii;
  std::u16string wide(ascii.begin(), ascii.end());
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
