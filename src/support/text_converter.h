// Conversion between bytes and 16-bit characters under the system code page,
// and UTF-8 decoding of one complete sequence.
#pragma once

#include <cstddef>
#include <cstdint>

namespace kavo {

class TextConverter {
 public:
  // One byte becomes one character. Returns the number written.
  size_t BytesToWide(const uint8_t* bytes, size_t count, char16_t* out) const;
  // One character becomes one byte; characters the code page lacks become
  // '?'. Returns the number written.
  size_t WideToBytes(const char16_t* text, size_t count, uint8_t* out) const;
  // Decodes one complete UTF-8 sequence of `count` (1 to 4) bytes into one
  // or two UTF-16 units; an invalid sequence gives U+FFFD. Returns the
  // number of units written.
  size_t Utf8SequenceToWide(const uint8_t* bytes, size_t count, char16_t out[2]) const;
};

}  // namespace kavo
