#include "sources/port_name.h"

#include <gtest/gtest.h>

#include "common/log_capture.h"

namespace kavo {
namespace {

WideString Corrected(const WideString& name) {
  WideString out = u"untouched";
  return CorrectPortName(name, &out) ? out : u"<rejected:" + out + u">";
}

TEST(PortName, IsLowerCasedWithATrailingColon) {
  EXPECT_EQ(Corrected(u"COM1"), u"com1:");
  EXPECT_EQ(Corrected(u"com12:"), u"com12:");
  EXPECT_EQ(Corrected(u"COM3:"), u"com3:");
  EXPECT_EQ(Corrected(u"/dev/ttyUSB0"), u"/dev/ttyusb0:");
}

TEST(PortName, FitsInNineteenCharactersWithItsColon) {
  EXPECT_EQ(Corrected(WideString(18, u'A')), WideString(18, u'a') + u":");
  EXPECT_EQ(Corrected(WideString(18, u'A') + u":"), WideString(18, u'a') + u":");
  EXPECT_EQ(Corrected(WideString(19, u'A')), u"<rejected:untouched>");
  EXPECT_EQ(Corrected(WideString(19, u'A') + u":"), u"<rejected:untouched>");
  EXPECT_EQ(Corrected(u""), u"<rejected:untouched>");
}

TEST(PortName, LogsTheAppendedColonAndTheLength) {
  test::LogCapture log;
  Corrected(u"COM7");
  Corrected(u"COM8:");
  EXPECT_EQ(log.Text(),
            u"colon symbol is not found in port name\n"
            u"port name length: 5\n"
            u"port name length: 5\n");
}

}  // namespace
}  // namespace kavo
