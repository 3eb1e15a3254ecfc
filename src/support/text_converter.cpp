#include "support/text_converter.h"

#include "platform/platform.h"
#include "utf_conversion.h"

namespace kavo {

size_t TextConverter::BytesToWide(const uint8_t* bytes, size_t count, char16_t* out) const {
  return platform::CodePageToWide(bytes, count, out);
}

size_t TextConverter::WideToBytes(const char16_t* text, size_t count, uint8_t* out) const {
  return platform::WideToCodePage(text, count, out);
}

size_t TextConverter::Utf8SequenceToWide(const uint8_t* bytes, size_t count, char16_t out[2]) const {
  const std::u16string units = unicode::Utf8ToUtf16(std::string(reinterpret_cast<const char*>(bytes), count));
  // A sequence decodes to one code point; anything else was malformed.
  if (units.size() == 2 && units[0] >= 0xD800 && units[0] <= 0xDBFF) {
    out[0] = units[0];
    out[1] = units[1];
    return 2;
  }
  out[0] = units.size() == 1 ? units[0] : u'\xFFFD';
  return 1;
}

}  // namespace kavo
