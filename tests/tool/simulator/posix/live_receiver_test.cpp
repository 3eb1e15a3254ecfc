// The live receiver on a pseudo-terminal, and the kavogps program run as a
// user runs it. Real-time limits here are only reached when something is
// broken.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <termios.h>
#include <unistd.h>

#include <fstream>

#include "common/eventually.h"
#include "common/process_runner.h"
#include "common/temp_dir.h"
#include "simulator/posix/pty_receiver.h"

namespace kavo::test {
namespace {

constexpr int kPatience = 30000;  // ms

bool Holds(const std::string& text, const char* piece) { return text.find(piece) != std::string::npos; }

// What one reader leaves unread is not kept for the next: a reader at
// another speed gets garbage, never the first reader's sentences.
TEST(PtyReceiver, KeepsNothingForTheNextReader) {
  sim::PtyReceiverOptions options;
  options.simulation.rateHz = 20;
  sim::PtyReceiver receiver(options);
  receiver.Start();
  auto setSpeed = [](int fd, speed_t speed) {
    termios t{};
    tcgetattr(fd, &t);
    cfmakeraw(&t);
    cfsetspeed(&t, speed);
    tcsetattr(fd, TCSANOW, &t);  // what was queued stays
    return fd;
  };
  const std::string path = receiver.DevicePath();
  const int first = setSpeed(open(path.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK), B4800);
  ASSERT_TRUE(Eventually([&] { return receiver.Snapshot().nmeaBytes > 0; }));  // sent, never read
  // Away at another speed, so that nothing the next reader gets is a sentence.
  setSpeed(first, B9600);
  close(first);
  ASSERT_TRUE(Eventually([&] { return receiver.Snapshot().readers == 0; }));
  const int second = open(path.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK);
  std::string text;
  char buffer[512];
  for (pollfd p{second, POLLIN, 0}; text.size() < 600 && poll(&p, 1, kPatience) == 1;)
    text.append(buffer, static_cast<size_t>(std::max<ssize_t>(0, read(second, buffer, sizeof buffer))));
  close(second);
  EXPECT_GE(text.size(), 600u);
  EXPECT_FALSE(Holds(text, "$GP"));
}

TEST(KavogpsProcess, ExitCodesTellSuccessUsageAndFailureApart) {
  TempDir dir;
  const std::string file = dir.File("out.nmea");
  auto run = [](const std::vector<std::string>& args) { return RunProcess(KAVOGPS_TOOL, args); };
  ProcessResult r = run({"simulate", "--damage", "3", "--output", file});
  EXPECT_EQ(r.code, 2);
  EXPECT_TRUE(Holds(r.err, "--damage")) << r.err;
  EXPECT_FALSE(std::ifstream(file).good());
  EXPECT_EQ(run({"locate"}).code, 2);
  // A write that fails is a file error, and a device named as the output
  // is not removed in the clean-up.
  if (access("/dev/full", W_OK) == 0) {
    r = run({"simulate", "--output", "/dev/full"});
    EXPECT_EQ(r.code, 3);
    EXPECT_TRUE(Holds(r.err, "writing '/dev/full' failed")) << r.err;
    EXPECT_EQ(access("/dev/full", F_OK), 0);
  }
  r = run({"simulate", "--seed", "3", "--duration", "20", "--output", file});
  EXPECT_EQ(r.code, 0) << r.err;
  EXPECT_TRUE(Holds(r.out, "Wrote 20 epochs")) << r.out;
  EXPECT_TRUE(std::ifstream(file).good());
}

TEST(KavogpsProcess, LiveReceiverStreamsUntilSignalledThenExitsCleanly) {
  for (int signal : {SIGTERM, SIGINT}) {
    SCOPED_TRACE(signal);
    ProcessRunner tool(KAVOGPS_TOOL, {"simulate", "--pty", "--rate", "20"});
    ASSERT_TRUE(tool.WaitForOutput([](const std::string& out) { return Holds(out, "\n"); }, kPatience));
    const std::string path = tool.Out().substr(0, tool.Out().find('\n'));  // the port
    const int port = open(path.c_str(), O_RDONLY | O_NOCTTY | O_NONBLOCK);
    ASSERT_GE(port, 0) << path;
    pollfd readable{port, POLLIN, 0};
    EXPECT_EQ(poll(&readable, 1, kPatience), 1) << "nothing was sent";
    close(port);
    tool.Signal(signal);
    EXPECT_EQ(tool.Finish(kPatience), 0) << "killed by the signal instead of stopping";
    EXPECT_TRUE(Holds(tool.Err(), signal == SIGINT ? "interrupted" : "terminated")) << tool.Err();
  }
}

}  // namespace
}  // namespace kavo::test
