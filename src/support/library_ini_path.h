// Where the library's configuration lies: the .ini file beside the library
// itself, which configures the log and the receiver options.
#pragma once

#include <cstddef>

#include "support/wide_string.h"

namespace kavo {

// MAX_PATH: the longest path the library builds or reads from its .ini.
constexpr size_t kMaxPath = 260;

// The library's path with the extension of its file name replaced by
// ".ini" (empty when that is 260 characters or longer).
WideString LibraryIniPath(const WideString& modulePath);

}  // namespace kavo
