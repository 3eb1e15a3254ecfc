#include "ports/com_port_collection.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "common/log_capture.h"
#include "common/registry_model.h"

namespace kavo {
namespace {

// An active driver entry: its "Name" and, when given, its driver key.
std::string Active(const std::string& entry, const std::string& name, const std::string& driverKey = "") {
  std::string text = "[HKEY_LOCAL_MACHINE\\Drivers\\Active\\" + entry + "]\r\n\"Name\"=\"" + name + "\"\r\n";
  if (!driverKey.empty()) text += "\"Key\"=\"Drivers\\\\" + driverKey + "\"\r\n";
  return text;
}

std::string Driver(const std::string& key, const std::string& friendlyName) {
  return "[HKEY_LOCAL_MACHINE\\Drivers\\" + key + "]\r\n\"FriendlyName\"=\"" + friendlyName + "\"\r\n";
}

std::string BluetoothPort(const std::string& entry, const std::string& port) {
  return "[HKEY_LOCAL_MACHINE\\Software\\Microsoft\\Bluetooth\\Serial\\Ports\\" + entry +
         "]\r\n\"Port\"=\"" + port + "\"\r\n";
}

std::vector<std::u16string> Names(const COMPortCollection& ports) {
  std::vector<std::u16string> names;
  for (uint32_t i = 0; i < ports.GetCount(); ++i) {
    COMPortInfo port;
    EXPECT_TRUE(ports.GetPort(i, &port, nullptr));
    EXPECT_EQ(port.BaudRate, 4800u);
    EXPECT_EQ(port.ByteSize, 8);
    names.emplace_back(port.Name);
  }
  return names;
}

std::vector<std::u16string> ListFor(const std::string& keys) {
  test::RegistryModel model(keys);
  EXPECT_TRUE(model.Ok());
  test::LogCapture quiet;
  return Names(*COMPortCollection::Create(1));
}

using List = std::vector<std::u16string>;

TEST(PortCollection, PlainPortsComeInReverseRegistryOrder) {
  EXPECT_EQ(ListFor(Active("01", "COM1:") + Active("02", "COM2:") + Active("03", "COM3:")),
            (List{u"COM3:", u"COM2:", u"COM1:"}));
}

TEST(PortCollection, BluetoothDgpsAndTsipPortsGoLastInRegistryOrder) {
  const std::string keys =
      Active("01", "COM1:", "BT") + Driver("BT", "Generic Bluetooth Serial") +
      Active("02", "COM2:", "Plain") + Driver("Plain", "USB serial adapter") +
      Active("03", "COM3:", "Modem") + Driver("Modem", "Modem on COM3") +
      Driver("Modem\\Unimodem", "Garmin DGPS") +
      Active("04", "COM4:", "Tsip") + Driver("Tsip", "Trimble TSIP receiver") +
      Active("05", "COM5:", "Lower") + Driver("Lower", "bluetooth, lower case") +
      Active("06", "COM6:", "Missing") +
      Active("07", "COM7:", "NoName") + "[HKEY_LOCAL_MACHINE\\Drivers\\NoName]\r\n";
  EXPECT_EQ(ListFor(keys),
            (List{u"COM7:", u"COM6:", u"COM5:", u"COM2:", u"COM1:", u"COM3:", u"COM4:"}));
}

TEST(PortCollection, BluetoothSerialPortsFollowAndMayRepeatAnActivePort) {
  const std::string keys = Active("01", "COM1:") + Active("02", "COM6:", "BT") +
                           Driver("BT", "Bluetooth") + BluetoothPort("0", "COM8:") +
                           BluetoothPort("1", "") + BluetoothPort("2", "COM6:") +
                           "[HKEY_LOCAL_MACHINE\\Software\\Microsoft\\Bluetooth\\Serial\\Ports\\3]\r\n";
  EXPECT_EQ(ListFor(keys), (List{u"COM1:", u"COM6:", u"COM8:", u"COM6:"}));
}

TEST(PortCollection, OnlyNamesStartingWithComThatFitAreListed) {
  const std::string keys = Active("01", "com1:") + Active("02", "GPD1:") + Active("03", "CO") +
                           Active("04", "COM45678901234567890") +  // 20 characters
                           Active("05", "COM4567890123456789") +   // 19 characters
                           "[HKEY_LOCAL_MACHINE\\Drivers\\Active\\06]\r\n\"Name\"=dword:00000001\r\n" +
                           "[HKEY_LOCAL_MACHINE\\Drivers\\Active\\07]\r\n";
  EXPECT_EQ(ListFor(keys), (List{u"COM4567890123456789"}));
}

TEST(PortCollection, WithoutActiveDriversThereIsNoCollection) {
  test::RegistryModel model(BluetoothPort("0", "COM8:"));
  ASSERT_TRUE(model.Ok());
  test::LogCapture log;
  try {
    COMPortCollection::Create(1);
    ADD_FAILURE() << "a collection without active drivers";
  } catch (const CIMExceptionEx& error) {
    EXPECT_EQ(error.Code(), kErrPortCollection);
  }
  EXPECT_TRUE(log.Contains(u" COM ports collection failed to initialize\n")) << log.Utf8();
}

TEST(PortCollection, EveryStepIsLoggedInItsScope) {
  test::RegistryModel model(Active("01", "COM1:", "BT") + Driver("BT", "Bluetooth") +
                            Active("02", "COM2:") + Active("03", "GPD0:") + BluetoothPort("0", "COM8:"));
  ASSERT_TRUE(model.Ok());
  test::LogCapture log;
  COMPortCollection::Create(1);
  // A scope's title line: the logger indents the title and its "\n" alike.
  const auto title = [](int level, const std::u16string& text) {
    const std::u16string indent(level, u' ');
    return indent + text + indent + u"\n";
  };
  EXPECT_EQ(log.Text(),
            title(0, u"Initializing COM ports collection") +
            title(1, u"Filling ports list") +
            title(2, u"Adding common com ports") +
            title(3, u"Processing registry entry") +
            u"    Device name: COM1:\n" +
            title(4, u"Check if bluetooth port") +
            u"     Friendly name: Bluetooth\n"
            u"    Finished\n"
            u"    Device COM1: added to the end of list\n"
            u"   Finished\n" +
            title(3, u"Processing registry entry") +
            u"    Device name: COM2:\n" +
            title(4, u"Check if bluetooth port") +
            u"    Finished\n"
            u"    Device COM2: added as normal port\n"
            u"   Finished\n" +
            title(3, u"Processing registry entry") +
            u"    Device name: GPD0:\n"
            u"   Finished\n"
            u"  Finished\n" +
            title(2, u"Adding bluetooth com ports") +
            title(3, u"Processing bluetooth registry entry") +
            u"    Device COM8: added as bluetooth port\n"
            u"   Finished\n"
            u"  Finished\n"
            u" Finished\n"
            u"Finished\n");
}

TEST(PortCollection, APortThatCannotBeOpenedIsBusyWithItsListedNameAndDefaults) {
  test::RegistryModel model(Active("01", "COM97:"));
  const Ref<COMPortCollection> ports = COMPortCollection::Create(1);
  test::LogCapture log;
  COMPortInfo port(u"stale", 9600, 2, 7, 2);
  uint8_t busy = 0;
  ASSERT_TRUE(ports->ObtainPort(0, &port, &busy, nullptr));
  EXPECT_EQ(busy, 1);
  EXPECT_EQ(std::u16string(port.Name), u"COM97:");
  EXPECT_EQ(std::vector<int>({int(port.BaudRate), port.Parity, port.ByteSize, port.StopBits}),
            std::vector<int>({4800, 0, 8, 0}));
  EXPECT_TRUE(log.Contains(u"Create file returned: FFFFFFFF\n")) << log.Utf8();
}

}  // namespace
}  // namespace kavo
