// Bytes as hexadecimal digits and back, as pty_peer's command lines carry them.
#pragma once

#include <string>

namespace kavo::test {

inline std::string Hex(const std::string& bytes) {
  std::string out;
  for (unsigned char b : bytes) {
    out += "0123456789abcdef"[b >> 4];
    out += "0123456789abcdef"[b & 15];
  }
  return out;
}

inline std::string Unhex(const std::string& text) {
  std::string out;
  for (size_t i = 0; i + 1 < text.size(); i += 2) out += static_cast<char>(std::stoi(text.substr(i, 2), nullptr, 16));
  return out;
}

}  // namespace kavo::test
