// Finding the receiver: the intermediate driver's port first, then every
// listed port at 4800, 9600 and 2400 baud, as an application asks for it.
#include <pty.h>
#include <termios.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "KavoMobileGPS.h"
#include "common/eventually.h"
#include "common/log_capture.h"
#include "common/temp_dir.h"
#include "common/test_clock.h"
#include "platform/posix/registry_loader.h"
#include "simulator/posix/pty_receiver.h"

namespace kavo {
namespace {

using test::Eventually;

using std::chrono::milliseconds;

std::string Narrow(const KavoChar* text) {
  std::string out;
  for (; text && *text; ++text) out += static_cast<char>(*text);
  return out;
}

// A machine with serial ports, written as a hive file the registry loads.
class Machine {
 public:
  Machine() { text_ = "Windows Registry Editor Version 5.00\r\n\r\n"; }
  ~Machine() {
    unsetenv("KAVOGPS_REGISTRY");
    platform::posix::ReloadRegistry();
  }
  // An active serial driver "COMn:" for `device`.
  void AddPort(int number, const std::string& device, const std::string& friendlyName = "USB Serial Port") {
    const std::string n = std::to_string(number);
    text_ += "[HKEY_LOCAL_MACHINE\\Drivers\\Active\\" + std::string(number < 10 ? "0" : "") + n + "]\r\n";
    text_ += "\"Name\"=\"COM" + n + ":\"\r\n\"Key\"=\"Drivers\\\\Serial" + n + "\"\r\n\r\n";
    text_ += "[HKEY_LOCAL_MACHINE\\Drivers\\Serial" + n + "]\r\n\"FriendlyName\"=\"" + friendlyName + "\"\r\n\r\n";
    map_ += "\"" + device + "\"=\"COM" + n + "\"\r\n";
  }
  void SetIntermediatePort(const std::string& name) {
    text_ += "[HKEY_LOCAL_MACHINE\\System\\CurrentControlSet\\GPS Intermediate Driver\\Multiplexer]\r\n";
    text_ += "\"DriverInterface\"=\"" + name + "\"\r\n\r\n";
  }
  void Apply() {
    if (!map_.empty()) text_ += "[HKEY_LOCAL_MACHINE\\Hardware\\DeviceMap\\SerialComm]\r\n" + map_;
    text_ += "[HKEY_LOCAL_MACHINE\\Drivers\\Active]\r\n";
    dir_.Write("machine.reg", text_);
    setenv("KAVOGPS_REGISTRY", dir_.File("machine.reg").c_str(), 1);
    platform::posix::ReloadRegistry();
  }

 private:
  test::TempDir dir_;
  std::string text_, map_;
};

std::unique_ptr<sim::PtyReceiver> Receiver(uint32_t baud, bool silent = false) {
  sim::PtyReceiverOptions options;
  options.simulation.rateHz = 5;
  options.baudRate = baud;
  options.silent = silent;
  options.realWaitMs = [](uint32_t ms) { return platform::CurrentClock().RealWaitMs(ms); };
  auto receiver = std::make_unique<sim::PtyReceiver>(options);
  receiver->Start();
  return receiver;
}

struct Found {
  std::string name;
  COMPortParams params{};
};

// Runs the search; an empty name when nothing was found.
Found Search(uint32_t* lastError = nullptr) {
  Found found;
  COMPortInfoHandle port = COMPortInfo_FindGPSCOMPort(1);
  if (lastError) *lastError = KavoMobileGPS_GetLastError();
  if (!port) return found;
  found.name = Narrow(COMPortInfo_GetName(port));
  COMPortInfo_GetParams(port, &found.params);
  COMPortInfo_Release(port);
  return found;
}

class PortSearch : public ::testing::Test {
 protected:
  test::FastClock clock{20};
  Machine machine;
};

TEST_F(PortSearch, IntermediatePortThatAnswersIsReturnedWithoutProbingOthers) {
  auto gps = Receiver(4800);
  auto other = Receiver(4800);
  machine.AddPort(1, other->DevicePath());
  machine.SetIntermediatePort(gps->DevicePath());
  machine.Apply();
  test::LogCapture log;
  const Found found = Search();
  EXPECT_EQ(found.name, gps->DevicePath());
  EXPECT_EQ(found.params.BaudRate, 4800);
  EXPECT_TRUE(log.Contains(u"Intermediate GPS port found: ")) << log.Utf8();
  EXPECT_FALSE(log.Contains(u"Reading from port: COM1:")) << log.Utf8();
  EXPECT_FALSE(log.Contains(u"Scaning ports")) << log.Utf8();
}

TEST_F(PortSearch, SilentIntermediatePortIsStillTrustedAt4800) {
  auto silent = Receiver(9600, true);
  auto quiet = Receiver(4800, true);
  machine.AddPort(2, quiet->DevicePath());
  machine.SetIntermediatePort(silent->DevicePath());
  machine.Apply();
  test::LogCapture log;
  const Found found = Search();
  EXPECT_EQ(found.name, silent->DevicePath());
  EXPECT_EQ(found.params.BaudRate, 4800);
  EXPECT_TRUE(log.Contains(u"Reading from port: COM2:")) << "the listed ports were tried first";
}

TEST_F(PortSearch, ReceiverAt9600IsFoundAt9600AfterGarbageAt4800) {
  auto gps = Receiver(9600);
  machine.AddPort(3, gps->DevicePath());
  machine.Apply();
  test::LogCapture log;
  const Found found = Search();
  EXPECT_EQ(found.name, "COM3:");
  EXPECT_EQ(found.params.BaudRate, 9600);
  EXPECT_EQ(found.params.Parity, 0);
  EXPECT_EQ(found.params.StopBits, 0);
  EXPECT_EQ(found.params.ByteSize, 8);
  EXPECT_GT(gps->Snapshot().garbageBytes, 0u);
  EXPECT_TRUE(log.Contains(u"GPS data was found on: COM3:")) << log.Utf8();
}

TEST_F(PortSearch, SilenceAt4800EndsTheProbeAndNothingFoundFailsWithError2) {
  auto silent = Receiver(9600, true);
  machine.AddPort(4, silent->DevicePath());
  machine.Apply();
  test::LogCapture log;
  uint32_t lastError = 0;
  EXPECT_EQ(Search(&lastError).name, "");
  EXPECT_EQ(lastError, 2u);
  EXPECT_TRUE(log.Contains(u"GPS data was NOT found on: COM4:")) << log.Utf8();
  EXPECT_EQ(silent->Snapshot().lineBaud, 4800u) << "no other speed was tried";
}

TEST_F(PortSearch, EarlierPortInTheListWins) {
  auto first = Receiver(4800);
  auto second = Receiver(4800);
  // Normal ports are listed in reverse registry order: COM6 before COM5.
  machine.AddPort(5, first->DevicePath());
  machine.AddPort(6, second->DevicePath());
  machine.Apply();
  EXPECT_EQ(Search().name, "COM6:");

  // A Bluetooth port goes after every normal one, wherever it is listed.
  Machine bluetooth;
  bluetooth.AddPort(7, first->DevicePath());
  bluetooth.AddPort(8, second->DevicePath(), "Bluetooth Serial Port");
  bluetooth.Apply();
  EXPECT_EQ(Search().name, "COM7:");
}

TEST(PortSearchArguments, ReservedArgumentBelowOneTouchesNothing) {
  test::LogCapture log;
  EXPECT_EQ(COMPortInfo_FindGPSCOMPort(0), nullptr);
  EXPECT_EQ(KavoMobileGPS_GetLastError(), 160u);
  EXPECT_EQ(COMPortInfo_FindGPSCOMPort(-3), nullptr);
  EXPECT_EQ(KavoMobileGPS_GetLastError(), 160u);
  EXPECT_EQ(log.Text(), u"");
}

TEST(PortSearchWithoutPortList, MissingActiveDriversKeyFails) {
  test::TempDir dir;
  dir.Write("empty.reg", "Windows Registry Editor Version 5.00\r\n");
  setenv("KAVOGPS_REGISTRY", dir.File("empty.reg").c_str(), 1);
  platform::posix::ReloadRegistry();
  EXPECT_EQ(COMPortInfo_FindGPSCOMPort(1), nullptr);
  EXPECT_EQ(KavoMobileGPS_GetLastError(), 50u) << "the port list could not be built";
  unsetenv("KAVOGPS_REGISTRY");
  platform::posix::ReloadRegistry();
}

// A raw pseudo-terminal whose peer answers each read the probe announces in
// the log, so the test decides what every read finds.
class ScriptedPort {
 public:
  ScriptedPort() {
    termios raw{};
    cfmakeraw(&raw);
    char name[256];
    if (openpty(&master_, &slave_, name, &raw, nullptr) != 0) throw std::runtime_error("openpty");
    path_ = name;
  }
  ~ScriptedPort() {
    close(master_);
    close(slave_);
  }
  const std::string& Path() const { return path_; }
  void Send(const std::string& bytes) { (void)!write(master_, bytes.data(), bytes.size()); }

 private:
  int master_ = -1, slave_ = -1;
  std::string path_;
};

size_t Count(const std::u16string& text, const std::u16string& piece) {
  size_t n = 0;
  for (size_t at = text.find(piece); at != std::u16string::npos; at = text.find(piece, at + 1)) ++n;
  return n;
}

TEST(ScriptedProbe, NmeaInTheThirdReadEndsTheProbeWithoutAPause) {
  test::ManualClock clock(1000, 50);
  ScriptedPort port;
  Machine machine;
  machine.AddPort(1, port.Path());
  machine.Apply();
  std::atomic<int> reads{0};
  test::LogCapture log([&](const std::u16string& line) {
    if (line.rfind(u"Reading from port: ", 0) != 0) return;
    port.Send(++reads == 3 ? "$GPGGA,120000,4807.038,N,01131.000,E,1,08,0.9,545.4,M,46.9,M,,*47\r\n"
                           : "\x13\x7f\x01 noise\r\n");
  });
  const Found found = Search();

  EXPECT_EQ(found.name, "COM1:");
  EXPECT_EQ(found.params.BaudRate, 4800);
  EXPECT_EQ(reads.load(), 3);
  EXPECT_EQ(clock.Sleeps(), (std::vector<uint32_t>{600, 600})) << "no pause after the read that found NMEA";
  EXPECT_EQ(Count(log.Text(), u"Data from port: "), 3u);
}

TEST(ScriptedProbe, ProbeThatOutlivesTheWaitCountsAsNotFoundAndEndsByItself) {
  // Every wait lasts at most 20 ms of real time: the search gives up on the
  // probe while its reads are still waiting.
  test::ManualClock clock(1000, 20);
  ScriptedPort port;
  Machine machine;
  machine.AddPort(1, port.Path());
  machine.Apply();
  std::atomic<bool> searchGaveUp{false};
  test::LogCapture log([&](const std::u16string& line) {
    if (line.rfind(u"GPS data was NOT found on: COM1:", 0) == 0) searchGaveUp = true;
    // NMEA arrives, but only once the search has moved on.
    if (searchGaveUp && line.rfind(u"Reading from port: ", 0) == 0)
      port.Send("$GPGGA,120000,4807.038,N,01131.000,E,1,08,0.9,545.4,M,46.9,M,,*47\r\n");
  });
  uint32_t lastError = 0;
  EXPECT_EQ(Search(&lastError).name, "");
  EXPECT_EQ(lastError, 2u);
  // The probe goes on with its own references, hears the NMEA and closes
  // the port.
  EXPECT_TRUE(Eventually([&] { return Count(log.Text(), u"Data from port: $GPGGA") == 1; }));
  EXPECT_TRUE(Eventually([&] { return Count(log.Text(), u"Handle was closed successfuly") >= 1; }));
}

// A Linux machine with a USB receiver and no hive file: the ports come from
// sysfs (modelled here) and the device files from the device folder.
TEST(PortSearchOnSysfs, UsbReceiverIsFoundWithoutAHiveFile) {
  namespace fs = std::filesystem;
  test::FastClock clock(20);
  auto gps = Receiver(4800);
  test::TempDir sysfs, dev;
  const fs::path tty = fs::path(sysfs.Path()) / "class" / "tty" / "ttyACM0";
  const fs::path usb = fs::path(sysfs.Path()) / "devices" / "usb1" / "1-1" / "1-1:1.0";
  fs::create_directories(tty);
  fs::create_directories(usb);
  fs::create_directory_symlink(usb, tty / "device");
  fs::create_symlink(gps->DevicePath(), fs::path(dev.Path()) / "ttyACM0");
  unsetenv("KAVOGPS_REGISTRY");
  setenv("KAVOGPS_SYSFS_ROOT", sysfs.Path().c_str(), 1);
  setenv("KAVOGPS_DEV_ROOT", dev.Path().c_str(), 1);
  platform::posix::ReloadRegistry();

  const Found found = Search();
  EXPECT_EQ(found.name, "COM1:");
  EXPECT_EQ(found.params.BaudRate, 4800);

  unsetenv("KAVOGPS_SYSFS_ROOT");
  unsetenv("KAVOGPS_DEV_ROOT");
  platform::posix::ReloadRegistry();
}

TEST_F(PortSearch, FoundPortDrivesAReceiverEndToEnd) {
  auto gps = Receiver(9600);
  machine.AddPort(9, gps->DevicePath());
  machine.Apply();
  COMPortInfoHandle port = COMPortInfo_FindGPSCOMPort(1);
  ASSERT_NE(port, nullptr);
  GPSDriverHandle driver = GPSDriver_CreateFromCOMPort(port, nullptr, nullptr, nullptr);
  COMPortInfo_Release(port);
  ASSERT_NE(driver, nullptr) << KavoMobileGPS_GetLastError();
  ASSERT_EQ(GPSDriver_Start(driver), 1);
  GPSLocation location{};
  EXPECT_TRUE(Eventually([&] {
    GPSDriver_GetLocation(driver, &location);
    return location.FixQuality > 0 && GPSDriver_GetStatus(driver) == 0;
  }));
  EXPECT_NEAR(location.Latitude, 48.1173, 0.05);
  EXPECT_EQ(gps->Snapshot().lineBaud, 9600u) << "the driver opened the port at the speed found";
  GPSDriver_Stop(driver);
  GPSDriver_Release(driver);
}

}  // namespace
}  // namespace kavo
