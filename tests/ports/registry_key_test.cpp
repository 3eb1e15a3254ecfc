#include "ports/registry_key.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
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
      "[HKEY_LOCAL_MACHINE\\Software\\KavoMobileGPS Tests]\r\n\"Text\"=\"abcd\"\r\n"
      "\"Number\"=dword:0000001e\r\n\"Bytes\"=hex:01,02,03\r\n"};
};

std::u16string ReadText(RegistryKey& key, const char16_t* name) {
  char16_t buffer[64];
  uint32_t length = 64;
  return key.QueryString(name, buffer, &length) ? std::u16string(buffer) : u"<failed>";
}

TEST_F(RegistryKeyTest, RootNamesMatchInAnyCaseAndAPathNeedsABackslash) {
  RegistryKey key;
  ASSERT_TRUE(key.Open(u"hkey_local_machine\\SOFTWARE\\kavomobilegps tests", reg::kKeyRead));
  EXPECT_EQ(ReadText(key, u"TEXT"), u"abcd");
  {
    // A key made by its user is not freed when a count on it ends.
    Ref<RegistryKey> held(&key);
  }
  EXPECT_EQ(ReadText(key, u"Text"), u"abcd");

  ASSERT_TRUE(key.Open(u"HKEY_LOCAL_MACHINE\\", reg::kKeyRead));  // the root itself
  Ref<RegistryKey> scratch;
  ASSERT_TRUE(key.OpenSubkey(u"Software\\KavoMobileGPS Tests", &scratch, reg::kKeyRead));
  EXPECT_EQ(ReadText(*scratch, u"Text"), u"abcd");

  EXPECT_FALSE(key.Open(u"HKEY_NOWHERE\\Software", reg::kKeyRead));
  EXPECT_FALSE(key.IsOpen());
  EXPECT_FALSE(key.Open(u"HKEY_LOCAL_MACHINE\\Software\\KavoMobileGPS Tests\\Missing", reg::kKeyRead));
  EXPECT_THROW(key.Open(u"HKEY_LOCAL_MACHINE", reg::kKeyRead), CIMExceptionEx);
  EXPECT_FALSE(RegistryKey::OpenPath(u"HKEY_USERS\\No\\Such\\Key", reg::kKeyRead));
  EXPECT_TRUE(RegistryKey::OpenPath(kScratch, reg::kKeyRead));
}

TEST_F(RegistryKeyTest, StringsMustFitTheBufferWithTheirTerminatorAndBeText) {
  // Text of an odd number of bytes, written through the registry itself
  // since an import would pad it.
  reg::Key raw = 0;
  ASSERT_EQ(reg::OpenKey(reg::kLocalMachine, u"Software\\KavoMobileGPS Tests", reg::kKeyReadWrite, &raw), 0u);
  const uint8_t odd[] = {0x41, 0, 0x42};
  ASSERT_EQ(reg::SetValue(raw, u"Odd", reg::kTypeString, odd, sizeof odd), 0u);
  reg::CloseKey(raw);

  RegistryKey key;
  ASSERT_TRUE(key.Open(kScratch, reg::kKeyRead));
  char16_t buffer[8] = {};
  uint32_t length = 5;  // "abcd" and its terminator
  ASSERT_TRUE(key.QueryString(u"Text", buffer, &length));
  EXPECT_EQ(std::u16string(buffer), u"abcd");
  EXPECT_EQ(length, 5u);
  length = 4;  // one short
  EXPECT_FALSE(key.QueryString(u"Text", buffer, &length));
  EXPECT_EQ(length, 4u);
  length = 8;
  for (const char16_t* refused : {u"Number", u"Odd", u"Missing"}) {
    EXPECT_FALSE(key.QueryString(refused, buffer, &length));
    EXPECT_EQ(length, 8u);
  }
}

TEST_F(RegistryKeyTest, TypedValuesRoundTripAndOnlyReadAsTheirOwnType) {
  RegistryKey key;
  ASSERT_TRUE(key.Open(kScratch, reg::kKeyReadWrite));
  ASSERT_TRUE(key.SetNumber(u"Negative", -2));
  int32_t number = 0;
  ASSERT_TRUE(key.QueryNumber(u"Negative", &number));
  EXPECT_EQ(number, -2);
  const uint8_t bytes[] = {0, 0xFF, 7};
  ASSERT_TRUE(key.SetBinary(u"Blob", bytes, sizeof bytes));
  uint8_t read[8] = {};
  uint32_t size = sizeof read;
  ASSERT_TRUE(key.QueryBinary(u"Blob", read, &size));
  EXPECT_EQ(std::vector<uint8_t>(read, read + size), std::vector<uint8_t>(bytes, bytes + 3));
  size = 2;
  EXPECT_FALSE(key.QueryBinary(u"Blob", read, &size));
  size = sizeof read;
  EXPECT_FALSE(key.QueryBinary(u"Number", read, &size));
  EXPECT_FALSE(key.QueryNumber(u"Bytes", &number));
  EXPECT_FALSE(key.QueryNumber(u"Text", &number));
  ASSERT_TRUE(key.SetString(u"new text", u"Text"));
  EXPECT_EQ(ReadText(key, u"Text"), u"new text");

  platform::SetLastError(0);
  EXPECT_FALSE(key.SetString(u"one\0two\0", u"Multi", true, -1));  // a multi-string needs its length
  EXPECT_EQ(platform::GetLastError(), platform::kErrorInvalidParameter);
  try {
    key.SetString(nullptr, u"Text");
    ADD_FAILURE() << "a missing text was written";
  } catch (const CIMExceptionEx& error) {
    EXPECT_EQ(static_cast<uint32_t>(error.Code()), 0x80004005u);
  }
  ASSERT_TRUE(key.DeleteValue(u"Blob"));
  EXPECT_FALSE(key.DeleteValue(u"Blob"));

  // A read-only key refuses writes; a closed one everything.
  RegistryKey readOnly;
  ASSERT_TRUE(readOnly.Open(kScratch, reg::kKeyRead));
  EXPECT_FALSE(readOnly.SetNumber(u"Number", 1u));
  readOnly.Close();
  EXPECT_FALSE(readOnly.QueryNumber(u"Number", &number));
  EXPECT_FALSE(readOnly.EnumerateValues(nullptr));
}

TEST_F(RegistryKeyTest, LongNamesAreWalkedAfterTheBufferGrew) {
  RegistryKey key;
  ASSERT_TRUE(key.Open(kScratch, reg::kKeyReadWrite));
  const std::u16string longName(1500, u'v');
  ASSERT_TRUE(key.SetNumber(longName.c_str(), 1u));
  Names names;
  ASSERT_TRUE(key.EnumerateValues([&](const char16_t* name) { names.emplace_back(name); }));
  std::sort(names.begin(), names.end());  // value order differs between registries
  EXPECT_EQ(names, (Names{u"Bytes", u"Number", u"Text", longName}));

  EXPECT_EQ(RegistryKey::GrowNameBuffer(1024), 1536u);
  EXPECT_EQ(RegistryKey::GrowNameBuffer(2147483647u - 512), 2147483647u);
  EXPECT_THROW(RegistryKey::GrowNameBuffer(2147483647u - 511), CIMExceptionEx);
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
  EXPECT_FALSE(key.DeleteSubkeyTree(u"Tree"));
}

}  // namespace
}  // namespace kavo
