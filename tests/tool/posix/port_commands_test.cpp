// `kavogps ports`, `find` and `monitor` as a user runs them, against
// simulated receivers on pseudo-terminals, on a machine modelled by a
// hive file (KAVOGPS_REGISTRY) that maps COM names to the devices.
#include <fcntl.h>
#include <signal.h>
#include <termios.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <regex>
#include <thread>

#include "posix/tool_process.h"
#include "scratch_dir.h"
#include "simulator/posix/pty_receiver.h"
#include "tool_run.h"

namespace kavo::test {
namespace {

// The serial ports of a machine, as the registry lists them.
class Machine {
 public:
  void AddPort(int number, const std::string& device) {
    const std::string n = std::to_string(number);
    keys_ += "[HKEY_LOCAL_MACHINE\\Drivers\\Active\\" + n + "]\r\n\"Name\"=\"COM" + n +
             ":\"\r\n\"Key\"=\"Drivers\\\\Serial" + n + "\"\r\n\r\n[HKEY_LOCAL_MACHINE\\Drivers\\Serial" + n +
             "]\r\n\"FriendlyName\"=\"USB Serial Port\"\r\n\r\n";
    map_ += "\"" + device + "\"=\"COM" + n + "\"\r\n";
  }
  // The environment that makes the tool see this machine.
  ToolProcess::Environment Environment() {
    dir_.Write("machine.reg", "Windows Registry Editor Version 5.00\r\n\r\n[HKEY_LOCAL_MACHINE\\Drivers\\Active]\r\n\r\n" +
                                  keys_ + "[HKEY_LOCAL_MACHINE\\Hardware\\DeviceMap\\SerialComm]\r\n" + map_);
    return {{"KAVOGPS_REGISTRY", dir_.File("machine.reg")}};
  }

 private:
  ScratchDir dir_;
  std::string keys_, map_;
};

const char kAbsentDevice[] = "/dev/kavogps-none";  // short: names are at most 18 characters

std::unique_ptr<sim::PtyReceiver> Receiver(uint32_t baud) {
  sim::PtyReceiverOptions options;
  options.simulation.rateHz = 5;
  options.baudRate = baud;
  auto receiver = std::make_unique<sim::PtyReceiver>(options);
  receiver->Start();
  return receiver;
}

// Every open of the receiver's port has been closed again.
bool PortClosed(const sim::PtyReceiver& receiver) {
  for (int i = 0; i < 200 && receiver.Snapshot().readers != 0; ++i)
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  return receiver.Snapshot().readers == 0;
}

TEST(KavogpsPorts, ListsEachPortWithItsBusyFlagAndSettings) {
  auto receiver = Receiver(4800);
  {
    // The port as some program left it: 9600 baud, two stop bits.
    const int fd = open(receiver->DevicePath().c_str(), O_RDWR | O_NOCTTY);
    ASSERT_GE(fd, 0);
    termios settings{};
    ASSERT_EQ(tcgetattr(fd, &settings), 0);
    cfsetspeed(&settings, B9600);
    settings.c_cflag |= CSTOPB;
    ASSERT_EQ(tcsetattr(fd, TCSANOW, &settings), 0);
    close(fd);
  }
  Machine machine;
  machine.AddPort(7, receiver->DevicePath());
  machine.AddPort(8, kAbsentDevice);
  const ToolRun run = RunToolProcess({"ports"}, machine.Environment());
  ASSERT_EQ(run.code, 0) << run.err;
  EXPECT_TRUE(std::regex_search(run.out, std::regex("PORT +BUSY +BAUD +PARITY +DATA +STOP\n"
                                                    "COM8: +yes +\\(cannot be opened: in use, or gone\\)\n"
                                                    "COM7: +no +9600 +none +8 +2\n")))
      << run.out;
  EXPECT_TRUE(PortClosed(*receiver));

  Machine empty;
  const ToolRun none = RunToolProcess({"ports"}, empty.Environment());
  EXPECT_EQ(none.code, 0);
  EXPECT_EQ(none.out, "No serial ports found.\n");
}

TEST(KavogpsFind, ReportsThePortAndTheSpeedTheReceiverTalksAt) {
  auto receiver = Receiver(9600);  // heard at 4800 as garbage first
  Machine machine;
  machine.AddPort(7, receiver->DevicePath());
  machine.AddPort(8, kAbsentDevice);
  const ToolRun run = RunToolProcess({"find"}, machine.Environment());
  ASSERT_EQ(run.code, 0) << run.err;
  EXPECT_EQ(run.out, "GPS receiver on COM7: at 9600 baud\n");
  EXPECT_TRUE(Contains(run.err, "Searching for a GPS receiver on 2 ports: COM8:, COM7:")) << run.err;
  EXPECT_TRUE(PortClosed(*receiver));
}

TEST(KavogpsFind, WithoutAReceiverSaysSoWithItsOwnExitCode) {
  Machine machine;
  machine.AddPort(8, kAbsentDevice);
  ToolRun run = RunToolProcess({"find"}, machine.Environment());
  EXPECT_EQ(run.code, 5) << run.err;
  EXPECT_TRUE(Contains(run.err, "kavogps find: no GPS receiver found")) << run.err;
  EXPECT_EQ(run.out, "");

  Machine empty;
  run = RunToolProcess({"find"}, empty.Environment());
  EXPECT_EQ(run.code, 5) << run.err;
  EXPECT_TRUE(Contains(run.err, "there are no serial ports")) << run.err;
}

TEST(KavogpsMonitor, ShowsTheReceiverUntilInterruptedAndLeavesThePortClosed) {
  auto receiver = Receiver(4800);
  Machine machine;
  machine.AddPort(7, receiver->DevicePath());
  ScratchDir dir;
  const std::string gpx = dir.File("track.gpx");
  ToolProcess monitor({"monitor", "COM7", "--json", "--gpx", gpx}, machine.Environment());
  ASSERT_TRUE(monitor.Started());
  ASSERT_TRUE(monitor.WaitForOutput(
      [](const std::string& out) {
        return std::regex_search(out, std::regex("\\{\"class\":\"TPV\",\"device\":\"COM7:\",\"mode\":3,.*\"time\":"
                                                 "\"2024-05-14T10:00:0[0-9]\\.[0-9]{3}Z\",\"lat\":48\\.117"));
      },
      20000))
      << monitor.Out() << monitor.Err();

  // A second program cannot have the port meanwhile.
  const ToolRun busy = RunToolProcess({"monitor", "COM7", "--gpx", dir.File("second.gpx")}, machine.Environment());
  EXPECT_EQ(busy.code, 4) << busy.err;
  EXPECT_TRUE(Contains(busy.err, "cannot open COM7: another program is using it")) << busy.err;

  monitor.Signal(SIGINT);
  EXPECT_EQ(monitor.Finish(10000), 0) << monitor.Err();
  EXPECT_TRUE(std::regex_search(monitor.Err(), std::regex("Stopped\\.\nFixes: +[1-9]"))) << monitor.Err();
  const std::string track = ReadFile(gpx);
  EXPECT_TRUE(Contains(track, "<trkpt lat=\"48.117")) << track;
  EXPECT_EQ(track.substr(track.size() - 7), "</gpx>\n");
  EXPECT_EQ(dir.Listing(), "track.gpx;") << "the refused monitor left its track file";
  EXPECT_TRUE(PortClosed(*receiver));
}

TEST(KavogpsMonitor, APortThatIsNotThereIsItsOwnFailure) {
  ScratchDir dir;
  const ToolRun run = RunToolProcess({"monitor", kAbsentDevice, "--gpx", dir.File("track.gpx")});
  EXPECT_EQ(run.code, 4) << run.err;
  EXPECT_TRUE(Contains(run.err, "cannot open")) << run.err;
  EXPECT_EQ(dir.Listing(), "");
}

}  // namespace
}  // namespace kavo::test
