// The COMPortInfo_ and COMPortCollection_ functions as an application calls
// them.
#include <gtest/gtest.h>

#include <functional>
#include <iterator>
#include <string>

#include "KavoMobileGPS.h"
#include "api/handles.h"
#include "common/registry_model.h"

namespace kavo {
namespace {

const KavoChar* K(const char16_t* text) { return reinterpret_cast<const KavoChar*>(text); }

std::u16string NameOf(COMPortInfoHandle port) {
  const KavoChar* name = COMPortInfo_GetName(port);
  return name ? std::u16string(reinterpret_cast<const char16_t*>(name)) : u"<null>";
}

const COMPortParams kDefaults{4800, 0, 0, 8};

class PortInfoTest : public ::testing::Test {
 protected:
  void TearDown() override { COMPortInfo_Release(port_); }
  COMPortInfoHandle Create(const char16_t* name, const COMPortParams& params = kDefaults) {
    COMPortInfo_Release(port_);
    port_ = COMPortInfo_Create(K(name), &params);
    return port_;
  }
  COMPortInfoHandle port_ = nullptr;
};

TEST_F(PortInfoTest, CreateCompletesTheColonAndSetNameStoresNamesAsGiven) {
  ASSERT_TRUE(Create(u"COM3"));
  EXPECT_EQ(KavoMobileGPS_GetLastError(), 0u);
  EXPECT_EQ(NameOf(port_), u"COM3:");
  EXPECT_EQ(COMPortInfo_GetName(port_), COMPortInfo_GetName(port_));  // the stored name itself
  ASSERT_TRUE(Create(u"COM3:"));
  EXPECT_EQ(NameOf(port_), u"COM3:");
  ASSERT_TRUE(Create(u""));
  EXPECT_EQ(NameOf(port_), u"");
  ASSERT_TRUE(Create(u"ABCDEFGHIJKLMNOPQRSTUVWXY"));  // 25: cut to 20, no room for ':'
  EXPECT_EQ(NameOf(port_), u"ABCDEFGHIJKLMNOPQRST");
  ASSERT_TRUE(Create(u"ABCDEFGHIJKLMNOPQRS"));  // 19: the colon fits
  EXPECT_EQ(NameOf(port_), u"ABCDEFGHIJKLMNOPQRS:");

  EXPECT_EQ(COMPortInfo_SetName(port_, K(u"COM3")), 1);
  EXPECT_EQ(NameOf(port_), u"COM3");
  EXPECT_EQ(COMPortInfo_SetName(port_, K(u"ABCDEFGHIJKLMNOPQRSTUVWXY")), 1);
  EXPECT_EQ(NameOf(port_), u"ABCDEFGHIJKLMNOPQRST");
}

TEST_F(PortInfoTest, ParametersOutsideTheirTablesAreRefusedAndChangeNothing) {
  for (int32_t baud : {300, 600, 0, -4800, 256001}) {
    EXPECT_FALSE(Create(u"COM1", COMPortParams{baud, 0, 0, 8})) << baud;
    EXPECT_EQ(KavoMobileGPS_GetLastError(), 87u) << baud;
  }
  EXPECT_FALSE(Create(u"COM1", COMPortParams{4800, 5, 0, 8}));
  EXPECT_FALSE(Create(u"COM1", COMPortParams{4800, 0, 3, 8}));
  EXPECT_EQ(KavoMobileGPS_GetLastError(), 87u);

  ASSERT_TRUE(Create(u"COM1", COMPortParams{256000, 4, 2, 255}));
  COMPortParams read{};
  ASSERT_EQ(COMPortInfo_GetParams(port_, &read), 1);
  EXPECT_EQ(read.BaudRate, 256000);
  EXPECT_EQ(read.Parity, 4);
  EXPECT_EQ(read.StopBits, 2);
  EXPECT_EQ(read.ByteSize, 255);

  const COMPortParams refused[] = {{300, 0, 0, 8}, {600, 0, 0, 8}, {4800, 5, 0, 8}, {4800, 0, 3, 8}};
  for (const auto& params : refused) {
    EXPECT_EQ(COMPortInfo_SetParams(port_, &params), 0);
    EXPECT_EQ(KavoMobileGPS_GetLastError(), 160u);
  }
  ASSERT_EQ(COMPortInfo_GetParams(port_, &read), 1);
  EXPECT_EQ(read.BaudRate, 256000);  // untouched by the refused calls
  EXPECT_EQ(read.Parity, 4);

  const COMPortParams accepted{110, 1, 1, 0};
  ASSERT_EQ(COMPortInfo_SetParams(port_, &accepted), 1);
  EXPECT_EQ(KavoMobileGPS_GetLastError(), 0u);
  ASSERT_EQ(COMPortInfo_GetParams(port_, &read), 1);
  EXPECT_EQ(read.BaudRate, 110);
  EXPECT_EQ(read.Parity, 1);
  EXPECT_EQ(read.StopBits, 1);
  EXPECT_EQ(read.ByteSize, 0);

  // A port may report settings the tables do not know; they are not read out.
  for (auto spoil : {+[](COMPortInfo& p) { p.BaudRate = 300; }, +[](COMPortInfo& p) { p.Parity = 5; },
                     +[](COMPortInfo& p) { p.StopBits = 3; }}) {
    ASSERT_EQ(COMPortInfo_SetParams(port_, &accepted), 1);
    spoil(*api::PortInfo(port_));
    read = COMPortParams{-1, -1, -1, -1};
    EXPECT_EQ(COMPortInfo_GetParams(port_, &read), 0);
    EXPECT_EQ(KavoMobileGPS_GetLastError(), 160u);
    EXPECT_EQ(read.BaudRate, -1);
    EXPECT_EQ(read.ByteSize, -1);
  }
}

TEST(ComPortApi, NullHandlesPointersAndBadArgumentsGiveTheFailureValueAnd160) {
  COMPortParams params = kDefaults;
  COMPortInfoHandle port = COMPortInfo_Create(K(u"COM1"), &params);
  ASSERT_NE(port, nullptr);
  uint8_t busy = 0;
  // Each call must give its failure value.
  const std::function<bool()> calls[] = {
      [&] { return !COMPortInfo_Create(nullptr, &params); },
      [&] { return !COMPortInfo_Create(K(u"COM1"), nullptr); },
      [&] { COMPortInfo_Release(nullptr); return true; },
      [&] { return !COMPortInfo_GetName(nullptr); },
      [&] { return !COMPortInfo_SetName(nullptr, K(u"COM2")); },
      [&] { return !COMPortInfo_SetName(port, nullptr); },
      [&] { return !COMPortInfo_GetParams(nullptr, &params); },
      [&] { return !COMPortInfo_GetParams(port, nullptr); },
      [&] { return !COMPortInfo_SetParams(nullptr, &params); },
      [&] { return !COMPortInfo_SetParams(port, nullptr); },
      [&] { return !COMPortCollection_Create(0); },
      [&] { return !COMPortCollection_Create(-7); },
      [&] { COMPortCollection_Release(nullptr); return true; },
      [&] { return COMPortCollection_GetCount(nullptr) == 0; },
      [&] { return !COMPortCollection_GetPort(nullptr, 0, &busy); },
  };
  for (size_t i = 0; i < std::size(calls); ++i) {
    EXPECT_TRUE(calls[i]()) << "call " << i;
    EXPECT_EQ(KavoMobileGPS_GetLastError(), 160u) << "call " << i;
  }
  EXPECT_EQ(NameOf(port), u"COM1:");
  COMPortInfo_Release(port);
  EXPECT_EQ(KavoMobileGPS_GetLastError(), 0u);
}

TEST(ComPortApi, TheCollectionListsPortsAndRefusesIndexesOutsideIt) {
  test::RegistryModel model(
      "[HKEY_LOCAL_MACHINE\\Drivers\\Active\\01]\r\n\"Name\"=\"COM95:\"\r\n"
      "[HKEY_LOCAL_MACHINE\\Drivers\\Active\\02]\r\n\"Name\"=\"COM96:\"\r\n");
  ASSERT_TRUE(model.Ok());
  COMPortCollectionHandle ports = COMPortCollection_Create(1);
  ASSERT_NE(ports, nullptr);
  EXPECT_EQ(KavoMobileGPS_GetLastError(), 0u);
  EXPECT_EQ(COMPortCollection_GetCount(ports), 2);
  uint8_t busy = 7;
  for (int32_t index : {-1, 2, 1000}) {
    EXPECT_EQ(COMPortCollection_GetPort(ports, index, &busy), nullptr) << index;
    EXPECT_EQ(KavoMobileGPS_GetLastError(), 160u);
  }
  EXPECT_EQ(COMPortCollection_GetPort(ports, 0, nullptr), nullptr);
  EXPECT_EQ(KavoMobileGPS_GetLastError(), 160u);
  EXPECT_EQ(busy, 7);

  COMPortInfoHandle port = COMPortCollection_GetPort(ports, 1, &busy);
  ASSERT_NE(port, nullptr);
  EXPECT_EQ(busy, 1);  // no such port
  COMPortCollection_Release(ports);
  EXPECT_EQ(KavoMobileGPS_GetLastError(), 0u);
  EXPECT_EQ(NameOf(port), u"COM95:");  // outlives its collection
  COMPortInfo_Release(port);
}

TEST(ComPortApi, WithoutActiveDriversCreatingACollectionFailsWith50) {
  test::RegistryModel model("[HKEY_LOCAL_MACHINE\\Drivers]\r\n");
  ASSERT_TRUE(model.Ok());
  EXPECT_EQ(COMPortCollection_Create(1), nullptr);
  EXPECT_EQ(KavoMobileGPS_GetLastError(), 50u);
}

}  // namespace
}  // namespace kavo
