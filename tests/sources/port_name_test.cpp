#include "sources/port_name.h"

#include <gtest/gtest.h>

namespace kavo {
namespace {

WideString Corrected(const WideString& name) {
  WideString out = u"untouched";
  return CorrectPortName(name, &out) ? out : u"<rejected:" + out + u">";
}

TEST(PortName, IsLowerCasedWithATrailingColonAndFitsInNineteenCharacters) {
  const WideString a18(18, u'A'), lower18 = WideString(18, u'a') + u":", rejected = u"<rejected:untouched>";
  const std::pair<WideString, WideString> cases[] = {
      {u"COM1", u"com1:"}, {u"com12:", u"com12:"}, {u"COM3:", u"com3:"},   {u"/dev/ttyUSB0", u"/dev/ttyusb0:"},
      {a18, lower18},      {a18 + u":", lower18},  {a18 + u"A", rejected}, {a18 + u"A:", rejected},
      {u"", rejected}};
  for (const auto& [name, expected] : cases) EXPECT_EQ(Corrected(name), expected) << ToUtf8(name);
}

}  // namespace
}  // namespace kavo
