// The live receiver on a pseudo-terminal, and the kavogps program run as a
// user runs it. Real-time limits here are only reached when something is
// broken: every wait ends on what was read, not on a count per second.
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <fstream>

#include "common/eventually.h"
#include "common/process_runner.h"
#include "common/temp_dir.h"
#include "posix/pty_reader.h"
#include "simulator/posix/pty_receiver.h"

namespace kavo::sim {
namespace {

using test::Eventually;
using test::PtyReader;

constexpr int kPatience = 30000;  // ms

auto Holds(const char* what) {
  return [what](const std::string& text) { return text.find(what) != std::string::npos; };
}

PtyReceiverOptions Fast(uint32_t baud) {
  PtyReceiverOptions o;
  o.simulation.rateHz = 20;
  o.baudRate = baud;
  return o;
}

TEST(PtyReceiver, KeepsNothingForTheNextReaderAndSendsGarbageAtTheWrongSpeed) {
  PtyReceiver receiver(Fast(4800));
  receiver.Start();
  auto epochsPass = [&](uint64_t n) {
    const uint64_t from = receiver.Snapshot().epochs;
    return Eventually([&] { return receiver.Snapshot().epochs >= from + n; }, std::chrono::milliseconds(kPatience));
  };
  {
    PtyReader first(receiver.DevicePath(), 4800, false);
    ASSERT_TRUE(Eventually([&] { return receiver.Snapshot().readers == 1; }));
    ASSERT_TRUE(epochsPass(3));  // sentences it never reads
  }
  ASSERT_TRUE(Eventually([&] { return receiver.Snapshot().readers == 0; }));
  EXPECT_GT(receiver.Snapshot().discardedBytes, 0u);
  const uint64_t sent = receiver.Snapshot().nmeaBytes;
  ASSERT_TRUE(epochsPass(3));
  EXPECT_EQ(receiver.Snapshot().nmeaBytes, sent) << "sent to a port nobody has open";

  PtyReader second(receiver.DevicePath(), 9600, false);
  const std::string noise = second.ReadUntil([](const std::string& t) { return t.size() >= 600; }, kPatience);
  EXPECT_GE(noise.size(), 600u);
  EXPECT_EQ(noise.find("$GP"), std::string::npos);
  receiver.SetBaudRate(9600);
  EXPECT_TRUE(Holds("$GPGGA")(second.ReadUntil(Holds("$GPGGA"), kPatience)));
  EXPECT_THROW(receiver.SetBaudRate(4000), std::invalid_argument);
  EXPECT_THROW(PtyReceiver{Fast(4000)}, std::invalid_argument);
}

TEST(PtyReceiver, StopHangsUpItsReaderAndRemovesThePort) {
  PtyReceiver receiver(Fast(4800));
  receiver.Stop();  // before Start: nothing to do
  receiver.Start();
  const std::string first = receiver.DevicePath();
  {
    PtyReader reader(first, 4800);
    ASSERT_TRUE(Holds("$GPGGA")(reader.ReadUntil(Holds("$GPGGA"), kPatience)));
    receiver.Stop();
    EXPECT_FALSE(receiver.Running());
    reader.ReadUntil([](const std::string&) { return false; }, kPatience);
    EXPECT_TRUE(reader.HungUp()) << "a reader still holding the port must not block";
  }
  EXPECT_FALSE(PtyReader(first, 4800).IsOpen()) << "the port outlived Stop";
  receiver.Start();  // again, on a fresh port
  PtyReader again(receiver.DevicePath(), 4800);
  EXPECT_TRUE(Holds("$GPGGA")(again.ReadUntil(Holds("$GPGGA"), kPatience)));
}

TEST(KavogpsProcess, ExitCodesTellSuccessUsageAndFailureApart) {
  test::TempDir dir;
  const std::string file = dir.File("out.nmea");
  auto run = [](const std::vector<std::string>& args) { return test::RunProcess(KAVOGPS_TOOL, args); };
  test::ProcessResult r = run({"simulate", "--damage", "3", "--output", file});
  EXPECT_EQ(r.code, 2);
  EXPECT_TRUE(Holds("--damage")(r.err)) << r.err;
  EXPECT_FALSE(std::ifstream(file).good());
  EXPECT_EQ(run({"locate"}).code, 2);
  // A write that fails is a failure, and a device named as the output is
  // not removed in the clean-up.
  if (access("/dev/full", W_OK) == 0) {
    r = run({"simulate", "--output", "/dev/full"});
    EXPECT_EQ(r.code, 1);
    EXPECT_TRUE(Holds("writing '/dev/full' failed")(r.err)) << r.err;
    EXPECT_EQ(access("/dev/full", F_OK), 0);
  }
  r = run({"simulate", "--seed", "3", "--duration", "20", "--output", file});
  EXPECT_EQ(r.code, 0) << r.err;
  EXPECT_TRUE(Holds("Wrote 20 epochs")(r.out)) << r.out;
  EXPECT_TRUE(std::ifstream(file).good());
}

TEST(KavogpsProcess, LiveReceiverStreamsUntilSignalledThenExitsCleanly) {
  for (int signal : {SIGTERM, SIGINT}) {
    SCOPED_TRACE(signal);
    test::ProcessRunner tool(KAVOGPS_TOOL, {"simulate", "--pty", "--rate", "20", "--baud", "9600"});
    ASSERT_TRUE(tool.WaitForOutput(Holds("\n"), kPatience));  // the first line names the port
    const std::string path = tool.Out().substr(0, tool.Out().find('\n'));
    ASSERT_EQ(path.rfind("/dev/", 0), 0u) << path;
    {
      PtyReader reader(path, 9600);
      EXPECT_TRUE(Holds("$GPRMC")(reader.ReadUntil(Holds("$GPRMC"), kPatience)));
    }
    tool.Signal(signal);
    EXPECT_EQ(tool.Finish(kPatience), 0) << "killed by the signal instead of stopping";
    EXPECT_TRUE(Holds(signal == SIGINT ? "interrupted" : "terminated")(tool.Err())) << tool.Err();
  }
}

}  // namespace
}  // namespace kavo::sim
