#include "sim/recording.h"

#include <cctype>

namespace kavo::sim {

std::optional<Encoding> ParseEncoding(std::string_view name) {
  std::string key;
  for (char c : name)
    if (c != '-' && c != '_') key += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  if (key == "ascii") return Encoding::kAscii;
  if (key == "utf8") return Encoding::kUtf8;
  if (key == "utf16le") return Encoding::kUtf16Le;
  if (key == "utf16be") return Encoding::kUtf16Be;
  return std::nullopt;
}

const char* EncodingName(Encoding encoding) {
  switch (encoding) {
    case Encoding::kAscii:
      return "ascii";
    case Encoding::kUtf8:
      return "utf8";
    case Encoding::kUtf16Le:
      return "utf16le";
    case Encoding::kUtf16Be:
      return "utf16be";
  }
  return "?";
}

std::string ByteOrderMark(Encoding encoding) {
  switch (encoding) {
    case Encoding::kUtf8:
      return "\xEF\xBB\xBF";
    case Encoding::kUtf16Le:
      return "\xFF\xFE";
    case Encoding::kUtf16Be:
      return "\xFE\xFF";
    case Encoding::kAscii:
      break;
  }
  return {};
}

std::string Encode(std::string_view text, Encoding encoding) {
  if (encoding == Encoding::kAscii) return std::string(text);
  std::string out;
  out.reserve(text.size() * 2);
  for (char c : text) {
    const auto code = static_cast<unsigned char>(c);
    switch (encoding) {
      case Encoding::kUtf8:
        if (code < 0x80) {
          out += c;
        } else {
          out += static_cast<char>(0xC0 | (code >> 6));
          out += static_cast<char>(0x80 | (code & 0x3F));
        }
        break;
      case Encoding::kUtf16Le:
        out += c;
        out += '\0';
        break;
      case Encoding::kUtf16Be:
        out += '\0';
        out += c;
        break;
      case Encoding::kAscii:
        break;
    }
  }
  return out;
}

RecordingWriter::RecordingWriter(std::ostream& out, Encoding encoding) : out_(out), encoding_(encoding) {
  out_ << ByteOrderMark(encoding);
}

void RecordingWriter::WriteLine(std::string_view line) { out_ << Encode(line, encoding_) << Encode("\r\n", encoding_); }

}  // namespace kavo::sim
