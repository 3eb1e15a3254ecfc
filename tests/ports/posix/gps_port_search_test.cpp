// Finding the receiver: the intermediate driver's port first, then every
// listed port at 4800, 9600 and 2400 baud, as an application asks for it.
#include <fcntl.h>
#include <pty.h>
#include <termios.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "KavoMobileGPS.h"
#include "common/eventually.h"
#include "common/log_capture.h"
#include "common/registry_model.h"
#include "common/test_clock.h"
#include "simulator/posix/pty_receiver.h"

namespace kavo {
namespace {

using test::Eventually;

std::string Narrow(const KavoChar* text) {
  std::string out;
  for (; text && *text; ++text) out += static_cast<char>(*text);
  return out;
}

// The keys of an active serial driver "COMn:" for `device`.
std::string Port(int number, const std::string& device, const std::string& friendlyName = "USB Serial Port") {
  const std::string n = std::to_string(number);
  return "[HKEY_LOCAL_MACHINE\\Drivers\\Active\\" + std::string(number < 10 ? "0" : "") + n + "]\r\n" +
         "\"Name\"=\"COM" + n + ":\"\r\n\"Key\"=\"Drivers\\\\Serial" + n + "\"\r\n" +
         "[HKEY_LOCAL_MACHINE\\Drivers\\Serial" + n + "]\r\n\"FriendlyName\"=\"" + friendlyName + "\"\r\n" +
         "[HKEY_LOCAL_MACHINE\\Hardware\\DeviceMap\\SerialComm]\r\n\"" + device + "\"=\"COM" + n + "\"\r\n";
}

std::string IntermediatePort(const std::string& name) {
  return "[HKEY_LOCAL_MACHINE\\System\\CurrentControlSet\\GPS Intermediate Driver\\Multiplexer]\r\n"
         "\"DriverInterface\"=\"" + name + "\"\r\n";
}

// A machine whose registry holds `keys` and an (otherwise empty) active
// drivers key.
test::RegistryModel Machine(const std::string& keys) {
  return test::RegistryModel(keys + "[HKEY_LOCAL_MACHINE\\Drivers\\Active]\r\n");
}

// Time run 20 times faster for the probes' pauses, reads and the receivers,
// while the search waits for its probe as long as the probe takes on a slow
// machine: no outcome depends on how fast this one is.
class SearchClock : public test::FastClock {
 public:
  SearchClock() : FastClock(20) {}
  uint32_t RealWaitMs(uint32_t ms) override { return ms >= 15000 ? 120000 : FastClock::RealWaitMs(ms); }
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
  SearchClock clock;
};

TEST_F(PortSearch, IntermediatePortFirstAndTrustedEvenWhenSilent) {
  auto gps = Receiver(4800);
  auto other = Receiver(4800);
  {
    auto machine = Machine(Port(1, other->DevicePath()) + IntermediatePort(gps->DevicePath()));
    test::LogCapture log;
    const Found found = Search();
    EXPECT_EQ(found.name, gps->DevicePath());
    EXPECT_EQ(found.params.BaudRate, 4800);
    EXPECT_FALSE(log.Contains(u"Scaning ports")) << log.Utf8();
  }
  auto silent = Receiver(9600, true);
  auto quiet = Receiver(4800, true);
  auto machine = Machine(Port(2, quiet->DevicePath()) + IntermediatePort(silent->DevicePath()));
  test::LogCapture log;
  const Found found = Search();
  EXPECT_EQ(found.name, silent->DevicePath());
  EXPECT_EQ(found.params.BaudRate, 4800);
  EXPECT_TRUE(log.Contains(u"Reading from port: COM2:")) << "the listed ports were tried first";
}

TEST_F(PortSearch, ReceiverAt9600IsFoundAt9600AfterGarbageAt4800AndDrivesADriver) {
  auto gps = Receiver(9600);
  auto machine = Machine(Port(3, gps->DevicePath()));
  COMPortInfoHandle port = COMPortInfo_FindGPSCOMPort(1);
  ASSERT_NE(port, nullptr);
  COMPortParams params{};
  COMPortInfo_GetParams(port, &params);
  EXPECT_EQ(Narrow(COMPortInfo_GetName(port)), "COM3:");
  EXPECT_EQ(std::vector<int>({int(params.BaudRate), params.Parity, params.ByteSize, params.StopBits}),
            std::vector<int>({9600, 0, 8, 0}));
  EXPECT_GT(gps->Snapshot().garbageBytes, 0u);

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

TEST_F(PortSearch, SilenceAt4800EndsTheProbeAndNothingFoundFailsWithError2) {
  auto silent = Receiver(9600, true);
  auto machine = Machine(Port(4, silent->DevicePath()));
  uint32_t lastError = 0;
  EXPECT_EQ(Search(&lastError).name, "");
  EXPECT_EQ(lastError, 2u);
  EXPECT_EQ(silent->Snapshot().lineBaud, 4800u) << "no other speed was tried";
}

TEST_F(PortSearch, EarlierPortInTheListWins) {
  auto first = Receiver(4800);
  auto second = Receiver(4800);
  // A Bluetooth port goes after every normal one, wherever it is listed.
  auto machine = Machine(Port(7, first->DevicePath()) + Port(8, second->DevicePath(), "Bluetooth Serial Port"));
  EXPECT_EQ(Search().name, "COM7:");
}

TEST(PortSearchWithoutPortList, MissingActiveDriversKeyFails) {
  test::RegistryModel empty("");
  EXPECT_EQ(COMPortInfo_FindGPSCOMPort(1), nullptr);
  EXPECT_EQ(KavoMobileGPS_GetLastError(), 50u) << "the port list could not be built";
}

// A raw pseudo-terminal the test writes to as the probe reads.
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

const char* kGga = "$GPGGA,120000,4807.038,N,01131.000,E,1,08,0.9,545.4,M,46.9,M,,*47\r\n";

TEST(ScriptedProbe, NmeaInTheThirdReadEndsTheProbeWithoutAPause) {
  // Pauses take no time; each read finds what the test sent before it, so
  // no wait needs to end by itself.
  test::ManualClock clock(1000, 120000);
  ScriptedPort port;
  auto machine = Machine(Port(1, port.Path()));
  std::atomic<int> reads{0};
  test::LogCapture log([&](const std::u16string& line) {
    if (line.rfind(u"Reading from port: ", 0) == 0) port.Send(++reads == 3 ? kGga : "\x13\x7f\x01 noise\r\n");
  });
  const Found found = Search();
  EXPECT_EQ(found.name, "COM1:");
  EXPECT_EQ(found.params.BaudRate, 4800);
  EXPECT_EQ(reads.load(), 3);
  EXPECT_EQ(clock.Sleeps(), (std::vector<uint32_t>{600, 600})) << "no pause after the read that found NMEA";
  EXPECT_EQ(Count(log.Text(), u"Data from port: "), 3u);
}

TEST(ScriptedProbe, ProbeThatOutlivesTheWaitCountsAsNotFoundAndEndsByItself) {
  // Every wait lasts at most 20 ms of real time, and NMEA arrives only once
  // the search has given up on the probe.
  test::ManualClock clock(1000, 20);
  ScriptedPort port;
  auto machine = Machine(Port(1, port.Path()));
  std::atomic<bool> searchGaveUp{false};
  test::LogCapture log([&](const std::u16string& line) {
    if (line.rfind(u"GPS data was NOT found on: COM1:", 0) == 0) searchGaveUp = true;
    if (searchGaveUp && line.rfind(u"Reading from port: ", 0) == 0) port.Send(kGga);
  });
  uint32_t lastError = 0;
  EXPECT_EQ(Search(&lastError).name, "");
  EXPECT_EQ(lastError, 2u);
  // The probe goes on with its own references, hears the NMEA and closes
  // the port.
  EXPECT_TRUE(Eventually([&] { return Count(log.Text(), u"Data from port: $GPGGA") == 1; }));
  EXPECT_TRUE(Eventually([&] { return Count(log.Text(), u"Handle was closed successfuly") >= 1; }));
}

}  // namespace
}  // namespace kavo
