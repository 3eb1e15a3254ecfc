// Receiver options: how they are read, and what they change in the chunk path.
#include <algorithm>

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

TEST(ReceiverOptions, TalkerListsAreCheckedBeforeUse) {
  const std::pair<const char*, bool> lists[] = {{"GP", true},
                                                {" gn , GL,GP,GP ", true},
                                                {"", false},
                                                {"GPS", false},
                                                {"G1", false},
                                                {"GP,,GN", false},
                                                {"GP,GN,GL,GA,GB,BD,GQ,QZ,GI,GC,AA,AB,AC,AD,AE,AF,AG", false}};
  for (const auto& [list, valid] : lists) {
    ReceiverOptions options;
    options.SetTalkers("GA");
    EXPECT_EQ(options.SetTalkers(list), valid) << list;
    EXPECT_EQ(options.Accepts(u'G', u'A'), !valid) << list;  // a bad list changes nothing
  }
  ReceiverOptions defaults, several;
  several.SetTalkers(" gn , GL,GP,GP ");
  EXPECT_TRUE(AcceptsAll(several, "GNGLGP") && !several.Accepts(u'G', u'A') && several.MergesConstellations());
  EXPECT_TRUE(defaults.HasAcceptedTalker(u"noise$GPGGA") && several.HasAcceptedTalker(u"$GNRMC"));
  EXPECT_FALSE(defaults.HasAcceptedTalker(u"GPGGA $GNGGA $G") || several.HasAcceptedTalker(u"$GAGSV"));
}

TEST(ReceiverOptions, ReadFromTheIniBesideTheLibraryAndTheEnvironmentWhichWins) {
  // [Receiver] lines (null: no file), the two variables (null: not set),
  // talkers then accepted and refused, the mode, and what is logged.
  const struct {
    const char *ini, *talkers, *checksums, *accepted, *refused;
    ChecksumMode mode;
    std::vector<std::string> logged;
  } cases[] = {
      {"Talkers=GP,GN\r\nChecksums=verify", nullptr, nullptr, "GPGN", "GL", ChecksumMode::kVerify, {}},
      {"Talkers=GP,GN\r\nChecksums=verify", "GL", " REQUIRE ", "GL", "GPGN", ChecksumMode::kRequire, {}},
      {nullptr, "GA,GB", "", "GAGB", "GP", ChecksumMode::kIgnore, {}},
      {"Talkers=G\r\nChecksums=sometimes",
       nullptr,
       nullptr,
       "GP",
       "GN",
       ChecksumMode::kIgnore,
       {"Talkers=G is not valid", "Checksums=sometimes is not valid"}},
      {"Talkers=GN\r\nChecksums=verify",
       "X,Y",
       "yes",
       "GP",
       "GN",
       ChecksumMode::kIgnore,
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
    const std::string text = log.Utf8();  // each bad value once, with its key
    for (const std::string& line : c.logged) EXPECT_NE(text.find(line), std::string::npos) << text;
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), static_cast<long>(c.logged.size())) << text;
  }
}

TEST_F(StoreTest, ChecksumsAreCheckedOnlyWhenAskedAndAMissingOneOnlyWhenRequired) {
  const std::string body = "GPGGA,123519,4807.038,N,01131.000,E,1,08,0.9,545.4,M,46.9,M,,";
  const std::string good = "$" + body + "*47";
  const std::vector<std::string> wrong = {
      "$" + body + "*00", good + "x", "$" + body + "*4",
      "$GPGGA,123519,4807.038,N,01131.000,E,1,08,0.9,545.4,\xC5\x8D,46.9,M,,*47"};  // U+014D is not "M"
  const struct {
    const char* mode;
    bool wrongRead, missingRead;
  } modes[] = {{"ignore", true, true}, {"verify", false, true}, {"require", false, false}};
  for (const auto& m : modes) {
    SCOPED_TRACE(m.mode);
    ReceiverOptions options;
    options.SetChecksums(m.mode);
    nmea::ReceiverStateStore store(options);
    store.Reset();
    auto read = [&](const std::string& line) {
      return store.ProcessChunk(W(line + "\r\n")) && store.RecognisedSentences().Count() == 1;
    };
    EXPECT_TRUE(read(good));
    for (const std::string& line : wrong) EXPECT_EQ(read(line), m.wrongRead) << line;
    EXPECT_EQ(read("$" + body), m.missingRead);
    EXPECT_EQ(log_.Contains(u"Wrong checksum: $GPGGA"), !m.wrongRead);
    EXPECT_EQ(log_.Contains(u"Missing checksum: $GPGGA"), !m.missingRead);
  }
}

}  // namespace
}  // namespace kavo::test
