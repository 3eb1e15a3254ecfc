// What a serial connection does before any port answers; the behaviour
// with a port at the other end is tested in sources_serial.
#include "sources/serial_connection.h"

#include <gtest/gtest.h>

#include <regex>

#include "common/log_capture.h"

namespace kavo {
namespace {

using test::LogCapture;

Ref<SerialConnection> NewConnection() { return Ref<SerialConnection>(new SerialConnection); }

TEST(SerialConnectionWithoutPort, APortThatCannotBeOpenedFailsWithItsName) {
  LogCapture log;
  Ref<SerialConnection> connection = NewConnection();
  CIMExceptionImpl error;
  EXPECT_EQ(connection->Open(COMPortInfo(u"COM250", 4800, 0, 8, 0), &error), 0);
  EXPECT_EQ(error.Code(), kErrPortNotFound);
  EXPECT_EQ(std::u16string(error.Message()), u"COM250");
  EXPECT_FALSE(connection->IsOpen());
  const std::string text = log.Utf8();
  std::smatch found;
  ASSERT_TRUE(std::regex_search(text, found, std::regex("Last error returned ([0-9]+)\n"))) << text;
  EXPECT_NE(found[1], "0");
  EXPECT_NE(text.find("Create file on com250: returned: ffffffff\n"), std::string::npos) << text;
  EXPECT_NE(text.find(" Error!\nFinished\n"), std::string::npos) << text;
}

TEST(SerialConnectionWithoutPort, NamesThatCannotBeCorrectedAreTheGeneralFailure) {
  for (const char16_t* name : {u"", u"ABCDEFGHIJKLMNOPQRS"}) {
    LogCapture log;
    Ref<SerialConnection> connection = NewConnection();
    CIMExceptionImpl error;
    EXPECT_EQ(connection->Open(COMPortInfo(name, 4800, 0, 8, 0), &error), 0);
    EXPECT_EQ(error.Code(), kErrNone);
    EXPECT_TRUE(log.Contains(u" Error!\n"));
    EXPECT_FALSE(log.Contains(u"Create file on"));
  }
}

TEST(SerialConnectionWithoutPort, ReadAndWriteFailWhileClosed) {
  Ref<SerialConnection> connection = NewConnection();
  char16_t buffer[16];
  uint32_t count = 5;
  CIMExceptionImpl error;
  EXPECT_EQ(connection->Read(buffer, 16, &count, &error), 0);
  EXPECT_EQ(error.Code(), kErrNone);
  EXPECT_EQ(count, 5u);
  uint32_t written = 5;
  EXPECT_EQ(connection->Write(u"$PSRF", 5, &written, &error), 0);
  EXPECT_EQ(error.Code(), kErrOperationFailed);
  EXPECT_EQ(written, 5u);
}

}  // namespace
}  // namespace kavo
