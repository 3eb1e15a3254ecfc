// Receiver options: how they are read, and what they change in the chunk
// path. The defaults must leave the contract's behaviour exactly as it is.
#include <fstream>
#include <iterator>

#include "common/environment.h"
#include "common/temp_dir.h"
#include "nmea/receiver_options.h"
#include "nmea_test_support.h"

namespace kavo::test {
namespace {

using nmea::ChecksumMode;
using nmea::ReceiverOptions;

bool AcceptsAll(const ReceiverOptions& options, const std::string& ids) {
  for (size_t i = 0; i + 1 < ids.size(); i += 2)
    if (!options.Accepts(ids[i], ids[i + 1])) return false;
  return true;
}

TEST(ReceiverOptions, TalkerListsAndChecksumModesAreCheckedBeforeUse) {
  const struct {
    const char* list;
    bool valid;
    const char* accepted;  // pairs of letters
    const char* refused;
  } talkers[] = {
      {"GP", true, "GP", "GN"},          {" gn , GL,GP,GP ", true, "GNGLGP", "GAGB"},
      {"BD", true, "BD", "GP"},          {"", false, "GP", "GN"},
      {"GPS", false, "GP", "GN"},        {"G1", false, "GP", "G1"},
      {"GP,,GN", false, "GP", "GN"},     {"GP,GN,GL,GA,GB,BD,GQ,QZ,GI,GC,AA,AB,AC,AD,AE,AF,AG", false, "GP", "GN"},
  };
  for (const auto& t : talkers) {
    SCOPED_TRACE(t.list);
    ReceiverOptions options;
    EXPECT_EQ(options.SetTalkers(t.list), t.valid);
    EXPECT_TRUE(AcceptsAll(options, t.accepted));
    for (size_t i = 0; t.refused[i]; i += 2) EXPECT_FALSE(options.Accepts(t.refused[i], t.refused[i + 1]));
    EXPECT_EQ(options.MergesConstellations(), std::string(t.accepted) != "GP");
    EXPECT_EQ(options.HasAcceptedTalker(u"noise$GP"), options.Accepts(u'G', u'P'));
    EXPECT_FALSE(options.HasAcceptedTalker(u"GPGGA $G"));
  }
  const struct { const char* name; bool valid; ChecksumMode mode; } modes[] = {
      {"verify", true, ChecksumMode::kVerify}, {" REQUIRE ", true, ChecksumMode::kRequire},
      {"Ignore", true, ChecksumMode::kIgnore}, {"strict", false, ChecksumMode::kVerify}};
  for (const auto& m : modes) {
    ReceiverOptions options;
    options.SetChecksums("verify");
    EXPECT_EQ(options.SetChecksums(m.name), m.valid) << m.name;
    EXPECT_EQ(options.Checksums(), m.mode) << m.name;
  }
}

TEST(ReceiverOptions, ReadFromTheIniBesideTheLibraryAndTheEnvironmentWhichWins) {
  const struct {
    const char* ini;  // [Receiver] lines; null: no file
    const char* talkers;
    const char* checksums;  // environment; null: not set
    const char* accepted;
    const char* refused;
    ChecksumMode mode;
    std::vector<std::string> logged;
  } cases[] = {
      {"Talkers=GP,GN\r\nChecksums=verify", nullptr, nullptr, "GPGN", "GL", ChecksumMode::kVerify, {}},
      {"Talkers=GP,GN\r\nChecksums=verify", "GL", "require", "GL", "GPGN", ChecksumMode::kRequire, {}},
      {nullptr, "GA,GB", "", "GAGB", "GP", ChecksumMode::kIgnore, {}},
      {"Talkers=G\r\nChecksums=sometimes", nullptr, nullptr, "GP", "GN", ChecksumMode::kIgnore,
       {"Talkers=G is not valid", "Checksums=sometimes is not valid"}},
      {"Talkers=GN\r\nChecksums=verify", "X,Y", "yes", "GP", "GN", ChecksumMode::kIgnore,
       {"KAVOGPS_TALKERS=X,Y is not valid", "KAVOGPS_CHECKSUMS=yes is not valid"}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.ini ? c.ini : "no file");
    TempDir dir;
    if (c.ini) dir.Write("KavoMobileGPS.ini", std::string("[Logger]\r\n[Receiver]\r\n") + c.ini + "\r\n");
    const ScopedEnvironment talkers("KAVOGPS_TALKERS", c.talkers ? c.talkers : "");
    const ScopedEnvironment checksums("KAVOGPS_CHECKSUMS", c.checksums ? c.checksums : "");
    LogCapture log;
    const ReceiverOptions options = nmea::ReadReceiverOptions(dir.WideFile("KavoMobileGPS.ini"));
    EXPECT_TRUE(AcceptsAll(options, c.accepted));
    EXPECT_FALSE(options.Accepts(c.refused[0], c.refused[1]));
    EXPECT_EQ(options.Checksums(), c.mode);
    std::string text = log.Utf8();
    for (const std::string& line : c.logged) {  // each bad value once, with its key
      EXPECT_NE(text.find(line), std::string::npos) << text;
      EXPECT_EQ(text.find(line), text.rfind(line)) << text;
    }
    if (c.logged.empty()) {
      EXPECT_EQ(text, "");
    }
  }
}

std::string WithChecksum(const std::string& body) {
  unsigned sum = 0;
  for (char c : body) sum ^= static_cast<unsigned char>(c);
  static const char kHex[] = "0123456789abcdef";  // lower case is read too
  return "$" + body + "*" + kHex[sum >> 4] + kHex[sum & 15];
}

TEST_F(StoreTest, ChecksumsAreCheckedOnlyWhenAskedAndAMissingOneOnlyWhenRequired) {
  const std::string body = "GPGGA,123519,4807.038,N,01131.000,E,1,08,0.9,545.4,M,46.9,M,,";
  const std::string good = WithChecksum(body);
  const std::vector<std::string> wrong = {
      "$" + body + "*00", good + "x", "$" + body + "*4", "$GPGGA,123519,4807.038,N,01131.000,E,1,08,0.9,545.4,\xC5\x8D,46.9,M,,*47"};
  const struct { const char* mode; bool wrongRead, missingRead; } modes[] = {
      {"ignore", true, true}, {"verify", false, true}, {"require", false, false}};
  for (const auto& m : modes) {
    SCOPED_TRACE(m.mode);
    ReceiverOptions options;
    options.SetChecksums(m.mode);
    nmea::ReceiverStateStore store(options);
    store.Reset();
    auto read = [&](const std::string& line) {
      store.ProcessChunk(W(line + "\r\n"));
      return store.RecognisedSentences().Count() == 1;
    };
    EXPECT_TRUE(read(good));
    for (const std::string& line : wrong) EXPECT_EQ(read(line), m.wrongRead) << line;
    EXPECT_EQ(read("$" + body), m.missingRead);
    EXPECT_EQ(log_.Contains(u"Wrong checksum: $GPGGA"), !m.wrongRead);
    EXPECT_EQ(log_.Contains(u"Missing checksum: $GPGGA"), !m.missingRead);
  }
}

// Fourteen in view over three talkers: the four the solution uses stay
// however weak, then the strongest; Galileo 5 appears once as 305, with
// its stronger signal; a talker that stops reporting is gone an epoch later.
TEST_F(StoreTest, MergedSkyKeepsTheUsedFirstAndDropsASilentTalker) {
  ReceiverOptions options;
  options.SetTalkers("GP,GN,GL,GA");
  nmea::ReceiverStateStore store(options);
  store.Reset();
  const std::vector<std::string> gps = {
      "$GPGSV,3,1,11,01,10,010,10,02,10,020,11,03,10,030,12,04,40,040,30,1",
      "$GPGSV,3,2,11,06,40,060,31,07,40,070,32,08,40,080,33,09,40,090,34,1",
      "$GPGSV,3,3,11,10,40,100,35,11,40,110,36,12,40,120,37,1"};
  const std::vector<std::string> others = {
      "$GLGSV,1,1,01,70,50,200,45,1", "$GAGSV,1,1,02,05,30,300,15,06,30,310,39,7",
      "$GAGSV,1,1,01,05,30,300,20,1"};
  auto feed = [&](const std::vector<std::string>& lines) {
    std::string text;
    for (const std::string& line : lines) text += line + "\r\n";
    store.ProcessChunk(W(text));
  };
  auto table = [&] {
    std::vector<std::pair<int, int>> entries;  // number, SNR
    for (int i = 0; i < store.Satellites().Count; ++i)
      entries.emplace_back(store.Satellites().Satellites[i].PRN, store.Satellites().Satellites[i].SNR);
    return entries;
  };
  feed({"$GNGSA,A,3,01,02,03,,,,,,,,,,1.5,0.9,1.2,1", "$GNGSA,A,3,05,,,,,,,,,,,,1.5,0.9,1.2,3"});
  feed(gps);
  feed(others);
  const std::vector<std::pair<int, int>> full = {{1, 10},  {2, 11},  {3, 12},  {7, 32},
                                                 {8, 33},  {9, 34},  {10, 35}, {11, 36},
                                                 {12, 37}, {70, 45}, {305, 20}, {306, 39}};
  EXPECT_EQ(table(), full);
  EXPECT_TRUE(log_.Contains(u"Satellites in view: 14, 12 kept")) << log_.Utf8();
  EXPECT_EQ(store.Location().HDOP, 0.9);
  feed(gps);  // the next epoch, without GLONASS: the table waits for it
  feed({others[1], others[2]});
  EXPECT_EQ(table(), full);
  feed(gps);
  EXPECT_EQ(store.Satellites().Count, 12);
  for (const auto& [number, snr] : table()) EXPECT_NE(number, 70);
}

// The bundled modern receiver's recording under default options gives
// exactly what its "$GP" lines alone give: nothing of GN, GL, GA or GB.
TEST_F(StoreTest, DefaultOptionsReadOnlyTheGpsTalkerOfAModernRecording) {
  const std::string here = __FILE__;
  std::ifstream file(here.substr(0, here.find_last_of("/\\")) + "/../../data/multi-gnss.nmea", std::ios::binary);
  ASSERT_TRUE(file.is_open());
  nmea::ReceiverStateStore gpsOnly;
  gpsOnly.Reset();
  size_t others = 0;
  for (std::string line; std::getline(file, line);) {
    store_.ProcessChunk(W(line + "\n"));
    const bool gps = line.compare(0, 3, "$GP") == 0;
    if (gps) gpsOnly.ProcessChunk(W(line + "\n"));
    others += gps ? 0 : 1;
    ASSERT_TRUE(SameBits(&Location(), &gpsOnly.Location(), sizeof(GPSLocation))) << line;
    ASSERT_TRUE(SameBits(&Satellites(), &gpsOnly.Satellites(), sizeof(GPSSatellites))) << line;
    ASSERT_EQ(store_.UpdateMask(), gps ? gpsOnly.UpdateMask() : 0u) << line;
  }
  EXPECT_GT(others, 1000u);
  EXPECT_EQ(Location().ValidFlags, 0u) << std::hex << Location().ValidFlags;  // its fixes are all "GN"
  EXPECT_GT(Satellites().Count, 0);
}

}  // namespace
}  // namespace kavo::test
