#include "commands/find_command.h"

#include <chrono>
#include <future>
#include <iostream>
#include <utility>
#include <vector>

#include "session/console.h"
#include "session/gps_library.h"
#include "session/option_reader.h"
#include "session/port_device.h"
#include "session/receiver_settings.h"
#include "session/serial_ports.h"

namespace kavo::cli {
namespace {

void PrintHelp(std::ostream& out) {
  out << "Usage: kavogps find [OPTIONS]\n\n"
         "Searches the serial ports for a GPS receiver: the port of the system's GPS\n"
         "intermediate driver first, when there is one, then each port of the list\n"
         "'kavogps ports' shows, in that order, listening at 4800 baud and, when it\n"
         "hears text that is not NMEA, at 9600 and 2400. Each port takes a few\n"
         "seconds (at most 15). Prints the port and speed of the receiver found, and\n"
         "says which ports were skipped because they could not be opened.\n"
         "The library logs each probe to its diagnostic output (on Linux standard\n"
         "error, only when KAVOGPS_DEBUG_OUTPUT is set) and to the log file that\n"
         "libKavoMobileGPS.ini beside the library may name.\n\n"
         "Options (a receiver is recognised by a sentence of an accepted talker):\n"
      << ReceiverOptionsHelp(18) << "  -h, --help      show this help\n\n"
      << kExitCodeHelp;
}

bool ParseFindArguments(const Arguments& args, bool* help, ReceiverSettings* receiver, std::ostream& err) {
  OptionReader reader(args);
  bool ok = true;
  while (ok && reader.Next()) {
    if (reader.Name() == "-h" || reader.Name() == "--help")
      ok = reader.Flag(help);
    else if (!ReadReceiverOption(reader, receiver, &ok))
      ok = reader.Unknown();
  }
  if (!ok) err << "kavogps find: " << reader.Error() << "\nRun 'kavogps find --help' for the options.\n";
  return ok;
}

// The ports the search will probe, and those of them that are busy.
struct PortList {
  std::vector<std::string> names, busy;
};

PortList ListPorts() {
  PortList list;
  const PortCollectionPtr ports(COMPortCollection_Create(1));
  const int32_t count = ports ? COMPortCollection_GetCount(ports.get()) : 0;
  for (int32_t i = 0; i < count; ++i) {
    uint8_t inUse = 0;
    const PortInfoPtr port(COMPortCollection_GetPort(ports.get(), i, &inUse));
    if (!port) continue;
    list.names.push_back(FromLibraryText(COMPortInfo_GetName(port.get())));
    if (inUse) list.busy.push_back(list.names.back());
  }
  return list;
}

void AnnounceSearch(const PortList& ports, std::ostream& err) {
  std::string list;
  for (const std::string& name : ports.names) {
    const std::string path = DescribePort(name).path;
    list += (list.empty() ? "" : ", ") + name + (path.empty() ? "" : " (" + path + ")");
  }
  const size_t count = ports.names.size();
  err << "Searching for a GPS receiver on "
      << (count == 0 ? std::string("the GPS intermediate driver's port, if there is one")
                     : std::to_string(count) + (count == 1 ? " port: " : " ports: ") + list)
      << " (a few seconds per port)...\n";
}

// Runs the library's search, which blocks; on a terminal the waiting shows
// as elapsed seconds. The port found, or null with the library's error.
std::pair<PortInfoPtr, uint32_t> Search(std::ostream& err) {
  auto search = std::async(std::launch::async, [] {
    COMPortInfoHandle found = COMPortInfo_FindGPSCOMPort(1);
    return std::make_pair(PortInfoPtr(found), KavoMobileGPS_GetLastError());
  });
  const bool terminal = &err == &std::cerr && StandardErrorIsTerminal();
  const auto start = std::chrono::steady_clock::now();
  while (search.wait_for(std::chrono::seconds(1)) != std::future_status::ready) {
    if (!terminal) continue;
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(std::chrono::steady_clock::now() - start);
    err << "\r  " << seconds.count() << " s" << std::flush;
  }
  if (terminal) err << "\r\x1b[K";
  return search.get();
}

int NothingFound(const PortList& ports, uint32_t lastError, std::ostream& err) {
  // Where there are no ports the library cannot even list them.
  if (ports.names.empty() && (lastError == KAVOGPS_ERROR_FILE_NOT_FOUND || lastError == KAVOGPS_ERROR_NOT_SUPPORTED)) {
    err << "kavogps find: no GPS receiver found: there are no serial ports\n";
    return kExitNoReceiver;
  }
  if (lastError == KAVOGPS_ERROR_FILE_NOT_FOUND) {
    err << "kavogps find: no GPS receiver found on "
        << (ports.busy.empty() ? "any port\n" : "the ports that could be opened\n");
    return kExitNoReceiver;
  }
  err << "kavogps find: the search failed (error " << lastError << ")\n";
  return kExitFailure;
}

}  // namespace

int RunFind(const Arguments& args, std::ostream& out, std::ostream& err) {
  bool help = false;
  ReceiverSettings receiver;
  if (!ParseFindArguments(args, &help, &receiver, err)) return kExitUsage;
  if (help) {
    PrintHelp(out);
    return kExitOk;
  }
  if (!MachineUsable("find", err)) return kExitFile;
  if (!ApplyReceiverSettings(receiver)) {
    err << "kavogps find: the talkers and checksums cannot be handed to the library\n";
    return kExitFailure;
  }
  const PortList ports = ListPorts();
  AnnounceSearch(ports, err);
  const auto [port, lastError] = Search(err);
  for (const std::string& name : ports.busy) err << "Skipped " << name << " " << TroubleText(name) << '\n';
  if (!port) return NothingFound(ports, lastError, err);
  COMPortParams params{};
  COMPortInfo_GetParams(port.get(), &params);
  const std::string name = FromLibraryText(COMPortInfo_GetName(port.get()));
  const std::string device = DeviceText(name);
  out << "GPS receiver on " << name << (device.empty() ? "" : " (" + device + ")") << " at " << params.BaudRate
      << " baud\n";
  return kExitOk;
}

}  // namespace kavo::cli
