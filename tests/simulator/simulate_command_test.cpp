// The kavogps tool's commands, run in-process, and the bundled recordings.
#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <sstream>

#include "cli/commands.h"
#include "cli/live_receiver.h"
#include "cli/simulate_command.h"
#include "common/temp_dir.h"
#include "nmea_check.h"

namespace kavo::cli {
namespace {

struct Result {
  int code;
  std::string out, err;
};

Result Tool(const Arguments& args) {
  std::ostringstream out, err;
  const int code = RunTool(args, out, err);
  return {code, out.str(), err.str()};
}

bool Exists(const std::string& path) { return std::ifstream(path).good(); }

std::string ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

TEST(KavogpsSimulate, BadArgumentsAreNamedAndLeaveNoFile) {
  test::TempDir dir;
  const std::string file = dir.File("out.nmea");
  const std::vector<std::pair<Arguments, std::string>> cases = {
      {{"--rate", "0"}, "--rate"},          {{"--rate", "fast"}, "'fast'"},
      {{"--rate", "51"}, "--rate"},         {{"--seed", "-1"}, "--seed"},
      {{"--seed", "12x"}, "--seed"},        {{"--duration", "0"}, "--duration"},
      {{"--duration", "86401"}, "--duration"}, {{"--duration", "inf"}, "--duration"},
      {{"--mode", "fly"}, "walk or drive"}, {{"--damage", "1.5"}, "--damage"},
      {{"--damage", "nan"}, "--damage"},    {{"--encoding", "utf32"}, "utf16le"},
      {{"--start", "95,10"}, "--start"},    {{"--start", "10"}, "--start"},
      {{"--talkers=yes"}, "takes no value"}, {{"--bogus"}, "unknown option '--bogus'"},
      {{"extra"}, "unexpected argument 'extra'"}, {{"--seed"}, "needs a value"},
  };
  for (const auto& [extra, mention] : cases) {
    Arguments args = {"simulate", "--output", file};
    args.insert(args.end(), extra.begin(), extra.end());
    const Result r = Tool(args);
    EXPECT_EQ(r.code, kExitUsage) << extra[0];
    EXPECT_NE(r.err.find(mention), std::string::npos) << r.err;
    EXPECT_FALSE(Exists(file)) << extra[0];
  }
  const Result pty = Tool({"simulate", "--pty", "--output", file});
  EXPECT_EQ(pty.code, kExitUsage);
  EXPECT_NE(pty.err.find(LiveReceiverAvailable() ? "--output is for recordings" : "not available"),
            std::string::npos);
  if (LiveReceiverAvailable()) {
    EXPECT_NE(Tool({"simulate", "--baud", "9600"}).err.find("--baud needs --pty"), std::string::npos);
    EXPECT_NE(Tool({"simulate", "--pty", "--baud", "4000"}).err.find("4800"), std::string::npos);
    EXPECT_NE(Tool({"simulate", "--pty", "--encoding", "utf8"}).err.find("--encoding is for"), std::string::npos);
  }
  EXPECT_FALSE(Exists(file));
}

TEST(KavogpsSimulate, WritesTheSimulationToAFileOrStandardOutput) {
  test::TempDir dir;
  const std::string file = dir.File("drive.nmea");
  const Result r = Tool({"simulate", "--seed=5", "--mode", "drive", "--duration", "30", "--encoding",
                         "utf16le", "--output", file, "--talkers"});
  ASSERT_EQ(r.code, kExitOk) << r.err;
  EXPECT_NE(r.out.find("Wrote 30 epochs"), std::string::npos) << r.out;

  sim::SimulatorOptions options;
  options.seed = 5;
  options.mode = sim::Mode::kDrive;
  options.otherTalkers = true;
  sim::Simulator simulator(options);
  std::string expected;
  for (int i = 0; i < 30; ++i) expected += simulator.Next().Text();
  EXPECT_EQ(ReadFile(file).substr(0, 2), "\xFF\xFE");
  EXPECT_EQ(test::ReadBack(ReadFile(file)), expected);

  // Standard output by default, a minute unless told otherwise.
  const Result stdoutRun = Tool({"simulate", "--seed", "5"});
  ASSERT_EQ(stdoutRun.code, kExitOk);
  size_t epochs = 0;
  for (size_t at = 0; (at = stdoutRun.out.find("$GPRMC", at)) != std::string::npos; ++at) ++epochs;
  EXPECT_EQ(epochs, 60u);
  EXPECT_EQ(stdoutRun.out.substr(stdoutRun.out.size() - 2), "\r\n");
}

TEST(KavogpsSimulate, UnwritableOutputIsAFailureWithAReason) {
  test::TempDir dir;
  const std::string file = dir.File("missing-folder/out.nmea");
  const Result r = Tool({"simulate", "--output", file});
  EXPECT_EQ(r.code, kExitFailure);
  EXPECT_NE(r.err.find("cannot create"), std::string::npos) << r.err;
  EXPECT_FALSE(Exists(file));
}

// Every recording in data/ is made by a command in data/README.md; running
// that command again must give the very same bytes, on every platform.
TEST(BundledRecordings, AreReproducedByTheirCommands) {
  const std::string root = KAVOGPS_SOURCE_DIR;
  std::ifstream readme(root + "/data/README.md");
  ASSERT_TRUE(readme.good());
  std::string line;
  int recordings = 0;
  bool utf16 = false, damaged = false, talkers = false;
  while (std::getline(readme, line)) {
    if (line.rfind("kavogps simulate ", 0) != 0) continue;
    std::istringstream words(line.substr(17));
    Arguments args{std::istream_iterator<std::string>(words), {}};
    SimulateSettings settings;
    std::string error;
    ASSERT_TRUE(ParseSimulateArguments(args, &settings, &error)) << line << ": " << error;
    ASSERT_FALSE(settings.output.empty()) << line;
    SCOPED_TRACE(settings.output);
    std::ostringstream made;
    uint64_t lines = 0, bad = 0;
    WriteSimulation(settings, made, &lines, &bad);
    const std::string bundled = ReadFile(root + "/" + settings.output);
    EXPECT_LT(bundled.size(), 1u << 20);
    EXPECT_TRUE(made.str() == bundled) << "the bundled file differs from what its command makes";
    ++recordings;
    utf16 |= settings.encoding == sim::Encoding::kUtf16Le;
    damaged |= bad > 0;
    talkers |= settings.simulation.otherTalkers;
  }
  EXPECT_GE(recordings, 3);
  EXPECT_TRUE(utf16 && damaged && talkers);
}

}  // namespace
}  // namespace kavo::cli
