// A serial connection, before any port answers and against a receiver on
// the other side of a pseudo-terminal (under Wine, one pty_peer maps to a
// COM name).
#include "sources/serial_connection.h"

#include <gtest/gtest.h>

#include <atomic>
#include <new>
#include <string>
#include <thread>

#include "common/log_capture.h"
#include "common/port_peer.h"
#include "common/test_clock.h"
#include "support/wide_string.h"

namespace kavo {
namespace {

using test::LogCapture;

// A port that cannot be opened fails with its name; a name that cannot be
// corrected is the general failure, before any open.
TEST(SerialConnectionWithoutPort, OpenFailsWithTheCodeOfWhatWentWrong) {
  const std::pair<const char16_t*, int32_t> cases[] = {
      {u"COM250", kErrPortNotFound}, {u"", kErrGeneralFailure}, {u"ABCDEFGHIJKLMNOPQRS", kErrGeneralFailure}};
  for (const auto& [name, code] : cases) {
    LogCapture quiet;
    CIMExceptionImpl error;
    EXPECT_EQ(Ref<SerialConnection>(new SerialConnection)->Open(COMPortInfo(name, 4800, 0, 8, 0), &error), 0);
    EXPECT_EQ(error.Code(), code);
    EXPECT_TRUE(code == kErrGeneralFailure || std::u16string(error.Message()) == name);
  }
}

// An allocation failing where the library does not expect one ends in the
// error record, and the port mutex is free for the next caller.
TEST(SerialConnectionWithoutPort, WhateverIsThrownInsideOpenEndsInTheRecord) {
  Ref<SerialConnection> connection(new SerialConnection);
  CIMExceptionImpl error;
  {
    LogCapture failing([](const std::u16string& text) {
      if (text.find(u"before correction") != std::u16string::npos) throw std::bad_alloc();
    });
    ASSERT_NO_THROW(EXPECT_EQ(connection->Open(COMPortInfo(u"COM250", 4800, 0, 8, 0), &error), 0));
  }
  EXPECT_EQ(error.Code(), kErrOutOfMemory);
  int read = -1;
  std::thread([&] { read = connection->Read(nullptr, 0, nullptr, nullptr); }).join();
  EXPECT_EQ(read, 0);
}

class SerialWithPeer : public testing::Test {
 protected:
  COMPortInfo Port(uint32_t baud = 4800, uint8_t parity = 0, uint8_t byteSize = 8, uint8_t stopBits = 0) const {
    return COMPortInfo(peer_->PortName().c_str(), baud, parity, byteSize, stopBits);
  }

  // Opens with the port's log and error in the message when it fails.
  testing::AssertionResult Opens(const COMPortInfo& port) {
    LogCapture log;
    CIMExceptionImpl error;
    if (connection_->Open(port, &error) == 1) return testing::AssertionSuccess();
    return testing::AssertionFailure() << "code " << error.Code() << ": " << ToUtf8(error.Message()) << "\n"
                                       << log.Utf8();
  }

  // Reads until `size` characters came or a read brought nothing.
  std::u16string ReadUpTo(size_t size) {
    std::u16string text;
    char16_t buffer[1024];
    while (text.size() < size) {
      uint32_t count = 0;
      if (!connection_->Read(buffer, 1024, &count, nullptr) || count == 0) break;
      EXPECT_LE(count, 1023u);
      EXPECT_EQ(buffer[count], 0);
      text.append(buffer, count);
    }
    return text;
  }

  test::ManualClock clock_{1000, 50};  // every wait on the port lasts at most 50 real ms
  std::unique_ptr<test::PortPeer> peer_ = test::NewPortPeer();
  Ref<SerialConnection> connection_{new SerialConnection};
};

// Each description reopens the same connection; the receiver sees the
// speed and stop bits (a pseudo-terminal takes only 8 bits without parity,
// and Wine refuses anything else on one), and what it sent before is gone.
TEST_F(SerialWithPeer, EachOpenAppliesTheLineSettingsOfItsDescription) {
  for (const auto& [port, stopBits] : {std::pair{Port(), 1}, {Port(9600, 0, 8, 2), 2}, {Port(38400), 1}}) {
    SCOPED_TRACE(port.BaudRate);
    peer_->Send("$GPGSA");  // came before the line was set: not read as if at its speed
    ASSERT_TRUE(Opens(port));
    EXPECT_EQ(peer_->Settings(), std::to_string(port.BaudRate) + " " + std::to_string(stopBits));
  }
  peer_->Send("$GPRMC");
  EXPECT_EQ(ReadUpTo(6), u"$GPRMC");
}

TEST_F(SerialWithPeer, SettingsThePortRefusesFailWithTheOperationCodeAndFreeThePort) {
  CIMExceptionImpl error;
  EXPECT_EQ(connection_->Open(Port(4800, 0, 9, 0), &error), 0);
  EXPECT_EQ(error.Code(), kErrOperationFailed);
  EXPECT_EQ(std::u16string(error.Message()), peer_->PortName());
  EXPECT_FALSE(connection_->IsOpen());
  connection_ = Ref<SerialConnection>(new SerialConnection);
  EXPECT_TRUE(Opens(Port()));
}

TEST_F(SerialWithPeer, TextMovesBothWaysAReadTakingLessThanItsCapacityAndNothingWhenIdle) {
  ASSERT_TRUE(Opens(Port()));
  std::string data = "$GPGGA,123519,4807.038,N,01131.000,E,1,08,0.9,545.4,M,46.9,M,,*47\r\n\xE9";
  while (data.size() < 3000) data += static_cast<char>('0' + data.size() % 43);
  peer_->Send(data);
  std::u16string expected;
  for (unsigned char c : data) expected += static_cast<char16_t>(c);
  EXPECT_EQ(ReadUpTo(data.size()), expected);  // no read took its whole capacity

  uint32_t written = 0;
  ASSERT_EQ(connection_->Write(u"$PSRF100,1,4800,8,1,0*0E\r\n", 26, &written, nullptr), 1);
  EXPECT_EQ(written, 26u);
  EXPECT_EQ(peer_->Receive(26, 2000), "$PSRF100,1,4800,8,1,0*0E\r\n");

  char16_t buffer[64] = {u'#'};
  uint32_t count = 99;
  CIMExceptionImpl error;
  EXPECT_EQ(connection_->Read(buffer, 64, &count, &error), 1);
  EXPECT_EQ(count, 0u);
  EXPECT_EQ(buffer[0], 0);
  EXPECT_EQ(error.Code(), kErrGeneralFailure);
}

TEST_F(SerialWithPeer, ReadingGoesOnSafelyWhileAnotherThreadWritesAndReopens) {
  ASSERT_TRUE(Opens(Port()));
  std::atomic<bool> stop{false};
  std::atomic<int> failures{0};
  std::thread reader([&] {
    char16_t buffer[1024];
    while (!stop) {
      uint32_t count = 0;
      if (!connection_->Read(buffer, 1024, &count, nullptr)) ++failures;
    }
  });
  for (int i = 0; i < 20; ++i) {
    uint32_t written = 0;
    connection_->Write(u"$PSRF\r\n", 7, &written, nullptr);
    peer_->Send("$GPGLL\r\n");
    EXPECT_EQ(connection_->Open(Port(i % 2 ? 9600 : 4800), nullptr), 1);
  }
  stop = true;
  reader.join();
  EXPECT_EQ(failures, 0);  // no read met a port half reopened
  peer_->Send("$GPZDA");
  const std::u16string rest = ReadUpTo(4096);
  ASSERT_GE(rest.size(), 6u);
  EXPECT_EQ(rest.substr(rest.size() - 6), u"$GPZDA");
}

}  // namespace
}  // namespace kavo
