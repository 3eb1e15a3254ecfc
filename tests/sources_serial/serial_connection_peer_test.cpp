// A serial connection against a receiver on the other side of a
// pseudo-terminal.
#include <gtest/gtest.h>

#include <atomic>
#include <regex>
#include <thread>
#include <string>

#include "common/log_capture.h"
#include "common/test_clock.h"
#include "port_peer.h"
#include "sources/serial_connection.h"
#include "support/wide_string.h"

namespace kavo {
namespace {

using test::LineSettings;
using test::LogCapture;

class SerialWithAnyPeer : public testing::Test {
 protected:
  void SetUp() override {
    peer_ = test::NewPortPeer();
    connection_ = Ref<SerialConnection>(new SerialConnection);
  }

  COMPortInfo Port(uint32_t baud = 4800, uint8_t parity = 0, uint8_t byteSize = 8,
                   uint8_t stopBits = 0) const {
    return COMPortInfo(peer_->PortName().c_str(), baud, parity, byteSize, stopBits);
  }

  // Opens with the port's log and error in the message when it fails.
  testing::AssertionResult Opens(Ref<SerialConnection> connection, const COMPortInfo& port) {
    LogCapture log;
    CIMExceptionImpl error;
    if (connection->Open(port, &error) == 1) return testing::AssertionSuccess();
    return testing::AssertionFailure() << "code " << error.Code() << ": " << ToUtf8(error.Message())
                                       << "\n" << log.Utf8();
  }

  // Reads until `size` bytes came or a read brought nothing.
  std::u16string ReadUpTo(size_t size, Ref<SerialConnection> connection = {}) {
    if (!connection) connection = connection_;
    std::u16string text;
    char16_t buffer[1024];
    while (text.size() < size) {
      uint32_t count = 0;
      CIMExceptionImpl error;
      if (!connection->Read(buffer, 1024, &count, &error) || count == 0) break;
      EXPECT_LE(count, 1023u);
      EXPECT_EQ(buffer[count], 0);
      text.append(buffer, count);
    }
    return text;
  }

  // Every wait on the port lasts at most 50 real milliseconds.
  test::ManualClock clock_{1000, 50};
  std::unique_ptr<test::PortPeer> peer_;
  Ref<SerialConnection> connection_;
};

// Where the port takes the settings a connection makes.
class SerialWithPeer : public SerialWithAnyPeer {
 protected:
  void SetUp() override {
    SerialWithAnyPeer::SetUp();
    if (!peer_->Limits().rtsToggle) GTEST_SKIP() << "the serial layer refuses RTS toggle control";
  }
};

TEST_F(SerialWithPeer, TheReceiverSeesTheLineSettingsOfTheDescription) {
  struct Case {
    COMPortInfo port;
    int stopBits;
  };
  const Case cases[] = {
      {Port(), 1},
      {Port(9600, 2, 7, 2), 2},
      {Port(2400, 1, 8, 0), 1},
      {Port(19200, 3, 8, 0), 1},
      {Port(38400, 4, 6, 2), 2},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.port.BaudRate);
    Ref<SerialConnection> connection(new SerialConnection);
    ASSERT_TRUE(Opens(connection, c.port));
    const LineSettings seen = peer_->Settings();
    EXPECT_EQ(seen.speed, c.port.BaudRate);
    EXPECT_EQ(seen.stopBits, c.stopBits);
  }
}

TEST_F(SerialWithAnyPeer, SettingsThePortRefusesFailWithTheOperationCodeAndFreeThePort) {
  CIMExceptionImpl error;
  EXPECT_EQ(connection_->Open(Port(4800, 0, 9, 0), &error), 0);
  EXPECT_EQ(error.Code(), kErrOperationFailed);
  EXPECT_EQ(std::u16string(error.Message()), peer_->PortName());
  EXPECT_FALSE(connection_->IsOpen());
  // Nothing is left holding the port.
  EXPECT_TRUE(platform::SerialPort::Open(ToLower(peer_->PortName()) + u":", platform::SerialAccess::kReadWrite));
}

TEST_F(SerialWithPeer, TextMovesBothWays) {
  ASSERT_TRUE(Opens(connection_, Port()));
  const std::string sentence = "$GPGGA,123519,4807.038,N,01131.000,E,1,08,0.9,545.4,M,46.9,M,,*47\r\n";
  peer_->Send(sentence + "\xE9");
  EXPECT_EQ(ReadUpTo(sentence.size() + 1), FromUtf8(sentence) + u"\u00E9");

  uint32_t written = 0;
  CIMExceptionImpl error;
  ASSERT_EQ(connection_->Write(u"$PSRF100,1,4800,8,1,0*0E\r\n", 26, &written, &error), 1);
  EXPECT_EQ(written, 26u);
  EXPECT_EQ(peer_->Receive(26, 2000), "$PSRF100,1,4800,8,1,0*0E\r\n");
}

TEST_F(SerialWithPeer, AnIdleReadEndsWithNothingAfterTheTimeOut) {
  ASSERT_TRUE(Opens(connection_, Port()));
  char16_t buffer[64];
  buffer[0] = u'#';
  uint32_t count = 99;
  CIMExceptionImpl error;
  EXPECT_EQ(connection_->Read(buffer, 64, &count, &error), 1);
  EXPECT_EQ(count, 0u);
  EXPECT_EQ(buffer[0], 0);
  EXPECT_EQ(error.Code(), kErrNone);
}

TEST_F(SerialWithPeer, AReadTakesAtMostOneLessThanItsCapacity) {
  ASSERT_TRUE(Opens(connection_, Port()));
  std::string data;
  for (int i = 0; i < 3000; ++i) data += static_cast<char>('0' + i % 43);
  peer_->Send(data);
  char16_t buffer[1024];
  uint32_t count = 0;
  ASSERT_EQ(connection_->Read(buffer, 1024, &count, nullptr), 1);
  EXPECT_GT(count, 0u);
  EXPECT_LE(count, 1023u);
  // Nothing is lost or duplicated between reads.
  const std::u16string rest = ReadUpTo(3000 - count);
  EXPECT_EQ(std::u16string(buffer, count) + rest, FromUtf8(data));
}

TEST_F(SerialWithPeer, APortAlreadyHeldCannotBeOpenedUntilItIsReleased) {
  if (!peer_->Limits().exclusiveOpen) GTEST_SKIP() << "the serial layer does not hold ports exclusively";
  ASSERT_TRUE(Opens(connection_, Port()));
  LogCapture log;
  Ref<SerialConnection> second(new SerialConnection);
  CIMExceptionImpl error;
  EXPECT_EQ(second->Open(Port(), &error), 0);
  EXPECT_EQ(error.Code(), kErrPortNotFound);
  EXPECT_EQ(std::u16string(error.Message()), peer_->PortName());
  const std::string text = log.Utf8();
  std::smatch found;
  ASSERT_TRUE(std::regex_search(text, found, std::regex(" Last error returned ([0-9]+)\n"))) << text;
  EXPECT_NE(found[1], "0");
  // The first connection still works, and once released the port is free.
  peer_->Send("$GP");
  EXPECT_EQ(ReadUpTo(3), u"$GP");
  connection_ = Ref<SerialConnection>();
  EXPECT_EQ(second->Open(Port(), &error), 1);
}

TEST_F(SerialWithPeer, ReopeningClosesThePortAndAppliesTheNewSettings) {
  ASSERT_TRUE(Opens(connection_, Port(4800, 0, 8, 2)));
  EXPECT_EQ(peer_->Settings().stopBits, 2);
  ASSERT_TRUE(Opens(connection_, Port(9600, 2, 7, 0)));
  EXPECT_EQ(peer_->Settings().stopBits, 1);
  EXPECT_TRUE(connection_->IsOpen());
  EXPECT_EQ(peer_->Settings().speed, 9600u);
  peer_->Send("$GPRMC");
  EXPECT_EQ(ReadUpTo(6), u"$GPRMC");
}

TEST_F(SerialWithPeer, ReadingGoesOnSafelyWhileAnotherThreadWritesAndReopens) {
  ASSERT_TRUE(Opens(connection_, Port()));
  std::atomic<bool> stop{false};
  std::atomic<int> failures{0};
  std::thread reader([&] {
    char16_t buffer[1024];
    while (!stop) {
      uint32_t count = 0;
      CIMExceptionImpl error;
      if (!connection_->Read(buffer, 1024, &count, &error)) ++failures;
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
  // Open and Read exclude each other: no read meets a port half reopened.
  EXPECT_EQ(failures, 0);
  EXPECT_TRUE(connection_->IsOpen());
  peer_->Send("$GPZDA");
  const std::u16string rest = ReadUpTo(4096);
  ASSERT_GE(rest.size(), 6u);
  EXPECT_EQ(rest.substr(rest.size() - 6), u"$GPZDA");
}

TEST_F(SerialWithPeer, OpeningAndClosingAreLoggedAsScopes) {
  LogCapture log;
  ASSERT_EQ(connection_->Open(Port(), nullptr), 1);
  connection_ = Ref<SerialConnection>();
  const std::string name = ToUtf8(peer_->PortName());
  const std::string corrected = ToUtf8(ToLower(FromUtf8(name))) + ":";
  const std::string expected =
      "Initializing connection to port\n"
      " COM port name before correction: " + name + "\n"
      " colon symbol is not found in port name\n"
      " port name length: " + std::to_string(corrected.size()) + "\n"
      " Create file on " + corrected + " returned: ([0-9a-f]+)\n"
      "Finished\n"
      "Closing connection\n"
      " File handle: \\1\n"
      " Handle was closed successfuly\n"
      "Finished\n";
  EXPECT_TRUE(std::regex_match(log.Utf8(), std::regex(expected))) << log.Utf8();
}

TEST_F(SerialWithPeer, AReceiverThatHangsUpMakesReadsFail) {
  if (!peer_->Limits().hangUpFailsReads) GTEST_SKIP() << "the serial layer does not report a hang-up";
  ASSERT_TRUE(Opens(connection_, Port()));
  peer_->Send("$GPGSV");
  EXPECT_EQ(ReadUpTo(6), u"$GPGSV");
  peer_->HangUp();
  for (int i = 0; i < 3; ++i) {
    char16_t buffer[64];
    uint32_t count = 0;
    CIMExceptionImpl error;
    EXPECT_EQ(connection_->Read(buffer, 64, &count, &error), 0);
    EXPECT_EQ(error.Code(), kErrOperationFailed);
  }
}

}  // namespace
}  // namespace kavo
