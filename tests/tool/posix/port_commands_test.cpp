// `kavogps ports`, `find` and `monitor` as a user runs them, against
// simulated receivers on pseudo-terminals, on a machine modelled by a
// registry file (KAVOGPS_REGISTRY) that maps COM names to the devices.
#include <fcntl.h>
#include <signal.h>
#include <termios.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <memory>
#include <regex>
#include <thread>

#include "common/temp_dir.h"
#include "posix/tool_process.h"
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
             ":\"\r\n\"Key\"=\"Drivers\\\\Serial" + n + "\"\r\n\r\n";
    map_ += "\"" + device + "\"=\"COM" + n + "\"\r\n";
  }
  // The environment that makes the tool see this machine.
  ToolProcess::Environment Environment() {
    dir_.Write("machine.reg", "Windows Registry Editor Version 5.00\r\n\r\n" + keys_ +
                                  "[HKEY_LOCAL_MACHINE\\Hardware\\DeviceMap\\SerialComm]\r\n" + map_);
    return {{"KAVOGPS_REGISTRY", dir_.File("machine.reg")}};
  }

 private:
  TempDir dir_;
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
  for (int i = 0; i < 500 && receiver.Snapshot().readers != 0; ++i)
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  return receiver.Snapshot().readers == 0;
}

bool Has(ToolProcess& process, const std::string& pattern) {
  return process.WaitForOutput(
      [&](const std::string& out) { return std::regex_search(out + process.Err(), std::regex(pattern)); }, 20000);
}

TEST(KavogpsPorts, ListsEachPortWithItsSettingsDeviceAndWhyItCannotBeOpened) {
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
                                                    "COM8: +yes +\\(cannot be opened: there is no such device.*\n"
                                                    "  /dev/kavogps-none\n"
                                                    "COM7: +no +9600 +none +8 +2\n"
                                                    "  " + receiver->DevicePath() + "\n")))
      << run.out;
  EXPECT_TRUE(PortClosed(*receiver));

  // A machine description that cannot be used is told, not taken for a
  // machine without ports.
  TempDir dir;
  dir.Write("bad.reg", "[HKEY_LOCAL_MACHINE\\Drivers]\r\n");
  const std::vector<std::pair<std::vector<std::string>, std::string>> cases = {
      {{"ports"}, "absent.reg', which does not exist"},
      {{"find"}, "bad.reg', which is not a registry file"},
      {{"monitor", "COM1"}, "absent.reg', which does not exist"},
  };
  for (const auto& [args, message] : cases) {
    const std::string file = dir.File(Contains(message, "bad") ? "bad.reg" : "absent.reg");
    const ToolRun bad = RunToolProcess(args, {{"KAVOGPS_REGISTRY", file}});
    EXPECT_EQ(bad.code, cli::kExitFile) << args[0];
    EXPECT_TRUE(Contains(bad.err, "kavogps " + args[0] + ": KAVOGPS_REGISTRY names '" + dir.Path())) << bad.err;
    EXPECT_TRUE(Contains(bad.err, message)) << bad.err;
  }
}

TEST(KavogpsFind, ReportsTheReceiverAndTheSpeedAndWhichPortsItSkipped) {
  auto receiver = Receiver(9600), other = Receiver(4800);  // heard at 4800 as garbage first
  Machine machine;
  machine.AddPort(7, receiver->DevicePath());
  machine.AddPort(8, kAbsentDevice);
  machine.AddPort(9, other->DevicePath());
  ToolProcess holder({"monitor", other->DevicePath()}, machine.Environment());
  ASSERT_TRUE(Has(holder, "GPS fix")) << holder.Err();
  const ToolRun run = RunToolProcess({"find"}, machine.Environment());
  ASSERT_EQ(run.code, 0) << run.err;
  EXPECT_EQ(run.out, "GPS receiver on COM7: (" + receiver->DevicePath() + ") at 9600 baud\n");
  EXPECT_TRUE(Contains(run.err, "on 3 ports: COM9: (" + other->DevicePath() + "), COM8: (/dev/kavogps-none), COM7: ("))
      << run.err;
  EXPECT_TRUE(Contains(run.err, "Skipped COM9: it is busy: another program is using it\n")) << run.err;
  EXPECT_TRUE(Contains(run.err, "Skipped COM8: there is no such device")) << run.err;
  EXPECT_TRUE(PortClosed(*receiver));

  Machine empty;
  const ToolRun none = RunToolProcess({"find"}, empty.Environment());
  EXPECT_EQ(none.code, cli::kExitNoReceiver) << none.err;
  EXPECT_TRUE(Contains(none.err, "there are no serial ports")) << none.err;
}

TEST(KavogpsMonitor, FollowsAReceiverByItsLongNameUntilInterrupted) {
  auto receiver = Receiver(4800);
  TempDir dir;
  // As udev names receivers under /dev/serial/by-id: longer than a port name.
  const std::string link = dir.File("usb-u-blox_AG_GNSS_receiver-if00");
  std::filesystem::create_symlink(receiver->DevicePath(), link);
  ToolProcess monitor({"monitor", link, "--json", "--gpx", dir.File("track.gpx")});
  ASSERT_TRUE(Has(monitor, "\\{\"class\":\"TPV\",\"device\":\"" + link + "\",\"mode\":3,.*\"lat\":48\\.117"))
      << monitor.Out() << monitor.Err();

  // A second program cannot have the port meanwhile, and says why.
  const ToolRun busy = RunToolProcess({"monitor", receiver->DevicePath(), "--gpx", dir.File("second.gpx")});
  EXPECT_EQ(busy.code, cli::kExitPortUnavailable) << busy.err;
  EXPECT_TRUE(Contains(busy.err, "cannot open " + receiver->DevicePath() + ": it is busy")) << busy.err;
  const ToolRun absent = RunToolProcess({"monitor", kAbsentDevice});
  EXPECT_EQ(absent.code, cli::kExitPortUnavailable) << absent.err;
  EXPECT_TRUE(Contains(absent.err, "there is no such device")) << absent.err;

  monitor.Signal(SIGINT);
  EXPECT_EQ(monitor.Finish(10000), 0) << monitor.Err();
  EXPECT_TRUE(std::regex_search(monitor.Err(), std::regex("Stopped\\.\nFixes: +[1-9]"))) << monitor.Err();
  const std::string track = dir.Read("track.gpx");
  EXPECT_TRUE(Contains(track, "<trkpt lat=\"48.117")) << track;
  EXPECT_EQ(track.substr(track.size() - 7), "</gpx>\n");
  EXPECT_FALSE(std::filesystem::exists(dir.File("second.gpx"))) << "the refused monitor left its track file";
  EXPECT_TRUE(PortClosed(*receiver));
}

TEST(KavogpsMonitor, WaitsForAnUnpluggedReceiverAndOpensItAgain) {
  TempDir dir;
  const std::string link = "/tmp/kgps-" + std::to_string(getpid());  // short enough to be a port name
  auto receiver = Receiver(4800);
  std::filesystem::create_symlink(receiver->DevicePath(), link);
  auto other = Receiver(4800);
  ToolProcess monitor({"monitor", link, "--nmea"}), once({"monitor", other->DevicePath(), "--once"});
  ASSERT_TRUE(Has(monitor, "\\$GPGGA")) << monitor.Err();
  ASSERT_TRUE(Has(once, "GPS fix")) << once.Err();
  receiver->Stop();  // unplugged
  other->Stop();
  ASSERT_TRUE(Has(monitor, "the receiver on " + link + " is gone; waiting for it")) << monitor.Err();
  EXPECT_EQ(once.Finish(20000), cli::kExitFailure) << once.Err();
  EXPECT_TRUE(Contains(once.Err(), "the receiver on " + other->DevicePath() + " is gone\n")) << once.Err();
  EXPECT_TRUE(Contains(once.Out(), "Receiver gone.\nFixes:")) << once.Out();

  auto again = Receiver(4800);
  std::filesystem::remove(link);
  std::filesystem::create_symlink(again->DevicePath(), link);
  ASSERT_TRUE(Has(monitor, link + " is back\n")) << monitor.Err();
  const size_t seen = monitor.Out().size();
  ASSERT_TRUE(monitor.WaitForOutput([&](const std::string& out) { return Contains(out.substr(seen), "$GPGGA"); },
                                    20000));
  monitor.Signal(SIGINT);
  EXPECT_EQ(monitor.Finish(10000), 0) << monitor.Err();
  std::filesystem::remove(link);
}

}  // namespace
}  // namespace kavo::test
