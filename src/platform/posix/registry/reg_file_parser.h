// A .reg file's text (src/shared/reg_file_syntax.h) read into a hive.
#pragma once

#include <string>
#include <string_view>

#include "platform/posix/registry/hive.h"
#include "reg_file_syntax.h"

namespace kavo::platform::posix {

using RegFileError = regfile::Error;

// Applies the file's text to `hive`. Stops at the first malformed line and
// returns false with `error` filled; what came before it stays applied.
bool ParseRegText(std::u16string_view text, RegistryHive& hive, RegFileError* error);

// A file's bytes as text: UTF-16 LE with its byte-order mark, else UTF-8
// (or plain ASCII) with or without one.
inline std::u16string DecodeRegFileBytes(const std::string& bytes) { return regfile::Decode(bytes); }

}  // namespace kavo::platform::posix
