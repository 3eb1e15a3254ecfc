// Helpers for the library's 16-bit (UTF-16) text.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace kavo {

using WideString = std::u16string;
using WideView = std::u16string_view;

// Length of a zero-terminated string; 0 for nullptr.
size_t WideLength(const char16_t* text);

// Copies at most `maxChars` characters of `source` (nullptr counts as empty)
// into `dest` and always terminates it; `dest` holds maxChars + 1 units.
// Returns the number copied.
size_t CopyTruncated(char16_t* dest, size_t maxChars, const char16_t* source);

// Lower-cases ASCII and Latin-1 letters, as the port-name correction needs.
WideString ToLower(WideView text);

bool EqualsIgnoreCase(WideView a, WideView b);
bool Contains(WideView haystack, WideView needle);

// UTF-8 <-> UTF-16 for paths, tests and tools; malformed input becomes
// U+FFFD.
WideString FromUtf8(std::string_view text);
std::string ToUtf8(WideView text);

}  // namespace kavo
