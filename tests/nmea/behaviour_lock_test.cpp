// A lock on what the chunk path lets a caller observe, so that work on its
// speed cannot change a result: every callback, the copies and status after
// each chunk and every log line, for recordings fed in chunks of several
// sizes, go into one FNV-1a digest per recording and options, checked
// against the digests of the code as it stood before that work. A change
// meant to alter behaviour takes the new digests the failure prints.
#include <cstdio>
#include <fstream>
#include <iterator>

#include "nmea/gps_receiver.h"
#include "nmea_test_support.h"

namespace kavo::test {
namespace {

// Hears the receiver's listener calls and the log, in the order they come.
class Recorder : public ReceiverListener, public LogSink {
 public:
  void Add(const void* data, size_t size) {
    for (size_t i = 0; i < size; ++i) hash = (hash ^ static_cast<const uint8_t*>(data)[i]) * 0x100000001B3u;
  }
  void Add(char tag, uint32_t value) { Add(&tag, 1), Add(&value, sizeof value); }
  void Add(char tag, const char16_t* text) { Add(tag, uint32_t(WideLength(text))), Add(text, 2 * WideLength(text)); }
  // The digests predate the status and location the notifications carry.
  void OnDataChanged(uint32_t mask, const GPSLocation&) override { Add('D', mask); }
  void OnStatusChanged(int32_t) override { Add('S', 0u); }
  void OnSentence(const char16_t* text) override { Add('T', text); }
  int WriteText(const char16_t* text) override { return Add('L', text), 1; }
  int Flush() override { return 1; }
  uint64_t hash = 0xCBF29CE484222325u;
};

// Bytes as Latin-1, as on a single-byte code page.
WideString Widen(const std::string& bytes) {
  WideString text(bytes.size(), u'\0');
  for (size_t i = 0; i < bytes.size(); ++i) text[i] = static_cast<unsigned char>(bytes[i]);
  return text;
}

// Lines of every kind and several talkers with their checksums, each then
// damaged or not by a fixed pseudo-random sequence: a character changed (NUL too),
// dropped or doubled, the line cut short, a long run without a line feed, or
// the line padded to about the longest the framing keeps.
WideString Generated() {
  const char* const bodies[] = {"GPGGA,123519,4807.038,N,01131.000,E,1,08,0.9,545.4,M,46.9,M,,",
                                "GNGGA,235959.99,4807.038,S,01131.000,W,2,12,1.0,-5.4,M,-46.9,M,1.2,0001",
                                "GPRMC,123519,A,5130.038,N,00031.000,W,022.4,084.4,230394,003.1,W",
                                "GNRMC,000000.00,V,,,,,,,010100,,,N,V",
                                "GPGSA,A,3,04,05,,09,12,,,24,,,,,2.5,1.3,2.1",
                                "GPGSV,3,1,11,03,03,111,00,04,15,270,00,06,01,010,00,13,06,292,00",
                                "GPGSV,3,3,11,22,42,067,42,24,14,311,43,27,05,244,00,,,,",
                                "GLGSV,1,1,02,65,40,083,46,66,17,308,",
                                "GPVTG,054.7,T,034.4,M,005.5,N,010.2,K",
                                "GAVTG,,,,,,,,"};
  uint32_t seed = 22;
  const auto next = [&](size_t n) { return ((seed = seed * 1103515245u + 12345u) >> 16 & 0x7FFF) % n; };
  std::string text;
  for (int i = 0; i < 2500; ++i) {
    std::string line = std::string("$") + bodies[next(std::size(bodies))] + "*";
    uint8_t sum = 0;
    for (size_t k = 1; k + 1 < line.size(); ++k) sum ^= static_cast<uint8_t>(line[k]);
    line += "0123456789ABCDEF"[sum >> 4], line += "0123456789ABCDEF"[sum & 15], line += "\r\n";
    const size_t at = next(line.size()), damage = next(16);
    if (damage == 0) line[at] = "0,.*$A-\r\n9\xE9"[next(12)];
    if (damage == 1) line.erase(at, 1);
    if (damage == 2) line.insert(at, 1, line[at]);
    if (damage == 3) line.resize(at);
    if (damage == 4) line.insert(at, std::string(520 + next(200), 'x'));
    if (damage == 5)
      line.insert(line.find('*'), std::string(511 + next(6) - line.size(), '0'));  // near the leftover's limit
    text += line;
  }
  return Widen(text);
}

// A recording as the file playback reads it: its byte-order mark says
// UTF-16 or UTF-8. Empty when the file is missing.
WideString Recording(const std::string& name) {
  std::ifstream file(std::string(KAVOGPS_DATA_DIR "/") + name, std::ios::binary);
  const std::string bytes((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
  if (bytes.compare(0, 3, "\xEF\xBB\xBF") == 0) return FromUtf8(bytes.substr(3));
  if (bytes.compare(0, 2, "\xFF\xFE") != 0) return Widen(bytes);
  WideString text;
  for (size_t i = 2; i + 1 < bytes.size(); i += 2) text += char16_t(uint8_t(bytes[i]) | uint8_t(bytes[i + 1]) << 8);
  return text;
}

// In hex, as the table below spells it.
std::string Play(const WideString& text, const nmea::ReceiverOptions& options) {
  ManualClock clock;
  Ref<Recorder> recorder(new Recorder);
  const Ref<LogSink> previous = Logger::Instance().SetSink(Ref<LogSink>(recorder.get()));
  for (size_t chunk : {1, 61, 1024}) {
    Ref<GpsReceiver> receiver(new GpsReceiver(options));
    ListenerEntry entry(recorder.get());
    receiver->AddListener(&entry);
    CIMExceptionImpl error;
    EXPECT_EQ(receiver->Start(&error), 1);
    GPSLocation location{}, lastLocation{};
    GPSSatellites satellites{}, lastSatellites{};
    int32_t lastStatus = 0;
    for (size_t at = 0; at < text.size(); at += chunk) {
      clock.Advance(30);  // notifications are throttled, and 3 s without a sentence counts
      const WideString piece = text.substr(at, chunk);
      receiver->OnText(piece.c_str(), static_cast<uint32_t>(piece.size()));
      receiver->GetLocation(&location, &error);
      receiver->GetSatellitesInfo(&satellites, &error);
      const int32_t status = receiver->GetStatus();
      // Only what changed, with the chunk's place: the same information.
      if (!SameBits(&location, &lastLocation, sizeof location) ||
          !SameBits(&satellites, &lastSatellites, sizeof satellites) || status != lastStatus) {
        recorder->Add('C', static_cast<uint32_t>(at)), recorder->Add('s', static_cast<uint32_t>(status));
        recorder->Add(&location, sizeof location), recorder->Add(&satellites, sizeof satellites);
        lastLocation = location, lastSatellites = satellites, lastStatus = status;
      }
    }
  }
  Logger::Instance().SetSink(previous);
  char hex[24];
  std::snprintf(hex, sizeof hex, "0x%016llX", static_cast<unsigned long long>(recorder->hash));
  return hex;
}

TEST(BehaviourLock, RecordingsThroughTheChunkPathGiveWhatTheyGaveBefore) {
  nmea::ReceiverOptions all;
  all.SetTalkers("GP,GN,GL,GA,GB,BD,GQ,QZ");
  all.SetChecksums("verify");
  const char* const expected[][3] = {{"walk.nmea", "0x2B39B06A506B0CD7", "0x2B39B06A506B0CD7"},
                                     {"drive-utf16le.nmea", "0x0A1EE717AC41C036", "0xD6F8165C1F491562"},
                                     {"noisy-drive.nmea", "0xC056383662699367", "0xC9C3F3DE07ADE61F"},
                                     {"multi-gnss.nmea", "0x2CF03800433869C5", "0xA2EDD2F2D3498D77"},
                                     {"generated", "0xD90EB68717923C8A", "0x2BD54462696D81B6"}};
  for (const auto& [name, defaults, allTalkers] : expected) {
    const WideString text = name == std::string("generated") ? Generated() : Recording(name);
    ASSERT_GT(text.size(), 100000u) << name << " not found in " KAVOGPS_DATA_DIR;
    EXPECT_EQ(Play(text, nmea::ReceiverOptions()), defaults) << name << ", default options";
    EXPECT_EQ(Play(text, all), allTalkers) << name << ", all talkers, checksums verified";
  }
}

}  // namespace
}  // namespace kavo::test
