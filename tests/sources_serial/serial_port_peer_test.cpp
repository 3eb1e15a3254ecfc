// The platform's serial port, as the connection drives it, against a
// receiver on a pseudo-terminal. Settings are made with RTS enabled rather
// than toggled, so that they also run where toggling is refused.
#include "platform/serial_port.h"

#include <gtest/gtest.h>

#include <chrono>
#include <string>

#include "common/test_clock.h"
#include "port_peer.h"
#include "support/wide_string.h"

namespace kavo::platform {
namespace {

constexpr uint32_t kMaxDword = 0xFFFFFFFFu;

class PortWithPeer : public testing::Test {
 protected:
  void SetUp() override {
    peer_ = test::NewPortPeer();
    port_ = SerialPort::Open(ToLower(peer_->PortName()) + u":", SerialAccess::kReadWrite);
    ASSERT_TRUE(port_) << "last error " << GetLastError();
    // As a connection opens a port: settings first (which is also what
    // takes a terminal under Wine out of its line discipline), time-outs
    // second.
    ASSERT_NO_FATAL_FAILURE(SetLine(4800, 0));
    SerialTimeouts timeouts;
    timeouts.readInterval = kMaxDword;
    timeouts.readTotalMultiplier = kMaxDword;
    timeouts.readTotalConstant = 700;
    timeouts.writeTotalMultiplier = 100;
    ASSERT_TRUE(port_->SetTimeouts(timeouts));
  }

  void SetLine(uint32_t speed, uint8_t stopBits) {
    SerialState state;
    ASSERT_TRUE(port_->GetState(&state));
    state.baudRate = speed;
    state.stopBits = stopBits;
    state.byteSize = 8;
    state.parity = 0;
    state.flags = (state.flags & ~(kDcbDtrControlMask | kDcbRtsControlMask)) | kDcbDtrControlEnable | 0x1000;
    ASSERT_TRUE(port_->SetState(state)) << "last error " << GetLastError();
  }

  std::string Read(uint32_t size) {
    std::string bytes(size, '\0');
    uint32_t got = 0;
    EXPECT_TRUE(port_->Read(bytes.data(), size, &got)) << "last error " << GetLastError();
    bytes.resize(got);
    return bytes;
  }

  // Every wait on the port lasts at most 50 real milliseconds.
  test::ManualClock clock_{1000, 50};
  std::unique_ptr<test::PortPeer> peer_;
  std::unique_ptr<SerialPort> port_;
};

TEST_F(PortWithPeer, TheReceiverSeesTheSpeedAndStopBitsSet) {
  for (uint32_t speed : {9600u, 2400u, 4800u}) {
    for (uint8_t stopBits : {0, 2}) {
      ASSERT_NO_FATAL_FAILURE(SetLine(speed, stopBits));
      const test::LineSettings seen = peer_->Settings();
      EXPECT_EQ(seen.speed, speed);
      EXPECT_EQ(seen.stopBits, stopBits == 0 ? 1 : 2);
      SerialState back;
      ASSERT_TRUE(port_->GetState(&back));
      EXPECT_EQ(back.baudRate, speed);
      EXPECT_EQ(back.stopBits, stopBits);
    }
  }
}

TEST_F(PortWithPeer, BytesMoveBothWaysAndAReadTakesNoMoreThanAskedForNorWaitsLonger) {
  peer_->Send("$GPGSA,A,3,04,05,,09,12,,,24,,,,,2.5,1.3,2.1*39\r\n");
  std::string got = Read(10);
  EXPECT_EQ(got, "$GPGSA,A,3");
  while (got.size() < 49) {
    const std::string more = Read(64);
    if (more.empty()) break;
    got += more;
  }
  EXPECT_EQ(got, "$GPGSA,A,3,04,05,,09,12,,,24,,,,,2.5,1.3,2.1*39\r\n");
  // Idle now: the read ends empty at the time-out as the clock counts it.
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(Read(64), "");
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(600));
  uint32_t written = 0;
  ASSERT_TRUE(port_->Write("$PSRF103\r\n", 10, &written));
  EXPECT_EQ(written, 10u);
  EXPECT_EQ(peer_->Receive(10, 2000), "$PSRF103\r\n");
}

TEST_F(PortWithPeer, AfterAHangUpNoReadDeliversOrHangs) {
  peer_->Send("$GP");
  EXPECT_EQ(Read(8), "$GP");
  peer_->HangUp();
  for (int i = 0; i < 3; ++i) {
    const auto start = std::chrono::steady_clock::now();
    char bytes[8];
    uint32_t got = 99;
    const bool ok = port_->Read(bytes, 8, &got);
    EXPECT_EQ(got, 0u);
    EXPECT_EQ(ok, !peer_->Limits().hangUpFailsReads);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(600));
  }
  uint32_t written = 0;
  if (peer_->Limits().hangUpFailsReads) {
    EXPECT_FALSE(port_->Write("x", 1, &written));
  }
}

}  // namespace
}  // namespace kavo::platform
