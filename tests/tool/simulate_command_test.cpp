// The simulate command in-process, and the bundled recordings it made.
#include <gtest/gtest.h>

#include <fstream>
#include <iterator>

#include "commands/live_receiver.h"
#include "commands/simulate_command.h"
#include "common/temp_dir.h"
#include "tool_run.h"

namespace kavo::cli {
namespace {

using test::Contains;

// What a refused command says; or, when it was not refused, what it wrote.
std::string Errors(const Arguments& args) {
  const test::ToolRun run = test::RunInProcess(args);
  return run.code == kExitUsage ? run.err : "not refused: " + run.out;
}

TEST(KavogpsSimulate, BadArgumentsAreNamedAndLeaveNoFileGoodOnesWriteIt) {
  test::TempDir dir;
  const std::string file = dir.File("out.nmea");
  const bool live = LiveReceiverAvailable();
  const std::vector<std::pair<Arguments, std::string>> cases = {
      {{"--rate", "0"}, "--rate"},
      {{"--rate", "fast"}, "'fast'"},
      {{"--rate", "51"}, "--rate"},
      {{"--seed", "-1"}, "--seed"},
      {{"--seed", "12x"}, "--seed"},
      {{"--duration", "0"}, "--duration"},
      {{"--duration", "86401"}, "--duration"},
      {{"--duration", "inf"}, "--duration"},
      {{"--mode", "fly"}, "walk or drive"},
      {{"--damage", "1.5"}, "--damage"},
      {{"--damage", "nan"}, "--damage"},
      {{"--encoding", "utf32"}, "utf16le"},
      {{"--start", "95,10"}, "--start"},
      {{"--start", "10"}, "--start"},
      {{"--talkers=yes"}, "takes no value"},
      {{"--bogus"}, "unknown option '--bogus'"},
      {{"extra"}, "unexpected argument 'extra'"},
      {{"--seed"}, "needs a value"},
      {{"--pty"}, live ? "--output is for recordings" : "not available"},
  };
  for (const auto& [extra, mention] : cases) {
    Arguments args = {"simulate", "--output", file};
    args.insert(args.end(), extra.begin(), extra.end());
    EXPECT_TRUE(Contains(Errors(args), mention)) << Errors(args);
    EXPECT_FALSE(std::ifstream(file).good()) << extra[0];
  }
  const test::ToolRun good = test::RunInProcess({"simulate", "--seed", "3", "--duration", "20", "--output", file});
  EXPECT_TRUE(good.code == kExitOk && Contains(good.out, "Wrote 20 epochs")) << good.out << good.err;
  EXPECT_TRUE(std::ifstream(file).good());
  if (!live) return;
  EXPECT_TRUE(Contains(Errors({"simulate", "--baud", "9600"}), "--baud needs --pty"));
  EXPECT_TRUE(Contains(Errors({"simulate", "--pty", "--baud", "4000"}), "4800"));
  EXPECT_TRUE(Contains(Errors({"simulate", "--pty", "--encoding", "utf8"}), "--encoding is for"));
}

// Each command in data/README.md remakes its recording byte for byte.
TEST(BundledRecordings, AreReproducedByTheirCommands) {
  const std::string root = KAVOGPS_SOURCE_DIR;
  std::ifstream readme(root + "/data/README.md");
  ASSERT_TRUE(readme.good());
  int recordings = 0;
  bool utf16 = false, damaged = false, talkers = false;
  for (std::string line; std::getline(readme, line);) {
    if (line.rfind("kavogps simulate ", 0) != 0) continue;
    std::istringstream words(line.substr(17));
    SimulateSettings settings;
    std::string error;
    ASSERT_TRUE(ParseSimulateArguments({std::istream_iterator<std::string>(words), {}}, &settings, &error))
        << line << ": " << error;
    std::ostringstream made;
    uint64_t lines = 0, bad = 0;
    WriteSimulation(settings, made, &lines, &bad);
    std::ifstream in(root + "/" + settings.output, std::ios::binary);
    const std::string bundled{std::istreambuf_iterator<char>(in), {}};
    EXPECT_TRUE(made.str() == bundled) << settings.output << " differs from what its command makes";
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
