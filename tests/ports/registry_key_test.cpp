#include "ports/registry_key.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <string>
#include <tuple>

#include "common/registry_model.h"
#include "platform/platform.h"
#include "support/error.h"

namespace kavo {
namespace {

namespace reg = platform::registry;

TEST(RegistryKey, PathsMatchInAnyCaseAndStringsMustFitWithTheirTerminator) {
  test::RegistryModel model(
      "[HKEY_LOCAL_MACHINE\\Software\\KavoMobileGPS Tests]\r\n\"Text\"=\"abcd\"\r\n\"Number\"=dword:0000001e\r\n");
  ASSERT_TRUE(model.Ok());
  RegistryKey key;
  EXPECT_THROW(key.Open(u"HKEY_LOCAL_MACHINE", reg::kKeyRead), CIMExceptionEx);  // no backslash
  EXPECT_FALSE(key.Open(u"HKEY_NOWHERE\\Software", reg::kKeyRead));
  ASSERT_TRUE(key.Open(u"hkey_local_machine\\SOFTWARE\\kavomobilegps tests", reg::kKeyReadWrite));
  // Text of an odd number of bytes, written through the registry itself
  // since an import would pad it, is no string.
  reg::Key raw = 0;
  ASSERT_EQ(reg::OpenKey(reg::kLocalMachine, u"Software\\KavoMobileGPS Tests", reg::kKeyReadWrite, &raw), 0u);
  const uint8_t odd[] = {0x41, 0, 0x42};
  ASSERT_EQ(reg::SetValue(raw, u"Odd", reg::kTypeString, odd, sizeof odd), 0u);
  // Real registries hold strings stored without their terminator too.
  const uint8_t unterminated[] = {'a', 0, 'b', 0, 'c', 0, 'd', 0};
  ASSERT_EQ(reg::SetValue(raw, u"NoEnd", reg::kTypeString, unterminated, sizeof unterminated), 0u);
  reg::CloseKey(raw);
  // Size in, whether it reads, length out ("abcd" and its terminator take 5).
  const std::tuple<const char16_t*, uint32_t, bool, uint32_t> cases[] = {
      {u"TEXT", 5, true, 5},     {u"Text", 4, false, 4}, {u"Number", 8, false, 8}, {u"Odd", 8, false, 8},
      {u"Missing", 8, false, 8}, {u"NoEnd", 8, true, 4}, {u"NoEnd", 4, false, 4}};
  for (const auto& [name, size, ok, lengthAfter] : cases) {
    char16_t buffer[8];
    std::fill(std::begin(buffer), std::end(buffer), u'#');  // what a caller's buffer may hold
    uint32_t length = size;
    EXPECT_EQ(key.QueryString(name, buffer, &length) != 0, ok) << size;
    if (ok) {
      EXPECT_EQ(std::u16string(buffer), u"abcd");
    }
    EXPECT_EQ(length, lengthAfter);
  }
}

}  // namespace
}  // namespace kavo
