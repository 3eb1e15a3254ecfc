#include <gtest/gtest.h>

#include <cstdlib>

#include "common/temp_dir.h"
#include "tool_run.h"

namespace kavo::test {
namespace {

// Two epochs with a fix from `talker`; `damage` spoils every checksum.
std::string Recording(const std::string& talker, bool damage) {
  std::string text;
  for (const char* body : {"GGA,100000,4807,N,01131,E,1,10,1,520,M,,M,,", "RMC,100000,A,4807,N,01131,E,,,140524,,,A",
                           "GGA,100001,4807,N,01131,E,1,10,1,520,M,,M,,", "RMC,100001,A,4807,N,01131,E,,,140524,,,A"}) {
    const std::string sentence = talker + body;
    unsigned sum = damage ? 1 : 0;
    for (char c : sentence) sum ^= static_cast<unsigned char>(c);
    static const char hex[] = "0123456789ABCDEF";
    text += "$" + sentence + '*' + hex[sum >> 4] + hex[sum & 15] + "\r\n";
  }
  return text;
}

TEST(KavogpsReceiverOptions, ReachTheLibraryWhichSaysWhatItDoesNotRead) {
  TempDir dir;
  dir.Write("gn.nmea", Recording("GN", false));
  dir.Write("bad.nmea", Recording("GP", true));
  struct Case { cli::Arguments options; std::string file, settings, error; };  // no error: a fix is read
  const std::string all = "GP,GN,GL,GA,GB,BD,GQ,QZ ";
  const std::vector<Case> cases = {
      {{}, "gn.nmea", all + "verify", ""},
      {{"--talkers", " gl , gp", "--checksums", "Require"}, "gn.nmea", "GL,GP require",
       "only sentences of the talker GN came, which are not read (reading GL,GP); read them with --talkers GL,GP,GN\n"},
      {{}, "bad.nmea", all + "verify", "recognises\n"}, {{"--checksums", "ignore"}, "bad.nmea", all + "ignore", ""},
  };
  for (const Case& c : cases) {
    cli::Arguments args = {"play", dir.File(c.file), "--interval", "5"};
    args.insert(args.end(), c.options.begin(), c.options.end());
    const ToolRun run = RunInProcess(args);
    EXPECT_EQ(std::string(std::getenv("KAVOGPS_TALKERS")) + " " + std::getenv("KAVOGPS_CHECKSUMS"), c.settings);
    if (c.error.empty()) EXPECT_TRUE(run.code == 0 && Contains(run.out, " N 11.516667")) << run.out << run.err;
    else EXPECT_TRUE(run.code == cli::kExitFile && Contains(run.err, c.error)) << run.err;
  }
}

}  // namespace
}  // namespace kavo::test
