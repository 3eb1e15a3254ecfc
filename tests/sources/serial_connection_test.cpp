// What a serial connection does before any port answers; the behaviour
// with a port at the other end is tested in serial/.
#include "sources/serial_connection.h"

#include <gtest/gtest.h>

#include <new>
#include <regex>
#include <thread>

#include "common/log_capture.h"

namespace kavo {
namespace {

// A port that cannot be opened fails with its name after the last error;
// a name that cannot be corrected is the general failure, before any open.
TEST(SerialConnectionWithoutPort, OpenFailsWithTheCodeOfWhatWentWrong) {
  const struct {
    const char16_t* name;
    int32_t code;
    const char* log;
  } cases[] = {{u"COM250", kErrPortNotFound, "Create file on com250: returned: ffffffff\n Last error returned [1-9][0-9]*\n"},
               {u"", kErrNone, "name before correction: \n Error!"},
               {u"ABCDEFGHIJKLMNOPQRS", kErrNone, "not found in port name\n Error!"}};
  for (const auto& c : cases) {
    test::LogCapture log;
    CIMExceptionImpl error;
    EXPECT_EQ(Ref<SerialConnection>(new SerialConnection)->Open(COMPortInfo(c.name, 4800, 0, 8, 0), &error), 0);
    EXPECT_EQ(error.Code(), c.code);
    EXPECT_TRUE(c.code == kErrNone || std::u16string(error.Message()) == c.name);
    EXPECT_TRUE(std::regex_search(log.Utf8(), std::regex(std::string(c.log)))) << log.Utf8();
    EXPECT_TRUE(log.Contains(u" Error!\nFinished\n")) << log.Utf8();
  }
}

TEST(SerialConnectionWithoutPort, ReadAndWriteFailWhileClosed) {
  Ref<SerialConnection> connection(new SerialConnection);
  char16_t buffer[16];
  uint32_t count = 5, written = 5;
  CIMExceptionImpl error;
  EXPECT_EQ(connection->Read(buffer, 16, &count, &error), 0);
  EXPECT_EQ(error.Code(), kErrNone);
  EXPECT_EQ(connection->Write(u"$PSRF", 5, &written, &error), 0);
  EXPECT_EQ(error.Code(), kErrOperationFailed);
  EXPECT_EQ(count + written, 10u);
}

// An allocation failing where the library does not expect one ends in the
// error record, and the port mutex is free for the next caller.
TEST(SerialConnectionWithoutPort, WhateverIsThrownInsideOpenEndsInTheRecord) {
  Ref<SerialConnection> connection(new SerialConnection);
  CIMExceptionImpl error;
  {
    test::LogCapture failing([](const std::u16string& text) {
      if (text.find(u"before correction") != std::u16string::npos) throw std::bad_alloc();
    });
    ASSERT_NO_THROW(EXPECT_EQ(connection->Open(COMPortInfo(u"COM250", 4800, 0, 8, 0), &error), 0));
  }
  EXPECT_EQ(error.Code(), kErrOutOfMemory);
  int read = -1;
  std::thread([&] { read = connection->Read(nullptr, 0, nullptr, nullptr); }).join();
  EXPECT_EQ(read, 0);
}

}  // namespace
}  // namespace kavo
