#include "commands/ports_command.h"

#include "session/gps_library.h"
#include "session/option_reader.h"
#include "session/serial_ports.h"

namespace kavo::cli {
namespace {

// Commands without options of their own: only --help.
bool HelpOnly(const Arguments& args, const char* command, bool* help, std::ostream& err) {
  OptionReader reader(args);
  while (reader.Next()) {
    if ((reader.Name() == "-h" || reader.Name() == "--help") && reader.Flag(help)) continue;
    if (reader.Error().empty()) reader.Unknown();
    err << "kavogps " << command << ": " << reader.Error() << "\nRun 'kavogps " << command
        << " --help' for the options.\n";
    return false;
  }
  return true;
}

std::string Padded(std::string text, size_t width) {
  if (text.size() < width) text.resize(width, ' ');
  return text + ' ';
}

void PrintHelp(std::ostream& out) {
  out << "Usage: kavogps ports\n\n"
         "Lists the serial ports the library finds, in the order a search probes\n"
         "them, with whether each is busy (it cannot be opened: another program has\n"
         "it, the device is gone, or access is denied) and its current settings\n"
         "(speed, parity, data bits, stop bits). Each port is opened briefly to read\n"
         "them. Under each port: its device and what the system knows of it.\n\n"
      << kExitCodeHelp;
}

// One port's row, and its device under it.
void PrintPort(const COMPortInfoHandle port, bool busy, std::ostream& out) {
  const std::string name = FromLibraryText(COMPortInfo_GetName(port));
  out << Padded(name, 21) << Padded(busy ? "yes" : "no", 4);
  COMPortParams params{};
  if (busy) {
    out << "(cannot be opened: " << TroubleText(name) << ")\n";
  } else if (!COMPortInfo_GetParams(port, &params)) {
    out << "(set to a speed or parity outside the library's tables)\n";
  } else {
    out << Padded(std::to_string(params.BaudRate), 7) << Padded(ParityName(params.Parity), 6)
        << Padded(std::to_string(params.ByteSize), 4) << StopBitsName(params.StopBits) << '\n';
  }
  const std::string device = DeviceText(name);
  if (!device.empty()) out << "  " << device << '\n';
}

}  // namespace

int RunPorts(const Arguments& args, std::ostream& out, std::ostream& err) {
  bool help = false;
  if (!HelpOnly(args, "ports", &help, err)) return kExitUsage;
  if (help) {
    PrintHelp(out);
    return kExitOk;
  }
  if (!MachineUsable("ports", err)) return kExitFile;
  const PortCollectionPtr ports(COMPortCollection_Create(1));
  if (!ports) {
    err << "kavogps ports: the serial ports cannot be listed (error " << KavoMobileGPS_GetLastError() << ")\n";
    return kExitFailure;
  }
  const int32_t count = COMPortCollection_GetCount(ports.get());
  if (count == 0) {
    out << "No serial ports found.\n";
    return kExitOk;
  }
  out << Padded("PORT", 21) << Padded("BUSY", 4) << Padded("BAUD", 7) << Padded("PARITY", 6) << Padded("DATA", 4)
      << "STOP\n";
  int failures = 0;
  for (int32_t i = 0; i < count; ++i) {
    uint8_t busy = 0;
    const PortInfoPtr port(COMPortCollection_GetPort(ports.get(), i, &busy));
    if (port) {
      PrintPort(port.get(), busy != 0, out);
      continue;
    }
    err << "kavogps ports: port " << i + 1 << " of " << count << " could not be read (error "
        << KavoMobileGPS_GetLastError() << ")\n";
    ++failures;
  }
  return failures == 0 ? kExitOk : kExitFailure;
}

}  // namespace kavo::cli
