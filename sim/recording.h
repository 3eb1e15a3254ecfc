// Recordings of NMEA text in the encodings a playback reads: single-byte,
// and UTF-8, UTF-16 LE and UTF-16 BE each with a byte-order mark. Lines end
// in CR LF. Text is given as Latin-1 bytes, so the stray bytes of a damaged
// line become the same characters in every encoding.
#pragma once

#include <optional>
#include <ostream>
#include <string>
#include <string_view>

namespace kavo::sim {

enum class Encoding { kAscii, kUtf8, kUtf16Le, kUtf16Be };

// "ascii", "utf8", "utf16le", "utf16be" (also with a dash: "utf-8"...).
std::optional<Encoding> ParseEncoding(std::string_view name);
const char* EncodingName(Encoding encoding);

std::string ByteOrderMark(Encoding encoding);
// `text` (Latin-1) in `encoding`, without a byte-order mark.
std::string Encode(std::string_view text, Encoding encoding);

// Writes a recording to a stream: the byte-order mark first, then one line
// at a time.
class RecordingWriter {
 public:
  RecordingWriter(std::ostream& out, Encoding encoding);
  void WriteLine(std::string_view line);  // adds CR LF
  bool Good() const { return out_.good(); }

 private:
  std::ostream& out_;
  Encoding encoding_;
};

}  // namespace kavo::sim
