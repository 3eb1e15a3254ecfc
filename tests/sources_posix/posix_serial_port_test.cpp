// The termios serial port on pseudo-terminals.
#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <sys/file.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <random>

#include "common/log_capture.h"
#include "common/temp_dir.h"
#include "common/test_clock.h"
#include "platform/serial_port.h"
#include "sources/serial_connection.h"

namespace kavo::platform {
namespace {

constexpr uint32_t kMaxDword = 0xFFFFFFFFu;

class PtySerialPort : public testing::Test {
 protected:
  void SetUp() override {
    char name[128] = {};
    int slave = -1;
    ASSERT_EQ(openpty(&master_, &slave, name, nullptr, nullptr), 0);
    close(slave);
    path_ = name;
    port_ = SerialPort::Open(Utf8ToUtf16(path_ + ":"), SerialAccess::kReadWrite);
    ASSERT_TRUE(port_) << "last error " << GetLastError();
  }
  void TearDown() override {
    port_.reset();
    if (master_ >= 0) close(master_);
  }
  void Send(const std::string& bytes) {
    ASSERT_EQ(write(master_, bytes.data(), bytes.size()), ssize_t(bytes.size()));
  }
  void SetTimeouts(uint32_t interval, uint32_t multiplier, uint32_t constant) {
    SerialTimeouts t;
    t.readInterval = interval;
    t.readTotalMultiplier = multiplier;
    t.readTotalConstant = constant;
    t.writeTotalMultiplier = 100;
    ASSERT_TRUE(port_->SetTimeouts(t));
  }
  std::string Read(uint32_t size, bool expectOk = true) {
    std::string buffer(size, '\0');
    uint32_t got = 0;
    EXPECT_EQ(port_->Read(buffer.data(), size, &got), expectOk);
    buffer.resize(got);
    return buffer;
  }

  test::ManualClock clock_{1000, 30};  // every wait lasts at most 30 real ms
  int master_ = -1;
  std::string path_;
  std::unique_ptr<SerialPort> port_;
};

TEST_F(PtySerialPort, IsHeldExclusivelyUntilClosed) {
  EXPECT_FALSE(SerialPort::Open(Utf8ToUtf16(path_), SerialAccess::kRead));
  EXPECT_EQ(GetLastError(), kErrorAccessDenied);
  const int other = open(path_.c_str(), O_RDWR | O_NOCTTY);
  if (other >= 0) {  // TIOCEXCL does not stop root, flock does
    EXPECT_NE(flock(other, LOCK_EX | LOCK_NB), 0);
    close(other);
  }
  ASSERT_TRUE(port_->Close());
  EXPECT_FALSE(port_->Close());
  EXPECT_TRUE(SerialPort::Open(Utf8ToUtf16(path_), SerialAccess::kRead));
}

TEST_F(PtySerialPort, TheStateReadsBackInTheDcbForm) {
  SerialState state;
  ASSERT_TRUE(port_->GetState(&state));
  EXPECT_EQ(state.length, 28u);
  EXPECT_TRUE(state.flags & kDcbBinary);
  state.baudRate = 9600;
  state.stopBits = 1;
  state.flags = (state.flags & ~0x20u) | 0x3010u | kDcbParityCheck;
  ASSERT_TRUE(port_->SetState(state));
  SerialState back;
  ASSERT_TRUE(port_->GetState(&back));
  EXPECT_EQ(back.baudRate, 9600u);
  EXPECT_EQ(back.stopBits, 2);
  EXPECT_EQ(back.flags & kDcbParityCheck, kDcbParityCheck);
  EXPECT_EQ(back.flags & kDcbRtsControlMask, kDcbRtsControlToggle);
  EXPECT_EQ(back.flags & kDcbDtrControlMask, kDcbDtrControlEnable);
  state.byteSize = 9;
  EXPECT_FALSE(port_->SetState(state));
  EXPECT_EQ(GetLastError(), kErrorInvalidParameter);
}

TEST_F(PtySerialPort, ReadsHonourEachKindOfTimeOut) {
  // At once with what is queued.
  SetTimeouts(kMaxDword, 0, 0);
  EXPECT_EQ(Read(8), "");
  Send("abc");
  EXPECT_EQ(Read(8), "abc");
  // Up to the constant for the first byte, then what is queued.
  SetTimeouts(kMaxDword, kMaxDword, 700);
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(Read(8), "");
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(600))
      << "the wait did not go through the clock";
  Send("defgh");
  EXPECT_EQ(Read(3), "def");
  EXPECT_EQ(Read(8), "gh");
  // No time-outs: the read waits until all it asked for came.
  SetTimeouts(0, 0, 0);
  Send("0123456789");
  EXPECT_EQ(Read(10), "0123456789");
  // A total time-out ends a read that got part of its bytes.
  SetTimeouts(0, 10, 100);
  Send("xyz");
  EXPECT_EQ(Read(10), "xyz");
}

TEST_F(PtySerialPort, AWriteNobodyReadsEndsAtItsTimeOut) {
  SetTimeouts(kMaxDword, kMaxDword, 700);
  const std::string big(1 << 20, 'x');
  uint32_t written = 0;
  ASSERT_TRUE(port_->Write(big.data(), uint32_t(big.size()), &written));
  EXPECT_GT(written, 0u);
  EXPECT_LT(written, big.size());
}

TEST(PosixSerialPortOpen, WhatIsNotATerminalIsNotAPort) {
  test::TempDir dir;
  dir.Write("file", "data");
  for (const std::string& path : {std::string("/dev/null"), dir.File("file"), dir.File("none")}) {
    SetLastError(0);
    EXPECT_FALSE(SerialPort::Open(Utf8ToUtf16(path + ":"), SerialAccess::kReadWrite)) << path;
    EXPECT_EQ(GetLastError(), kErrorFileNotFound) << path;
  }
}

// An 18-character path without its colon is the longest name a connection
// takes: a link of that length to a pseudo-terminal.
TEST(PosixSerialConnection, OpensAnEighteenCharacterDevicePath) {
  test::ManualClock clock(1000, 30);
  int master = -1, slave = -1;
  char name[128] = {};
  ASSERT_EQ(openpty(&master, &slave, name, nullptr, nullptr), 0);
  close(slave);
  std::string link;
  std::mt19937 random(std::random_device{}());
  do {
    link = "/tmp/kg";
    while (link.size() < 18) link += static_cast<char>('a' + random() % 26);
  } while (std::filesystem::exists(link));
  ASSERT_EQ(symlink(name, link.c_str()), 0);

  test::LogCapture log;
  Ref<SerialConnection> connection(new SerialConnection);
  CIMExceptionImpl error;
  EXPECT_EQ(connection->Open(COMPortInfo(Utf8ToUtf16(link).c_str(), 4800, 0, 8, 0), &error), 1)
      << ToUtf8(error.Message());
  EXPECT_TRUE(log.Contains(u" port name length: 19\n"));
  ASSERT_EQ(write(master, "$GPVTG", 6), 6);
  char16_t buffer[16];
  uint32_t count = 0;
  EXPECT_EQ(connection->Read(buffer, 16, &count, &error), 1);
  EXPECT_EQ(std::u16string(buffer, count), u"$GPVTG");
  connection = Ref<SerialConnection>();
  unlink(link.c_str());
  close(master);
}

}  // namespace
}  // namespace kavo::platform
