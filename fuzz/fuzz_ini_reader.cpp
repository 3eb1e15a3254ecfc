// The .ini reader on arbitrary file contents: the section and key asked
// for come from the input's first line, the rest is the file. Whatever the
// file, the answer fits the buffer, is terminated, and its length is the
// one returned; a missing key gives the default. The receiver options read
// from the same file are the ones its [Receiver] values name, or the
// defaults for a value the setters refuse.
#include <unistd.h>

#include <cstdio>
#include <string>

#include "fuzz_support.h"
#include "nmea/receiver_options.h"
#include "platform/platform.h"
#include "support/ini_reader.h"
#include "support/wide_string.h"
#include "utf_conversion.h"

namespace {

const std::string& ScratchFile() {
  static const std::string path = "/tmp/fuzz_ini_reader." + std::to_string(getpid()) + ".ini";
  return path;
}

std::string ReceiverValue(const std::u16string& path, const char16_t* key) {
  char16_t value[260];
  kavo::ReadIniString(path, u"Receiver", key, u"", value, 260);
  return kavo::ToUtf8(value);
}

void CheckReceiverOptions(const std::u16string& path) {
  using kavo::nmea::ReceiverOptions;
  static const bool fromFileOnly = unsetenv("KAVOGPS_TALKERS") == 0 && unsetenv("KAVOGPS_CHECKSUMS") == 0;
  FUZZ_CHECK(fromFileOnly);
  const ReceiverOptions read = kavo::nmea::ReadReceiverOptions(path);
  ReceiverOptions expected;
  const bool talkersTaken = expected.SetTalkers(ReceiverValue(path, u"Talkers"));
  expected.SetChecksums(ReceiverValue(path, u"Checksums"));
  FUZZ_CHECK(read.Checksums() == expected.Checksums());
  FUZZ_CHECK(read.ReadsMixedStreams() == expected.ReadsMixedStreams());
  size_t accepted = 0;
  for (char16_t first = u' '; first < 0x80; ++first)
    for (char16_t second = u' '; second < 0x80; ++second) {
      FUZZ_CHECK(read.Accepts(first, second) == expected.Accepts(first, second));
      if (!read.Accepts(first, second)) continue;
      FUZZ_CHECK(first >= u'A' && first <= u'Z' && second >= u'A' && second <= u'Z');
      ++accepted;
    }
  FUZZ_CHECK(accepted >= 1 && accepted <= ReceiverOptions::kMaxTalkers);
  if (!talkersTaken) FUZZ_CHECK(accepted == 1 && read.Accepts(u'G', u'P'));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  kavo::fuzz::QuietFixedWorld();
  const std::string input(reinterpret_cast<const char*>(data), size);
  const size_t newline = input.find('\n');
  const std::string query = input.substr(0, newline);
  const std::string content = newline == std::string::npos ? std::string() : input.substr(newline + 1);
  const size_t equals = query.find('=');
  const std::u16string section = kavo::unicode::Utf8ToUtf16(query.substr(0, equals));
  const std::u16string key =
      kavo::unicode::Utf8ToUtf16(equals == std::string::npos ? std::string() : query.substr(equals + 1));

  FILE* file = std::fopen(ScratchFile().c_str(), "wb");
  FUZZ_CHECK(file != nullptr);
  FUZZ_CHECK(std::fwrite(content.data(), 1, content.size(), file) == content.size());
  std::fclose(file);

  const std::u16string path = kavo::unicode::Utf8ToUtf16(ScratchFile());
  for (size_t length : {size_t{1}, size_t{8}, size_t{260}}) {
    char16_t buffer[260];
    for (auto& c : buffer) c = u'#';
    const size_t n = kavo::ReadIniString(path, section, key, u"default", buffer, length);
    FUZZ_CHECK(n < length);
    FUZZ_CHECK(buffer[n] == 0);
    FUZZ_CHECK(kavo::WideLength(buffer) <= n);  // an embedded NUL may end it sooner
    for (size_t i = length; i < 260; ++i) FUZZ_CHECK(buffer[i] == u'#');
  }
  CheckReceiverOptions(path);
  // Without the file, the default, cut to the buffer.
  unlink(ScratchFile().c_str());
  char16_t small[4];
  FUZZ_CHECK(kavo::ReadIniString(path, section, key, u"default", small, 4) == 3);
  FUZZ_CHECK(std::u16string(small) == u"def");
  return 0;
}
