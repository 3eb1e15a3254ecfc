// Ports handed out by the collection, on pseudo-terminals reached through
// the registry's port map.
#include <gtest/gtest.h>
#include <pty.h>
#include <termios.h>
#include <unistd.h>

#include <string>

#include "KavoMobileGPS.h"
#include "common/registry_model.h"
#include "platform/platform.h"
#include "platform/serial_port.h"

namespace kavo {
namespace {

class PtyPort : public ::testing::Test {
 protected:
  void SetUp() override {
    char name[128] = {};
    int slave = -1;
    ASSERT_EQ(openpty(&master_, &slave, name, nullptr, nullptr), 0);
    close(slave);
    path_ = name;
    // Listed as COM7:, mapped to the pseudo-terminal in upper case: the
    // lookup ignores case and the colon.
    model_ = std::make_unique<test::RegistryModel>(
        "[HKEY_LOCAL_MACHINE\\Drivers\\Active\\01]\r\n\"Name\"=\"COM7:\"\r\n"
        "[HKEY_LOCAL_MACHINE\\Hardware\\DeviceMap\\SerialComm]\r\n\"" + path_ + "\"=\"Com7\"\r\n");
  }
  void TearDown() override { close(master_); }

  // The settings the other end reports for the port.
  void SetLine(speed_t speed, tcflag_t flags, bool parityCheck) {
    termios tio{};
    ASSERT_EQ(tcgetattr(master_, &tio), 0);
    cfmakeraw(&tio);
    cfsetspeed(&tio, speed);
    tio.c_cflag = (tio.c_cflag & ~(CSIZE | PARENB | PARODD | CSTOPB)) | flags;
    if (parityCheck) tio.c_iflag |= INPCK;
    ASSERT_EQ(tcsetattr(master_, TCSANOW, &tio), 0);
  }

  COMPortInfoHandle Obtain(uint8_t* busy) {
    COMPortCollectionHandle ports = COMPortCollection_Create(1);
    EXPECT_NE(ports, nullptr);
    if (!ports) return nullptr;
    COMPortInfoHandle port = COMPortCollection_GetPort(ports, 0, busy);
    COMPortCollection_Release(ports);
    return port;
  }

  int master_ = -1;
  std::string path_;
  std::unique_ptr<test::RegistryModel> model_;
};

TEST_F(PtyPort, AFreePortReportsItsOwnSettingsWithTheParityCheckAsParity) {
  SetLine(B9600, CS8 | CSTOPB, true);  // no parity, yet checking on
  uint8_t busy = 9;
  COMPortInfoHandle port = Obtain(&busy);
  ASSERT_NE(port, nullptr);
  EXPECT_EQ(busy, 0);
  EXPECT_EQ(std::u16string(reinterpret_cast<const char16_t*>(COMPortInfo_GetName(port))), u"COM7:");
  COMPortParams params{};
  ASSERT_EQ(COMPortInfo_GetParams(port, &params), 1);
  EXPECT_EQ(params.BaudRate, 9600);
  EXPECT_EQ(params.Parity, 1);  // checking on, whatever the mode
  EXPECT_EQ(params.ByteSize, 8);
  EXPECT_EQ(params.StopBits, 2);
  COMPortInfo_Release(port);

  // A speed the tables leave out is handed over but cannot be read out.
  SetLine(B300, CS8, false);
  port = Obtain(&busy);
  ASSERT_NE(port, nullptr);
  EXPECT_EQ(busy, 0);
  EXPECT_EQ(COMPortInfo_GetParams(port, &params), 0);
  EXPECT_EQ(KavoMobileGPS_GetLastError(), 160u);
  COMPortInfo_Release(port);
}

TEST_F(PtyPort, APortHeldElsewhereIsBusyWithItsListedNameAndTheDefaults) {
  SetLine(B19200, CS7 | PARENB, true);
  const auto holder = platform::SerialPort::Open(platform::Utf8ToUtf16(path_ + ":"),
                                                 platform::SerialAccess::kReadWrite);
  ASSERT_NE(holder, nullptr);
  uint8_t busy = 0;
  COMPortInfoHandle port = Obtain(&busy);
  ASSERT_NE(port, nullptr);
  EXPECT_EQ(busy, 1);
  EXPECT_EQ(std::u16string(reinterpret_cast<const char16_t*>(COMPortInfo_GetName(port))), u"COM7:");
  COMPortParams params{};
  ASSERT_EQ(COMPortInfo_GetParams(port, &params), 1);
  EXPECT_EQ(params.BaudRate, 4800);
  EXPECT_EQ(params.Parity, 0);
  EXPECT_EQ(params.ByteSize, 8);
  EXPECT_EQ(params.StopBits, 0);
  COMPortInfo_Release(port);
}

}  // namespace
}  // namespace kavo
