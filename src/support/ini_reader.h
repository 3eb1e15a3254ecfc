// Reads one string key of one section of an initialisation file, as
// GetPrivateProfileStringW would (Windows CE has no such function).
#pragma once

#include <cstddef>
#include <string>

namespace kavo {

// Copies the value of `key` in `[section]` (names matched ignoring case,
// spaces around '=' and the value trimmed, ';' and '#' lines ignored) or
// `defaultValue` into `buffer` of `length` characters, cut to fit and
// terminated. Returns the number of characters copied: the default's length
// (0 for an empty default) when the file or the key is missing.
size_t ReadIniString(const std::u16string& path, const std::u16string& section, const std::u16string& key,
                     const char16_t* defaultValue, char16_t* buffer, size_t length);

}  // namespace kavo
