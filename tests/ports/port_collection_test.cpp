#include "ports/com_port_collection.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "common/log_capture.h"
#include "common/registry_model.h"

namespace kavo {
namespace {

using List = std::vector<std::u16string>;

// An active driver entry: its "Name" and, when given, its driver key.
std::string Active(const std::string& entry, const std::string& name, const std::string& driverKey = "") {
  std::string text = "[HKEY_LOCAL_MACHINE\\Drivers\\Active\\" + entry + "]\r\n\"Name\"=\"" + name + "\"\r\n";
  return driverKey.empty() ? text : text + "\"Key\"=\"Drivers\\\\" + driverKey + "\"\r\n";
}

std::string Driver(const std::string& key, const std::string& friendlyName) {
  return "[HKEY_LOCAL_MACHINE\\Drivers\\" + key + "]\r\n\"FriendlyName\"=\"" + friendlyName + "\"\r\n";
}

std::string BluetoothPort(const std::string& entry, const std::string& port) {
  return "[HKEY_LOCAL_MACHINE\\Software\\Microsoft\\Bluetooth\\Serial\\Ports\\" + entry + "]\r\n" +
         (port == "-" ? "" : "\"Port\"=\"" + port + "\"\r\n");
}

List ListFor(const std::string& keys) {
  test::RegistryModel model(keys);
  EXPECT_TRUE(model.Ok());
  const Ref<COMPortCollection> ports = COMPortCollection::Create(1);
  List names;
  for (uint32_t i = 0; i < ports->GetCount(); ++i) {
    COMPortInfo port(u"stale", 9600, 2, 7, 2);
    EXPECT_TRUE(ports->GetPort(i, &port, nullptr));
    EXPECT_EQ(std::vector<int>({int(port.BaudRate), port.Parity, port.ByteSize, port.StopBits}),
              std::vector<int>({4800, 0, 8, 0}));
    names.emplace_back(port.Name);
  }
  return names;
}

// Plain ports in reverse registry order; Bluetooth, DGPS and TSIP ports
// (by friendly name, case-sensitive, also from "Unimodem") after them in
// registry order; then the Bluetooth serial ports, repeats kept. Only
// names that start with "COM" and fit in 19 characters are listed.
TEST(PortCollection, ListsPlainPortsFirstThenSpecialThenBluetoothSerialPorts) {
  const std::string keys =
      Active("01", "COM1:", "BT") + Driver("BT", "Generic Bluetooth Serial") + Active("02", "COM2:", "Plain") +
      Driver("Plain", "USB serial adapter") + Active("03", "COM3:", "Modem") + Driver("Modem", "Modem on COM3") +
      Driver("Modem\\Unimodem", "Garmin DGPS") + Active("04", "COM4:", "Tsip") +
      Driver("Tsip", "Trimble TSIP receiver") + Active("05", "COM5:", "Lower") +
      Driver("Lower", "bluetooth, lower case") + Active("06", "COM6:", "Missing") + Active("07", "COM7:", "NoName") +
      "[HKEY_LOCAL_MACHINE\\Drivers\\NoName]\r\n" + BluetoothPort("0", "COM8:") + BluetoothPort("1", "") +
      BluetoothPort("2", "COM1:") + BluetoothPort("3", "-") + Active("11", "com1:") + Active("12", "GPD1:") +
      Active("13", "CO") + Active("14", "COM45678901234567890") + Active("15", "COM4567890123456789") +
      "[HKEY_LOCAL_MACHINE\\Drivers\\Active\\16]\r\n\"Name\"=dword:00000001\r\n" +
      "[HKEY_LOCAL_MACHINE\\Drivers\\Active\\17]\r\n";
  test::LogCapture quiet;
  EXPECT_EQ(ListFor(keys), (List{u"COM4567890123456789", u"COM7:", u"COM6:", u"COM5:", u"COM2:", u"COM1:", u"COM3:",
                                 u"COM4:", u"COM8:", u"COM1:"}));
}

}  // namespace
}  // namespace kavo
