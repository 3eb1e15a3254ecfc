// setupapi.h needs windows.h first.
#include <windows.h>

#include <setupapi.h>

#include <cwctype>
#include <string>
#include <vector>

#include "session/gps_library.h"
#include "session/port_device.h"

namespace kavo::cli {
namespace {

std::wstring Wide(const std::string& text) {
  const LibraryText library = ToLibraryText(text);
  return std::wstring(library.begin(), library.end());
}

std::string Narrow(const std::wstring& text) { return FromLibraryText(text.c_str()); }

std::wstring PortKey(std::wstring name) {
  while (!name.empty() && name.back() == L':') name.pop_back();
  for (wchar_t& c : name) c = static_cast<wchar_t>(std::towupper(c));
  return name;
}

// The device name the system's port map gives `port` (\Device\Serial0).
std::wstring MappedDevice(const std::wstring& port) {
  HKEY map = nullptr;
  if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"HARDWARE\\DEVICEMAP\\SERIALCOMM", 0, KEY_READ, &map) != ERROR_SUCCESS)
    return {};
  std::wstring device;
  for (DWORD i = 0; device.empty(); ++i) {
    wchar_t name[512], data[64];
    DWORD nameLength = 512, dataSize = sizeof data, type = 0;
    if (RegEnumValueW(map, i, name, &nameLength, nullptr, &type, reinterpret_cast<BYTE*>(data), &dataSize) !=
        ERROR_SUCCESS)
      break;
    data[63] = 0;
    if (type == REG_SZ && PortKey(data) == port) device.assign(name, nameLength);
  }
  RegCloseKey(map);
  return device;
}

// The friendly name of the ports-class device whose name ends "(COMn)".
std::wstring FriendlyName(const std::wstring& port) {
  const GUID ports = {0x4d36e978, 0xe325, 0x11ce, {0xbf, 0xc1, 0x08, 0x00, 0x2b, 0xe1, 0x03, 0x18}};
  const HDEVINFO set = SetupDiGetClassDevsW(&ports, nullptr, nullptr, DIGCF_PRESENT);
  if (set == INVALID_HANDLE_VALUE) return {};
  std::wstring found;
  SP_DEVINFO_DATA info{};
  info.cbSize = sizeof info;
  for (DWORD i = 0; found.empty() && SetupDiEnumDeviceInfo(set, i, &info); ++i) {
    wchar_t name[256] = {};
    if (!SetupDiGetDeviceRegistryPropertyW(set, &info, SPDRP_FRIENDLYNAME, nullptr, reinterpret_cast<BYTE*>(name),
                                           sizeof name - sizeof(wchar_t), nullptr))
      continue;
    const std::wstring text = name;
    if (PortKey(text).find(L"(" + port + L")") != std::wstring::npos) found = text;
  }
  SetupDiDestroyDeviceInfoList(set);
  return found;
}

}  // namespace

PortDevice DescribePort(const std::string& portName) {
  const std::wstring port = PortKey(Wide(portName));
  return {Narrow(MappedDevice(port)), Narrow(FriendlyName(port))};
}

PortDiagnosis DiagnosePort(const std::string& portName) {
  const HANDLE file = CreateFileW((L"\\\\.\\" + PortKey(Wide(portName))).c_str(), GENERIC_READ | GENERIC_WRITE, 0,
                                  nullptr, OPEN_EXISTING, 0, nullptr);
  PortDiagnosis diagnosis;
  if (file != INVALID_HANDLE_VALUE)
    CloseHandle(file);
  else if (GetLastError() == ERROR_FILE_NOT_FOUND || GetLastError() == ERROR_PATH_NOT_FOUND)
    diagnosis.trouble = PortTrouble::kMissing;
  return diagnosis;  // a port in use answers "access denied"
}

std::string ResolveDevicePath(const std::string& portName) { return portName; }

std::string MachineDescriptionProblem() { return {}; }

}  // namespace kavo::cli
