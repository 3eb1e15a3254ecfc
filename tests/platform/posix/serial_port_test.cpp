// The termios serial port: the mapping of line settings to termios, device
// names in any case, and on pseudo-terminals other programs' locks, a query
// that changes nothing, rates by number, time-outs and the wake-up.
#include <fcntl.h>
#include <sys/file.h>
#include <sys/ioctl.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <future>
#include <thread>

#include "common/log_capture.h"
#include "common/pty_peer/pty_receiver.h"
#include "common/registry_model.h"
#include "common/temp_dir.h"
#include "common/test_clock.h"
#include "platform/posix/custom_baud_rate.h"
#include "platform/posix/serial_device_path.h"
#include "platform/posix/termios_settings.h"
#include "ports/com_port_collection.h"
#include "sources/serial_connection.h"
#include "utf_conversion.h"

namespace kavo::platform::posix {
namespace {

constexpr uint32_t kOutxCtsFlow = 0x0004, kOutX = 0x0100, kInX = 0x0200;

SerialState State(uint32_t baud, uint8_t parity, uint8_t byteSize, uint8_t stopBits, uint32_t flags = 0) {
  return SerialState{28, baud, flags, byteSize, parity, stopBits};
}

TEST(TermiosSettings, EveryParityByteSizeAndStopBitCodeMapsAndReadsBack) {
  const tcflag_t parities[] = {0, PARENB | PARODD, PARENB, PARENB | PARODD | CMSPAR, PARENB | CMSPAR};
  const tcflag_t sizes[] = {CS5, CS6, CS7, CS8};
  for (uint8_t parity = 0; parity <= 4; ++parity) {
    for (uint8_t size = 5; size <= 8; ++size) {
      for (uint8_t stop = 0; stop <= 2; ++stop) {
        SCOPED_TRACE(testing::Message() << int(parity) << " " << int(size) << " " << int(stop));
        termios tio{};
        tio.c_cflag = CSIZE | PARENB | PARODD | CMSPAR | CSTOPB | CRTSCTS;  // all to be replaced
        ASSERT_TRUE(ApplyDcb(State(4800, parity, size, stop), &tio));
        EXPECT_EQ(tio.c_cflag & (PARENB | PARODD | CMSPAR | CSIZE | CSTOPB | CRTSCTS),
                  parities[parity] | sizes[size - 5] | (stop ? CSTOPB : 0));
        const SerialState back = DcbFrom(tio, 0);
        EXPECT_EQ(std::vector<int>({back.parity, back.byteSize, back.stopBits, int(back.baudRate)}),
                  std::vector<int>({parity, size, stop == 0 ? 0 : 2, 4800}));  // one and a half is two
      }
    }
  }
}

TEST(TermiosSettings, FlagsTermiosHoldsTravelAndTheOthersAreKept) {
  termios tio{};
  ASSERT_TRUE(
      ApplyDcb(State(9600, 2, 8, 0, kDcbParityCheck | kOutxCtsFlow | kOutX | kInX | kDcbDtrControlEnable), &tio));
  EXPECT_EQ(tio.c_iflag & (INPCK | IXON | IXOFF), tcflag_t(INPCK | IXON | IXOFF));
  EXPECT_TRUE(tio.c_cflag & CRTSCTS);
  // DTR and RTS control are not termios matters: they come from `flags`.
  EXPECT_EQ(DcbFrom(tio, kDcbRtsControlToggle).flags,
            kDcbBinary | kDcbParityCheck | kOutxCtsFlow | kOutX | kInX | kDcbRtsControlToggle);
  ASSERT_TRUE(ApplyDcb(State(9600, 2, 8, 0, 0), &tio));
  EXPECT_EQ(DcbFrom(tio, kDcbParityCheck | kDcbDtrControlEnable).flags, kDcbBinary | kDcbDtrControlEnable);
}

TEST(TermiosSettings, CodesThePortCannotTakeAreRefusedAndOtherRatesKeepTheSpeed) {
  for (const SerialState& bad :
       {State(4800, 5, 8, 0), State(4800, 0, 4, 0), State(4800, 0, 9, 0), State(4800, 0, 8, 3), State(0, 0, 8, 0)}) {
    termios tio{};
    tio.c_cflag = CS7;
    EXPECT_FALSE(ApplyDcb(bad, &tio));
    EXPECT_EQ(tio.c_cflag, tcflag_t(CS7)) << "changed although refused";
  }
  termios tio{};
  ASSERT_TRUE(ApplyDcb(State(230400, 0, 8, 0), &tio));
  ASSERT_TRUE(ApplyDcb(State(14400, 0, 7, 0), &tio));  // set by number by the port
  EXPECT_EQ(cfgetospeed(&tio), speed_t(B230400));
  EXPECT_EQ(tio.c_cflag & CSIZE, tcflag_t(CS7));
}

TEST(SerialDevicePath, APathIsFoundWhateverTheCaseItWasLoweredToAndAnExactMatchWins) {
  test::TempDir dir;
  std::filesystem::create_directories(dir.File("Dev/Serial"));
  dir.Write("Dev/Serial/ttyUSB0", "");
  const std::string real = dir.File("Dev/Serial/ttyUSB0");
  EXPECT_EQ(ResolveSerialDevicePath(unicode::Utf8ToUtf16(dir.File("dev/serial/ttyusb0:"))), real);
  dir.Write("Dev/Serial/ttyusb0", "");
  EXPECT_EQ(FindPathIgnoringCase(dir.File("Dev/Serial/ttyusb0")), dir.File("Dev/Serial/ttyusb0"));
  EXPECT_EQ(FindPathIgnoringCase(real), real);
  EXPECT_EQ(FindPathIgnoringCase(dir.File("dev/serial/TTYUSB0")), dir.File("Dev/Serial/ttyUSB0"));
  EXPECT_EQ(FindPathIgnoringCase(dir.File("Dev/Serial/ttyUSB1")), std::nullopt);
  EXPECT_EQ(FindPathIgnoringCase("relative/path"), std::nullopt);
}

class Pty : public testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(receiver_.Open(&path_)); }
  std::u16string Name() const { return unicode::Utf8ToUtf16(path_ + ":"); }
  COMPortInfo Port() const { return COMPortInfo(unicode::Utf8ToUtf16(path_).c_str(), 4800, 0, 8, 0); }
  int Holder(bool exclusive, bool locked) const {  // another program's descriptor
    const int fd = open(path_.c_str(), O_RDWR | O_NOCTTY);
    EXPECT_EQ(exclusive ? ioctl(fd, TIOCEXCL) : 0, 0);
    EXPECT_EQ(locked ? flock(fd, LOCK_EX) : 0, 0);
    return fd;
  }
  static int Exclusive(int fd) {
    int on = -1;
    EXPECT_EQ(ioctl(fd, TIOCGEXCL, &on), 0);
    return on;
  }

  test::PtyReceiver receiver_;
  std::string path_;
};

// Root is not kept out by TIOCEXCL, so the library asks before it opens;
// and it lifts only the exclusivity it set itself.
TEST_F(Pty, APortAnotherProgramHoldsIsBusyAndKeepsItsLock) {
  test::ManualClock clock(1000, 30);
  for (const auto& [exclusive, locked] : {std::pair{true, false}, {false, true}, {true, true}}) {
    SCOPED_TRACE(testing::Message() << "TIOCEXCL " << exclusive << ", flock " << locked);
    const int holder = Holder(exclusive, locked);
    test::LogCapture log;
    CIMExceptionImpl error;
    EXPECT_EQ(Ref<SerialConnection>(new SerialConnection)->Open(Port(), &error), 0);
    EXPECT_EQ(error.Code(), kErrPortNotFound);
    EXPECT_EQ(std::u16string(error.Message()), unicode::Utf8ToUtf16(path_));
    EXPECT_TRUE(log.Contains(u" Last error returned 5\n")) << log.Utf8();
    SetLastError(0);
    EXPECT_FALSE(SerialPort::Open(Name(), SerialAccess::kQuery));
    EXPECT_EQ(GetLastError(), kErrorAccessDenied);
    EXPECT_EQ(Exclusive(holder), exclusive ? 1 : 0);
    ioctl(holder, TIOCNXCL);  // it would outlive its holder on a pseudo-terminal
    close(holder);
  }
}

TEST_F(Pty, AQueryReadsTheSettingsAndLeavesThePortAsItWas) {
  termios before{};
  ASSERT_EQ(tcgetattr(receiver_.Master(), &before), 0);
  before.c_lflag |= ICANON | ECHO;
  before.c_iflag |= ICRNL | INPCK;
  before.c_oflag |= OPOST;
  before.c_cflag |= CSTOPB;  // a pseudo-terminal keeps 8 bits without parity whatever is set
  cfsetspeed(&before, B9600);
  ASSERT_EQ(tcsetattr(receiver_.Master(), TCSANOW, &before), 0);
  ASSERT_EQ(tcgetattr(receiver_.Master(), &before), 0);
  test::RegistryModel model(
      "[HKEY_LOCAL_MACHINE\\Drivers\\Active\\01]\r\n\"Name\"=\"COM7:\"\r\n"
      "[HKEY_LOCAL_MACHINE\\Hardware\\DeviceMap\\SerialComm]\r\n\"" +
      path_ + "\"=\"COM7\"\r\n");
  test::LogCapture quiet;
  COMPortInfo port;
  uint8_t busy = 9;
  ASSERT_TRUE(COMPortCollection::Create(1)->ObtainPort(0, &port, &busy, nullptr));
  EXPECT_EQ(std::vector<int>({busy, int(port.BaudRate), port.Parity, port.ByteSize, port.StopBits}),
            std::vector<int>({0, 9600, 1, 8, 2}));
  termios after{};
  ASSERT_EQ(tcgetattr(receiver_.Master(), &after), 0);
  EXPECT_EQ(std::vector<tcflag_t>({after.c_iflag, after.c_oflag, after.c_cflag, after.c_lflag}),
            std::vector<tcflag_t>({before.c_iflag, before.c_oflag, before.c_cflag, before.c_lflag}));
}

TEST_F(Pty, RatesWithoutASpeedConstantAreSetAndAWriteNobodyReadsEndsAtItsTimeOut) {
  test::ManualClock clock(1000, 30);  // every wait lasts at most 30 real ms
  const std::unique_ptr<SerialPort> port = SerialPort::Open(Name(), SerialAccess::kReadWrite);
  ASSERT_TRUE(port);
  for (uint32_t rate : {14400u, 56000u, 128000u, 256000u, 4800u}) {
    SerialState state;
    ASSERT_TRUE(port->GetState(&state));
    state.baudRate = rate;
    EXPECT_TRUE(port->SetState(state)) << rate;
    ASSERT_TRUE(port->GetState(&state));
    EXPECT_EQ(state.baudRate, rate);
    EXPECT_EQ(posix::ReadBaudRate(receiver_.Master()), rate);  // what the receiver's side sees
  }
  ASSERT_TRUE(port->SetTimeouts(SerialTimeouts{0, 0, 0, 100, 0}));
  const std::string big(1 << 20, 'x');
  uint32_t written = 0;
  ASSERT_TRUE(port->Write(big.data(), uint32_t(big.size()), &written));
  EXPECT_GT(written, 0u);
  EXPECT_LT(written, big.size());
}

// Waits last a day here: only data or a cancel ends a read.
class WaitWatchingClock : public test::ManualClock {
 public:
  uint32_t RealWaitMs(uint32_t ms) override {
    if (ms == kInfinite) return ms;
    ++waits;
    return 86'400'000;
  }
  std::atomic<int> waits{0};
};

TEST_F(Pty, ACancelEndsAWaitingReadOrElseTheNextOneUntilForgotten) {
  WaitWatchingClock clock;
  Ref<SerialConnection> connection(new SerialConnection);
  ASSERT_EQ(connection->Open(Port(), nullptr), 1);
  const auto read = [&] {
    return std::async(std::launch::async, [&] {
      char16_t buffer[64];
      uint32_t count = 99;
      return connection->Read(buffer, 64, &count, nullptr) ? std::u16string(buffer, count) : u"<failed>";
    });
  };
  const auto finish = [&](std::future<std::u16string> reading) {
    if (reading.wait_for(std::chrono::seconds(60)) != std::future_status::ready) receiver_.Send("!");  // stuck
    return reading.get();
  };
  connection->CancelRead();  // no read waiting: the next one ends at once
  EXPECT_EQ(finish(read()), u"");
  const int waitsBefore = clock.waits;
  std::future<std::u16string> waiting = read();
  while (clock.waits == waitsBefore) std::this_thread::yield();
  connection->CancelRead();
  EXPECT_EQ(finish(std::move(waiting)), u"");
  receiver_.Send("$GP");  // and reading goes on as before
  EXPECT_EQ(finish(read()), u"$GP");
  // A cancel no read took up is forgotten when a new run begins: its first
  // read waits for the receiver.
  connection->CancelRead();
  connection->ResetCancelRead();
  const int waitsThen = clock.waits;
  std::future<std::u16string> first = read();
  while (clock.waits == waitsThen) std::this_thread::yield();
  receiver_.Send("$GN");
  EXPECT_EQ(finish(std::move(first)), u"$GN");
}

TEST(PosixSerialPortOpen, PortNamesWithoutAMapMissingPathsAndWhatIsNotATerminalAreNotPorts) {
  test::TempDir dir;
  dir.Write("file", "data");
  for (const std::string& name :
       {std::string("com3:"), std::string("/no/such/device:"), std::string("/dev/null:"), dir.File("file:")}) {
    SetLastError(0);
    EXPECT_FALSE(SerialPort::Open(unicode::Utf8ToUtf16(name), SerialAccess::kReadWrite)) << name;
    EXPECT_EQ(GetLastError(), kErrorFileNotFound) << name;
  }
}

}  // namespace
}  // namespace kavo::platform::posix
