#include "ports/registry_key.h"

#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <vector>

#include "common/registry_model.h"
#include "platform/platform.h"
#include "support/error.h"

namespace kavo {
namespace {

namespace reg = platform::registry;
using Names = std::vector<std::u16string>;

constexpr const char16_t* kScratch = u"HKEY_LOCAL_MACHINE\\Software\\KavoMobileGPS Tests";

class RegistryKeyTest : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(model_.Ok()); }
  test::RegistryModel model_{
      "[HKEY_LOCAL_MACHINE\\Software\\KavoMobileGPS Tests]\r\n\"Text\"=\"abcd\"\r\n\"Number\"=dword:0000001e\r\n"};
};

TEST_F(RegistryKeyTest, PathsMatchInAnyCaseAndStringsMustFitWithTheirTerminator) {
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
  reg::CloseKey(raw);
  char16_t buffer[8] = {};
  const std::tuple<const char16_t*, uint32_t, bool> cases[] = {
      {u"TEXT", 5, true}, {u"Text", 4, false}, {u"Number", 8, false}, {u"Odd", 8, false}, {u"Missing", 8, false}};
  for (const auto& [name, size, ok] : cases) {
    uint32_t length = size;
    EXPECT_EQ(key.QueryString(name, buffer, &length) != 0, ok) << size;
    if (ok) {
      EXPECT_EQ(std::u16string(buffer), u"abcd");
    }
    EXPECT_EQ(length, size);  // "abcd" and its terminator take 5
  }
}

TEST_F(RegistryKeyTest, SubkeysAreCreatedWalkedAndDeletedAsATree) {
  RegistryKey key;
  ASSERT_TRUE(key.Open(kScratch, reg::kKeyReadWrite));
  Ref<RegistryKey> tree, leaf;
  uint32_t disposition = 0;
  ASSERT_TRUE(key.CreateSubkey(u"Tree", &tree, nullptr, 0, reg::kKeyReadWrite, &disposition));
  EXPECT_EQ(disposition, reg::kCreatedNewKey);
  ASSERT_TRUE(tree->CreateSubkey(u"b\\deep", &leaf));
  ASSERT_TRUE(leaf->SetNumber(u"x", 1u));
  ASSERT_TRUE(tree->CreateSubkey(u"a", &leaf));
  const std::u16string longName(1500, u'v');  // outgrows the first name buffer
  ASSERT_TRUE(tree->SetNumber(longName.c_str(), 1u));
  Names values;
  ASSERT_TRUE(tree->EnumerateValues([&](const char16_t* name) { values.emplace_back(name); }));
  EXPECT_EQ(values, Names{longName});
  ASSERT_TRUE(key.CreateSubkey(u"Tree", &tree, nullptr, 0, reg::kKeyReadWrite, &disposition));
  EXPECT_EQ(disposition, reg::kOpenedExistingKey);
  Names names;
  ASSERT_TRUE(tree->EnumerateSubkeys([&](const char16_t* name) { names.emplace_back(name); }));
  EXPECT_EQ(names, (Names{u"a", u"b"}));
  EXPECT_FALSE(key.DeleteSubkey(u"Tree"));  // it has subkeys
  leaf.reset();
  tree.reset();
  ASSERT_TRUE(key.DeleteSubkeyTree(u"Tree"));
  EXPECT_FALSE(key.OpenSubkey(u"Tree", &tree, reg::kKeyRead));
}

}  // namespace
}  // namespace kavo
