// Finding the receiver: the intermediate driver's port first, then every
// listed port at 4800, 9600 and 2400 baud, as an application asks for it.
#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "KavoMobileGPS.h"
#include "common/environment.h"
#include "common/eventually.h"
#include "common/log_capture.h"
#include "common/pty_peer/pty_receiver.h"
#include "common/registry_model.h"
#include "common/test_clock.h"
#include "sim/posix/pty_receiver.h"
#include "utf_conversion.h"

namespace kavo {
namespace {

using test::Eventually;

std::string Name(COMPortInfoHandle port) {
  return unicode::Utf16ToUtf8(reinterpret_cast<const char16_t*>(COMPortInfo_GetName(port)));
}

// A machine whose registry lists an active serial driver "COMn:" for each
// device, and the intermediate driver's port when one is given.
test::RegistryModel Machine(const std::vector<std::pair<std::string, std::string>>& devices,
                            const std::string& intermediate = "") {
  std::string keys = "[HKEY_LOCAL_MACHINE\\Drivers\\Active]\r\n";
  for (size_t i = 0; i < devices.size(); ++i) {
    const std::string n = std::to_string(i + 7);
    keys += "[HKEY_LOCAL_MACHINE\\Drivers\\Active\\" + n + "]\r\n\"Name\"=\"COM" + n + ":\"\r\n\"Key\"=\"Drivers\\\\S" +
            n + "\"\r\n[HKEY_LOCAL_MACHINE\\Drivers\\S" + n + "]\r\n\"FriendlyName\"=\"" + devices[i].second +
            "\"\r\n[HKEY_LOCAL_MACHINE\\Hardware\\DeviceMap\\SerialComm]\r\n\"" + devices[i].first + "\"=\"COM" + n +
            "\"\r\n";
  }
  if (!intermediate.empty())
    keys +=
        "[HKEY_LOCAL_MACHINE\\System\\CurrentControlSet\\GPS Intermediate Driver\\Multiplexer]\r\n"
        "\"DriverInterface\"=\"" +
        intermediate + "\"\r\n";
  return test::RegistryModel(keys);
}

// Time run 20 times faster for the probes' pauses, reads and the receivers,
// while the search waits for its probe as long as the probe takes on a slow
// machine: no outcome depends on how fast this one is.
class SearchClock : public test::FastClock {
 public:
  SearchClock() : FastClock(20) {}
  uint32_t RealWaitMs(uint32_t ms) override { return ms >= 15000 ? 120000 : FastClock::RealWaitMs(ms); }
};

std::unique_ptr<sim::PtyReceiver> Receiver(uint32_t baud, bool silent = false, double binaryMessages = 0.0) {
  sim::PtyReceiverOptions options;
  options.simulation.rateHz = 5;
  options.simulation.binaryMessages = binaryMessages;
  options.baudRate = baud;
  options.silent = silent;
  options.realWaitMs = [](uint32_t ms) { return platform::CurrentClock().RealWaitMs(ms); };
  auto receiver = std::make_unique<sim::PtyReceiver>(options);
  receiver->Start();
  return receiver;
}

// The name and speed found, "" when nothing was; `lastError` after the search.
std::pair<std::string, int> Search(uint32_t* lastError = nullptr) {
  COMPortInfoHandle port = COMPortInfo_FindGPSCOMPort(1);
  if (lastError) *lastError = KavoMobileGPS_GetLastError();
  if (!port) return {"", 0};
  COMPortParams params{};
  COMPortInfo_GetParams(port, &params);
  const std::pair<std::string, int> found(Name(port), params.BaudRate);
  COMPortInfo_Release(port);
  return found;
}

class PortSearch : public ::testing::Test {
 protected:
  SearchClock clock;
};

TEST_F(PortSearch, IntermediatePortFirstAndTrustedEvenWhenSilent) {
  auto gps = Receiver(4800), other = Receiver(4800);
  {
    auto machine = Machine({{other->DevicePath(), "USB"}}, gps->DevicePath());
    test::LogCapture log;
    EXPECT_EQ(Search(), std::pair(gps->DevicePath(), 4800));
    EXPECT_FALSE(log.Contains(u"Scaning ports")) << log.Utf8();
  }
  auto silent = Receiver(9600, true), quiet = Receiver(4800, true);
  auto machine = Machine({{quiet->DevicePath(), "USB"}}, silent->DevicePath());
  test::LogCapture log;
  EXPECT_EQ(Search(), std::pair(silent->DevicePath(), 4800));
  EXPECT_TRUE(log.Contains(u"Reading from port: COM7:")) << "the listed ports were tried first";
}

TEST_F(PortSearch, TheLastSpeedIsTriedAndADriverOpensTheFoundPortAtTheSpeedFound) {
  {
    // An older receiver: garbage at 4800 and at 9600, found at 2400.
    auto old = Receiver(2400);
    auto machine = Machine({{old->DevicePath(), "USB"}});
    EXPECT_EQ(Search(), std::pair(std::string("COM7:"), 2400));
  }
  // A survey module that sends a binary message before every sentence:
  // found, and read in full once other talkers are accepted.
  auto gps = Receiver(9600, false, 1.0);
  auto machine = Machine({{gps->DevicePath(), "USB"}});
  test::ScopedEnvironment talkers("KAVOGPS_TALKERS", "GP,GN");
  COMPortInfoHandle port = COMPortInfo_FindGPSCOMPort(1);
  ASSERT_NE(port, nullptr);
  static std::atomic<int> fixes;
  fixes = 0;
  GPSDriverHandle driver = GPSDriver_CreateFromCOMPort(port, nullptr, nullptr, [](const KavoChar* sentence) {
    fixes += std::u16string_view(sentence).substr(0, 6) == u"$GPGGA";
  });
  COMPortInfo_Release(port);
  ASSERT_EQ(GPSDriver_Start(driver), 1) << KavoMobileGPS_GetLastError();
  const uint64_t epochs = gps->Snapshot().epochs;
  // Every epoch's fix once the driver reads, a few the defaults would see.
  EXPECT_TRUE(Eventually([&] { return gps->Snapshot().epochs >= epochs + 30; }));
  EXPECT_GE(fixes, 25);
  EXPECT_EQ(gps->Snapshot().lineBaud, 9600u) << "the driver opened the port at the speed found";
  GPSDriver_Release(driver);
}

// A Bluetooth port goes after every normal one, wherever it is listed;
// silence at 4800 ends a probe; nothing found is error 2, no port list 50.
TEST_F(PortSearch, EarlierPortWinsAndSilenceOrNoPortListFindsNothing) {
  auto first = Receiver(4800), second = Receiver(4800), silent = Receiver(9600, true);
  {
    auto machine = Machine({{first->DevicePath(), "USB"}, {second->DevicePath(), "Bluetooth Serial Port"}});
    EXPECT_EQ(Search().first, "COM7:");
  }
  uint32_t lastError = 0;
  {
    auto machine = Machine({{silent->DevicePath(), "USB"}});
    EXPECT_EQ(Search(&lastError).first, "");
    EXPECT_EQ(lastError, 2u);
    EXPECT_EQ(silent->Snapshot().lineBaud, 4800u) << "no other speed was tried";
  }
  test::RegistryModel empty("");
  EXPECT_EQ(Search(&lastError).first, "");
  EXPECT_EQ(lastError, 50u) << "the port list could not be built";
}

// A pseudo-terminal the test writes to as the probe reads, driven from the
// probe's own log lines, on a clock that moves only by the probe's pauses.
class ScriptedProbe : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(port_.Open(&path_, &slave_)); }
  void TearDown() override { close(slave_); }
  size_t Count(const std::u16string& piece) const {
    size_t n = 0;
    for (size_t at = log_.Text().find(piece); at != std::u16string::npos; at = log_.Text().find(piece, at + 1)) ++n;
    return n;
  }
  const char* kGga = "$GPGGA,120000,4807.038,N,01131.000,E,1,08,0.9,545.4,M,46.9,M,,*47\r\n";
  test::PtyReceiver port_;
  std::string path_;
  int slave_ = -1;  // kept open so that the line stays up between probes
  std::atomic<int> reads_{0};
  std::atomic<bool> gaveUp_{false};
  std::function<void()> onRead_;
  test::LogCapture log_{[this](const std::u16string& line) {
    if (line.rfind(u"GPS data was NOT found on: ", 0) == 0) gaveUp_ = true;
    if (line.rfind(u"Reading from port: ", 0) == 0)
      if (++reads_ && onRead_) onRead_();
  }};
};

TEST_F(ScriptedProbe, NmeaInTheThirdReadEndsTheProbeWithoutAPause) {
  test::ManualClock clock(1000, 120000);  // each read finds what was sent before it: no wait ends by itself
  auto machine = Machine({{path_, "USB"}});
  onRead_ = [&] { port_.Send(reads_ == 3 ? kGga : "\x13\x7f\x01 noise\r\n"); };
  EXPECT_EQ(Search(), std::pair(std::string("COM7:"), 4800));
  EXPECT_EQ(reads_.load(), 3);
  EXPECT_EQ(clock.Sleeps(), (std::vector<uint32_t>{600, 600})) << "no pause after the read that found NMEA";
}

TEST_F(ScriptedProbe, ProbeThatOutlivesTheWaitCountsAsNotFoundAndEndsByItself) {
  test::ManualClock clock(1000, 20);  // NMEA comes only once the search gave up on the probe
  auto machine = Machine({{path_, "USB"}});
  onRead_ = [&] {
    if (gaveUp_) port_.Send(kGga);
  };
  uint32_t lastError = 0;
  EXPECT_EQ(Search(&lastError).first, "");
  EXPECT_EQ(lastError, 2u);
  // The probe goes on with its own references, hears the NMEA and closes the port.
  EXPECT_TRUE(Eventually([&] { return Count(u"Data from port: $GPGGA") == 1; }));
  EXPECT_TRUE(Eventually([&] { return Count(u"Handle was closed successfuly") >= 1; }));
}

}  // namespace
}  // namespace kavo
