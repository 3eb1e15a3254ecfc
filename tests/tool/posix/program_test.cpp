// The program as a user runs it, with receivers on pseudo-terminals.
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <memory>
#include <regex>

#include "common/process_runner.h"
#include "sim/posix/pty_receiver.h"
#include "tool_run.h"

namespace kavo::test {
namespace {

const char kAbsentDevice[] = "/dev/kavogps-none";  // short: names are at most 18 characters

std::unique_ptr<sim::PtyReceiver> Receiver(uint32_t baud) {
  sim::PtyReceiverOptions options;
  options.simulation.rateHz = 5;
  options.baudRate = baud;
  auto receiver = std::make_unique<sim::PtyReceiver>(options);
  receiver->Start();
  return receiver;
}

// Waits until the program's output or messages match `pattern`.
bool Has(const ProcessRunner& process, const std::string& pattern) {
  return process.WaitForOutput(
      [&](const std::string& out) { return std::regex_search(out + process.Err(), std::regex(pattern)); }, 20000);
}

TEST(KavogpsProgram, AReaderThatStopsEarlyEndsItQuietly) {
  for (const char* args : {"play --interval 1 --json", "play --interval 1", "play --interval 1 --nmea", "simulate"}) {
    // The status of the tool, and anything it said, after the reader left.
    const std::string command =
        std::string("bash -c 'set -o pipefail; ") + KAVOGPS_TOOL + " " + args + " | head -2 >/dev/null; echo $?' 2>&1";
    std::string text(64, '\0');
    FILE* pipe = popen(command.c_str(), "r");
    ASSERT_NE(pipe, nullptr);
    text.resize(fread(text.data(), 1, text.size(), pipe));
    pclose(pipe);
    EXPECT_EQ(text, "0\n") << args;
  }
}

TEST(KavogpsProgram, AFailedWriteIsAFileErrorAndADeviceNamedAsTheOutputStays) {
  if (access("/dev/full", W_OK) != 0) GTEST_SKIP() << "no /dev/full here";
  const ProcessResult full = RunProcess(KAVOGPS_TOOL, {"simulate", "--output", "/dev/full"});
  EXPECT_EQ(full.code, cli::kExitFile);
  EXPECT_TRUE(Contains(full.err, "writing '/dev/full' failed")) << full.err;
  EXPECT_EQ(access("/dev/full", F_OK), 0);
}

TEST(KavogpsProgram, ALiveReceiverStreamsUntilSignalledThenEndsCleanly) {
  for (int signal : {SIGTERM, SIGINT}) {
    SCOPED_TRACE(signal);
    ProcessRunner tool(KAVOGPS_TOOL, {"simulate", "--pty", "--rate", "20"});
    ASSERT_TRUE(tool.WaitForOutput([](const std::string& out) { return Contains(out, "\n"); }, 20000));
    const std::string path = tool.Out().substr(0, tool.Out().find('\n'));  // the port
    const int port = open(path.c_str(), O_RDONLY | O_NOCTTY | O_NONBLOCK);
    ASSERT_GE(port, 0) << path;
    pollfd readable{port, POLLIN, 0};
    EXPECT_EQ(poll(&readable, 1, 20000), 1) << "nothing was sent";
    close(port);
    tool.Signal(signal);
    EXPECT_EQ(tool.Finish(20000), 0) << "killed by the signal instead of stopping";
    EXPECT_TRUE(Contains(tool.Err(), signal == SIGINT ? "interrupted" : "terminated")) << tool.Err();
  }
}

TEST(KavogpsPorts, ListAndSearchTellEachPortsDeviceAndWhyOneCannotBeOpened) {
  auto receiver = Receiver(9600), other = Receiver(4800);  // heard at 4800 as garbage first
  TempDir dir;
  dir.Write("machine.reg",
            "Windows Registry Editor Version 5.00\r\n\r\n"
            "[HKEY_LOCAL_MACHINE\\Drivers\\Active\\7]\r\n\"Name\"=\"COM7:\"\r\n"
            "[HKEY_LOCAL_MACHINE\\Drivers\\Active\\8]\r\n\"Name\"=\"COM8:\"\r\n"
            "[HKEY_LOCAL_MACHINE\\Drivers\\Active\\9]\r\n\"Name\"=\"COM9:\"\r\n"
            "[HKEY_LOCAL_MACHINE\\Hardware\\DeviceMap\\SerialComm]\r\n\"" +
                receiver->DevicePath() + "\"=\"COM7\"\r\n\"" + kAbsentDevice + "\"=\"COM8\"\r\n\"" +
                other->DevicePath() + "\"=\"COM9\"\r\n");
  const ProcessRunner::Environment machine = {{"KAVOGPS_REGISTRY", dir.File("machine.reg")}};
  ProcessRunner holder(KAVOGPS_TOOL, {"monitor", other->DevicePath()}, machine);
  ASSERT_TRUE(Has(holder, "GPS fix")) << holder.Err();

  // The search first: a receiver that was just listed may still hold what
  // it sent meanwhile, at its own speed, for the next reader.
  const ProcessResult find = RunProcess(KAVOGPS_TOOL, {"find"}, machine);
  ASSERT_EQ(find.code, 0) << find.err;
  EXPECT_EQ(find.out, "GPS receiver on COM7: (" + receiver->DevicePath() + ") at 9600 baud\n");
  EXPECT_TRUE(Contains(find.err, "on 3 ports: COM9: (" + other->DevicePath() + "), COM8: (/dev/kavogps-none), COM7:"))
      << find.err;
  EXPECT_TRUE(Contains(find.err,
                       "Skipped COM9: it is busy: another program is using it\n"
                       "Skipped COM8: there is no such device"))
      << find.err;

  const ProcessResult ports = RunProcess(KAVOGPS_TOOL, {"ports"}, machine);
  ASSERT_EQ(ports.code, 0) << ports.err;
  EXPECT_TRUE(std::regex_search(ports.out, std::regex("PORT +BUSY +BAUD +PARITY +DATA +STOP\n"
                                                      "COM9: +yes +\\(cannot be opened: it is busy: another.*\n"
                                                      "  " +
                                                      other->DevicePath() +
                                                      "\n"
                                                      "COM8: +yes +\\(cannot be opened: there is no such device.*\n"
                                                      "  /dev/kavogps-none\n"
                                                      "COM7: +no +[0-9]+ +[a-z]+ +[5-8] +[12]\n"
                                                      "  " +
                                                      receiver->DevicePath() + "\n")))
      << ports.out;
}

TEST(KavogpsMonitor, FollowsAReceiverByItsLongNameUntilItIsUnplugged) {
  auto receiver = Receiver(4800);
  TempDir dir;
  // As udev names receivers under /dev/serial/by-id: longer than a port name.
  const std::string link = dir.File("usb-u-blox_AG_GNSS_receiver-if00");
  std::filesystem::create_symlink(receiver->DevicePath(), link);
  ProcessRunner monitor(KAVOGPS_TOOL, {"monitor", link, "--json", "--once", "--gpx", dir.File("track.gpx")});
  ASSERT_TRUE(Has(monitor, "\\{\"class\":\"TPV\",\"device\":\"" + link + "\",\"mode\":3,.*\"lat\":48\\.117"))
      << monitor.Out() << monitor.Err();

  // A second program cannot have the port meanwhile, and says why.
  const ProcessResult busy =
      RunProcess(KAVOGPS_TOOL, {"monitor", receiver->DevicePath(), "--gpx", dir.File("second.gpx")});
  EXPECT_EQ(busy.code, cli::kExitPortUnavailable) << busy.err;
  EXPECT_TRUE(Contains(busy.err, "cannot open " + receiver->DevicePath() + ": it is busy")) << busy.err;

  receiver->Stop();  // unplugged
  EXPECT_EQ(monitor.Finish(20000), cli::kExitFailure) << monitor.Err();
  EXPECT_TRUE(std::regex_search(monitor.Err(), std::regex("the receiver on " + link +
                                                          " is gone\nReceiver gone\\.\n"
                                                          "Fixes: +[1-9]")))
      << monitor.Err();
  const std::string track = dir.Read("track.gpx");
  EXPECT_TRUE(Contains(track, "<trkpt lat=\"48.117")) << track;
  EXPECT_EQ(track.substr(track.size() - 7), "</gpx>\n");
  EXPECT_FALSE(std::filesystem::exists(dir.File("second.gpx"))) << "the refused monitor left its track file";
}

TEST(KavogpsMonitor, WaitsForAnUnpluggedReceiverAndOpensItAgain) {
  const std::string link = "/tmp/kgps-" + std::to_string(getpid());  // short enough to be a port name
  auto receiver = Receiver(4800);
  std::filesystem::remove(link);  // left by a run that failed
  std::filesystem::create_symlink(receiver->DevicePath(), link);
  ProcessRunner monitor(KAVOGPS_TOOL, {"monitor", link, "--nmea"});
  ASSERT_TRUE(Has(monitor, "\\$GPGGA")) << monitor.Err();
  receiver->Stop();
  ASSERT_TRUE(Has(monitor, "the receiver on " + link + " is gone; waiting for it")) << monitor.Err();

  auto again = Receiver(4800);
  std::filesystem::remove(link);
  std::filesystem::create_symlink(again->DevicePath(), link);
  ASSERT_TRUE(Has(monitor, link + " is back\n")) << monitor.Err();
  const size_t seen = monitor.Out().size();
  ASSERT_TRUE(
      monitor.WaitForOutput([&](const std::string& out) { return Contains(out.substr(seen), "$GPGGA"); }, 20000));
  monitor.Signal(SIGINT);
  EXPECT_EQ(monitor.Finish(20000), 0) << monitor.Err();
  std::filesystem::remove(link);
}

}  // namespace
}  // namespace kavo::test
