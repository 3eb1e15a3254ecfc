// The standard .reg text format ("Windows Registry Editor Version 5.00"),
// read into a hive: [KEY] and [-KEY] sections, "Name"= and @= values as
// strings, dword:, hex: and hex(n):, "Name"=- deletions, ; comments and
// lines continued by a trailing backslash.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "platform/posix/registry/hive.h"

namespace kavo::platform::posix {

struct RegFileError {
  size_t line = 0;  // from 1; the first line of a continued one
  std::u16string reason;
};

// Applies the file's text to `hive`. Stops at the first malformed line and
// returns false with `error` filled; what came before it stays applied.
bool ParseRegText(std::u16string_view text, RegistryHive& hive, RegFileError* error);

// A file's bytes as text: UTF-16 LE with its byte-order mark, else UTF-8
// (or plain ASCII) with or without one.
std::u16string DecodeRegFileBytes(const std::string& bytes);

}  // namespace kavo::platform::posix
