#include "platform/posix/reg_file_parser.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "common/log_capture.h"
#include "common/registry_model.h"
#include "platform/platform.h"
#include "platform/posix/registry_loader.h"
#include "ports/registry_key.h"

namespace kavo::platform::posix {
namespace {

using Bytes = std::vector<uint8_t>;

Bytes Utf16Bytes(const std::u16string& text) {
  Bytes bytes;
  for (char16_t c : text) {
    bytes.push_back(static_cast<uint8_t>(c & 0xFF));
    bytes.push_back(static_cast<uint8_t>(c >> 8));
  }
  return bytes;
}

const RegistryValue* Find(const RegistryHive& hive, registry::Key root, const char16_t* path,
                          const char16_t* name) {
  const auto key = RegistryHive::Find(hive.Root(root), path);
  return key ? key->FindValue(name) : nullptr;
}

const char* kEveryConstruct =
    "Windows Registry Editor Version 5.00\r\n"
    "\r\n"
    "; a comment\r\n"
    "[HKEY_LOCAL_MACHINE\\Test\\Key]\r\n"
    "\"Text\"=\"a \\\"quoted\\\" C:\\\\path\"\r\n"
    "@=\"default\"\r\n"
    "\"Number\"=dword:0000001e\r\n"
    "\"Bin\"=hex:01,02,\\\r\n"
    "  ff\r\n"
    "\"Expand\"=hex(2):25,00,41,00,00,00\r\n"
    "\"Multi\"=hex(7):61,00,00,00,62,00,00,00,00,00\r\n"
    "\"Gone\"=\"x\"\r\n"
    "\"Gone\"=-\r\n"
    "\r\n"
    "[hkey_current_user\\Other]\n"
    "\"Empty\"=hex:\n"
    "[HKEY_LOCAL_MACHINE\\Test\\Doomed\\Child]\r\n"
    "\"x\"=dword:1\r\n"
    "[-HKEY_LOCAL_MACHINE\\Test\\Doomed]\r\n"
    "\"ignored\"=dword:2\r\n";

void ExpectEveryConstruct(const RegistryHive& hive) {
  const auto value = [&](const char16_t* name) { return Find(hive, registry::kLocalMachine, u"Test\\Key", name); };
  ASSERT_NE(value(u"Text"), nullptr);
  EXPECT_EQ(value(u"Text")->type, registry::kTypeString);
  EXPECT_EQ(value(u"Text")->data, Utf16Bytes(std::u16string(u"a \"quoted\" C:\\path") + u'\0'));
  ASSERT_NE(value(u""), nullptr);
  EXPECT_EQ(value(u"")->data, Utf16Bytes(std::u16string(u"default") + u'\0'));
  ASSERT_NE(value(u"Number"), nullptr);
  EXPECT_EQ(value(u"Number")->type, registry::kTypeDword);
  EXPECT_EQ(value(u"Number")->data, (Bytes{0x1e, 0, 0, 0}));
  ASSERT_NE(value(u"Bin"), nullptr);
  EXPECT_EQ(value(u"Bin")->type, registry::kTypeBinary);
  EXPECT_EQ(value(u"Bin")->data, (Bytes{1, 2, 0xff}));
  ASSERT_NE(value(u"Expand"), nullptr);
  EXPECT_EQ(value(u"Expand")->type, registry::kTypeExpandString);
  EXPECT_EQ(value(u"Expand")->data, (Bytes{0x25, 0, 0x41, 0, 0, 0}));
  ASSERT_NE(value(u"Multi"), nullptr);
  EXPECT_EQ(value(u"Multi")->type, registry::kTypeMultiString);
  EXPECT_EQ(value(u"Multi")->data.size(), 10u);
  EXPECT_EQ(value(u"Gone"), nullptr);

  const RegistryValue* empty = Find(hive, registry::kCurrentUser, u"Other", u"Empty");
  ASSERT_NE(empty, nullptr);
  EXPECT_TRUE(empty->data.empty());
  EXPECT_NE(RegistryHive::Find(hive.Root(registry::kLocalMachine), u"Test"), nullptr);
  EXPECT_EQ(RegistryHive::Find(hive.Root(registry::kLocalMachine), u"Test\\Doomed"), nullptr);
}

TEST(RegFile, EveryConstructReadsTheSameInUtf8AndUtf16) {
  RegistryHive plain;
  RegFileError error;
  ASSERT_TRUE(ParseRegText(DecodeRegFileBytes(kEveryConstruct), plain, &error))
      << error.line << ": " << Utf16ToUtf8(error.reason);
  ExpectEveryConstruct(plain);

  const std::u16string text = Utf8ToUtf16(kEveryConstruct);
  std::string utf16 = "\xFF\xFE";
  for (char16_t c : text) utf16 += {static_cast<char>(c & 0xFF), static_cast<char>(c >> 8)};
  RegistryHive wide;
  ASSERT_TRUE(ParseRegText(DecodeRegFileBytes(utf16), wide, &error));
  ExpectEveryConstruct(wide);

  EXPECT_EQ(DecodeRegFileBytes("\xEF\xBB\xBF" "Caf\xC3\xA9"), u"Caf\u00e9");
}

TEST(RegFile, AMalformedLineIsReportedWithItsNumber) {
  const std::string header = "Windows Registry Editor Version 5.00\r\n\r\n[HKEY_LOCAL_MACHINE\\K]\r\n";
  const struct {
    std::string text;
    size_t line;
  } cases[] = {
      {"REGEDIT5\r\n", 1},
      {"", 1},
      {"Windows Registry Editor Version 5.00\r\n\"Early\"=dword:1\r\n", 2},
      {header + "\"N\"=dword:xyz\r\n", 4},
      {header + "\"N\"=dword:123456789\r\n", 4},
      {header + "\"N\"=\"unterminated\r\n", 4},
      {header + "\"N\"=\"bad \\q escape\"\r\n", 4},
      {header + "\"N\"=\"text\" trailing\r\n", 4},
      {header + "\"N\"=qword:1\r\n", 4},
      {header + "\"N\"=hex:01,\\\r\n  02,zz\r\n", 4},
      {header + "\"N\"=hex(z):01\r\n", 4},
      {header + "\"N\" dword:1\r\n", 4},
      {header + "\r\n[HKEY_NOWHERE\\X]\r\n", 5},
      {header + "[HKEY_LOCAL_MACHINE\\X\r\n", 4},
      {header + "[-HKEY_LOCAL_MACHINE]\r\n", 4},
      {header + "garbage\r\n", 4},
  };
  for (const auto& c : cases) {
    RegistryHive hive;
    RegFileError error;
    EXPECT_FALSE(ParseRegText(DecodeRegFileBytes(c.text), hive, &error)) << c.text;
    EXPECT_EQ(error.line, c.line) << c.text;
    EXPECT_FALSE(error.reason.empty());
  }
}

TEST(RegFile, AFileThatCannotBeUsedLeavesAnEmptyRegistryAndALogLine) {
  const std::pair<std::string, std::u16string> cases[] = {
      {"[HKEY_LOCAL_MACHINE\\Drivers\\Active\\01]\r\n\"Name\"=\"COM1:\"\r\n\"Bad\"=dword:\r\n", u"line 5: "},
      {"\x01\x02\x03", u"line 3: "},
  };
  for (const auto& [body, where] : cases) {
    test::RegistryModel model(body);
    test::LogCapture log;
    RegistryKey key;
    // What came before the bad line is not kept either.
    EXPECT_FALSE(key.Open(u"HKEY_LOCAL_MACHINE\\Drivers\\Active", registry::kKeyRead));
    EXPECT_TRUE(log.Contains(u"machine.reg, " + where)) << log.Utf8();
    EXPECT_TRUE(log.Contains(u"Registry file /")) << log.Utf8();
  }

  setenv("KAVOGPS_REGISTRY", "/nonexistent/machine.reg", 1);
  ReloadRegistry();
  test::LogCapture log;
  RegistryKey key;
  EXPECT_FALSE(key.Open(u"HKEY_LOCAL_MACHINE\\Drivers\\Active", registry::kKeyRead));
  EXPECT_TRUE(log.Contains(u"Registry file /nonexistent/machine.reg cannot be read")) << log.Utf8();
  unsetenv("KAVOGPS_REGISTRY");
  ReloadRegistry();
}

TEST(RegFile, KeyNamesMayOutgrowTheFirstNameBuffer) {
  const std::string longName(1500, 'k');
  test::RegistryModel model("[HKEY_LOCAL_MACHINE\\Long\\" + longName + "]\r\n[HKEY_LOCAL_MACHINE\\Long\\short]\r\n");
  RegistryKey key;
  ASSERT_TRUE(key.Open(u"HKEY_LOCAL_MACHINE\\Long", registry::kKeyRead));
  std::vector<std::string> names;
  ASSERT_TRUE(key.EnumerateSubkeys([&](const char16_t* name) { names.push_back(Utf16ToUtf8(name)); }));
  EXPECT_EQ(names, (std::vector<std::string>{longName, "short"}));
}

}  // namespace
}  // namespace kavo::platform::posix
