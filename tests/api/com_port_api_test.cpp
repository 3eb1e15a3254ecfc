// The port list as an application reads it, on a machine the test models,
// and port descriptions holding settings the tables do not know.
#include <gtest/gtest.h>

#include <string>

#include "KavoMobileGPS.h"
#include "api/handles.h"
#include "common/registry_model.h"

namespace kavo {
namespace {

TEST(ComPortApi, TheCollectionListsPortsAndRefusesIndexesOutsideIt) {
  test::RegistryModel model(
      "[HKEY_LOCAL_MACHINE\\Drivers\\Active\\01]\r\n\"Name\"=\"COM95:\"\r\n"
      "[HKEY_LOCAL_MACHINE\\Drivers\\Active\\02]\r\n\"Name\"=\"COM96:\"\r\n");
  ASSERT_TRUE(model.Ok());
  COMPortCollectionHandle ports = COMPortCollection_Create(1);
  ASSERT_NE(ports, nullptr);
  EXPECT_EQ(COMPortCollection_GetCount(ports), 2);
  uint8_t busy = 7;
  for (int32_t index : {-1, 2}) {
    EXPECT_EQ(COMPortCollection_GetPort(ports, index, &busy), nullptr) << index;
    EXPECT_EQ(KavoMobileGPS_GetLastError(), 160u);
  }
  EXPECT_EQ(COMPortCollection_GetPort(ports, 0, nullptr), nullptr);
  EXPECT_EQ(busy, 7);
  COMPortInfoHandle port = COMPortCollection_GetPort(ports, 1, &busy);
  ASSERT_NE(port, nullptr);
  EXPECT_EQ(busy, 1);  // no such device
  COMPortCollection_Release(ports);
  EXPECT_EQ(KavoMobileGPS_GetLastError(), 0u);
  EXPECT_EQ(std::u16string(reinterpret_cast<const char16_t*>(COMPortInfo_GetName(port))), u"COM95:")
      << "a port outlives its collection";
  COMPortInfo_Release(port);
}

TEST(ComPortApi, SettingsOutsideTheTablesAreNotReadOut) {
  const COMPortParams accepted{110, 1, 1, 0};
  const KavoChar name[] = {'C', 'O', 'M', '1', 0};
  COMPortInfoHandle port = COMPortInfo_Create(name, &accepted);
  ASSERT_NE(port, nullptr);
  for (auto spoil : {+[](COMPortInfo& p) { p.BaudRate = 300; }, +[](COMPortInfo& p) { p.Parity = 5; },
                     +[](COMPortInfo& p) { p.StopBits = 3; }}) {
    ASSERT_EQ(COMPortInfo_SetParams(port, &accepted), 1);
    spoil(*api::PortInfo(port));
    COMPortParams read{-1, -1, -1, -1};
    EXPECT_EQ(COMPortInfo_GetParams(port, &read), 0);
    EXPECT_EQ(KavoMobileGPS_GetLastError(), 160u);
    EXPECT_EQ(read.BaudRate, -1);
  }
  COMPortInfo_Release(port);
}

}  // namespace
}  // namespace kavo
