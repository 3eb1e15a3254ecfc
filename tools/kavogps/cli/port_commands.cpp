#include "cli/port_commands.h"

#include <chrono>
#include <cstdio>
#include <future>
#include <iostream>
#include <vector>

#include "cli/console.h"
#include "cli/option_reader.h"
#include "cli/session_output.h"

namespace kavo::cli {
namespace {

constexpr uint32_t kErrorFileNotFound = 2;  // what the library reports for a port it cannot open
constexpr uint32_t kErrorInvalidParameter = 87;
constexpr uint32_t kErrorNotSupported = 50;  // also: the port list could not be read

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

std::vector<std::string> PortNames(COMPortCollectionHandle ports) {
  std::vector<std::string> names;
  const int32_t count = COMPortCollection_GetCount(ports);
  for (int32_t i = 0; i < count; ++i) {
    uint8_t busy = 0;
    const PortInfoPtr port(COMPortCollection_GetPort(ports, i, &busy));
    if (port) names.push_back(FromLibraryText(COMPortInfo_GetName(port.get())));
  }
  return names;
}

constexpr size_t kMaxPortName = 18;  // without the colon the library adds

size_t PortNameLength(const std::string& name) {
  const size_t length = ToLibraryText(name).size();
  return !name.empty() && name.back() == ':' ? length - 1 : length;
}

std::string Padded(std::string text, size_t width) {
  if (text.size() < width) text.resize(width, ' ');
  return text + ' ';
}

}  // namespace

const char kBaudRates[] =
    "110, 1200, 2400, 4800, 9600, 14400, 19200, 38400, 56000, 57600, 115200, 128000 or 256000";

const char* ParityName(int32_t parity) {
  static const char* const names[] = {"none", "odd", "even", "mark", "space"};
  return parity >= 0 && parity <= 4 ? names[parity] : "?";
}

const char* StopBitsName(int32_t stopBits) {
  static const char* const names[] = {"1", "1.5", "2"};
  return stopBits >= 0 && stopBits <= 2 ? names[stopBits] : "?";
}

int RunPorts(const Arguments& args, std::ostream& out, std::ostream& err) {
  bool help = false;
  if (!HelpOnly(args, "ports", &help, err)) return kExitUsage;
  if (help) {
    out << "Usage: kavogps ports\n\n"
           "Lists the serial ports the library finds, in the order a search probes\n"
           "them, with whether each is busy (it cannot be opened: another program has\n"
           "it, or the device is gone) and its current settings (speed, parity, data\n"
           "bits, stop bits). Each port is opened briefly to read them.\n\n"
        << kExitCodeHelp;
    return kExitOk;
  }
  const PortCollectionPtr ports(COMPortCollection_Create(1));
  const int32_t count = ports ? COMPortCollection_GetCount(ports.get()) : 0;
  if (count == 0) {
    out << "No serial ports found.\n";
    return kExitOk;
  }
  out << Padded("PORT", 21) << Padded("BUSY", 4) << Padded("BAUD", 7) << Padded("PARITY", 6)
      << Padded("DATA", 4) << "STOP\n";
  int failures = 0;
  for (int32_t i = 0; i < count; ++i) {
    uint8_t busy = 0;
    const PortInfoPtr port(COMPortCollection_GetPort(ports.get(), i, &busy));
    if (!port) {
      err << "kavogps ports: port " << i + 1 << " of " << count << " could not be read (error "
          << KavoMobileGPS_GetLastError() << ")\n";
      ++failures;
      continue;
    }
    out << Padded(FromLibraryText(COMPortInfo_GetName(port.get())), 21) << Padded(busy ? "yes" : "no", 4);
    COMPortParams params{};
    if (busy) {
      out << "(cannot be opened: in use, or gone)\n";
    } else if (!COMPortInfo_GetParams(port.get(), &params)) {
      out << "(set to a speed or parity outside the library's tables)\n";
    } else {
      out << Padded(std::to_string(params.BaudRate), 7) << Padded(ParityName(params.Parity), 6)
          << Padded(std::to_string(params.ByteSize), 4) << StopBitsName(params.StopBits) << '\n';
    }
  }
  return failures == 0 ? kExitOk : kExitFailure;
}

int RunFind(const Arguments& args, std::ostream& out, std::ostream& err) {
  bool help = false;
  if (!HelpOnly(args, "find", &help, err)) return kExitUsage;
  if (help) {
    out << "Usage: kavogps find\n\n"
           "Searches the serial ports for a GPS receiver: the port of the system's GPS\n"
           "intermediate driver first, when there is one, then each port of the list\n"
           "'kavogps ports' shows, in that order, listening at 4800 baud and, when it\n"
           "hears text that is not NMEA, at 9600 and 2400. Each port takes a few\n"
           "seconds (at most 15). Prints the port and speed of the receiver found.\n"
           "The library writes each probe to its diagnostic log (standard error on\n"
           "Linux, unless libKavoMobileGPS.ini beside the library names a log file).\n\n"
        << kExitCodeHelp;
    return kExitOk;
  }
  std::vector<std::string> names;
  {
    const PortCollectionPtr ports(COMPortCollection_Create(1));
    if (ports) names = PortNames(ports.get());
    std::string list;
    for (const std::string& name : names) list += (list.empty() ? "" : ", ") + name;
    err << "Searching for a GPS receiver on "
        << (names.empty() ? std::string("the GPS intermediate driver's port, if there is one")
                          : std::to_string(names.size()) + (names.size() == 1 ? " port: " : " ports: ") + list)
        << " (a few seconds per port)...\n";
  }
  // The search blocks; on a terminal the waiting shows as elapsed seconds.
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
  const auto [port, lastError] = search.get();
  if (!port) {
    // Where there are no ports the library cannot even list them.
    if (names.empty() && (lastError == kErrorFileNotFound || lastError == kErrorNotSupported)) {
      err << "kavogps find: no GPS receiver found: there are no serial ports\n";
      return kExitNoReceiver;
    }
    if (lastError == kErrorFileNotFound) {
      err << "kavogps find: no GPS receiver found on any port\n";
      return kExitNoReceiver;
    }
    err << "kavogps find: the search failed (error " << lastError << ")\n";
    return kExitFailure;
  }
  COMPortParams params{};
  COMPortInfo_GetParams(port.get(), &params);
  out << "GPS receiver on " << FromLibraryText(COMPortInfo_GetName(port.get())) << " at " << params.BaudRate
      << " baud\n";
  return kExitOk;
}

int RunMonitor(const Arguments& args, std::ostream& out, std::ostream& err) {
  OptionReader reader(args);
  std::string portName, gpx;
  int64_t baud = 4800;
  bool help = false, json = false, ok = true;
  while (ok && reader.Next()) {
    const std::string& name = reader.Name();
    if (name == "-h" || name == "--help") ok = reader.Flag(&help);
    else if (name == "--baud") ok = reader.Number(1, INT32_MAX, kBaudRates, &baud);
    else if (name == "--json") ok = reader.Flag(&json);
    else if (name == "--gpx") ok = reader.Value(&gpx);
    else if (!reader.IsOption() && portName.empty()) portName = name;
    else ok = reader.Unknown();
  }
  if (ok && !help && portName.empty()) {
    ok = false;
    err << "kavogps monitor: name the port to monitor, e.g. COM3 or /dev/ttyUSB0\n";
  } else if (ok && !help && PortNameLength(portName) > kMaxPortName) {
    // The library opens a port by its name with a colon, in 19 characters.
    ok = false;
    err << "kavogps monitor: the port name '" << portName << "' is too long: the library takes at most "
        << kMaxPortName << " characters (a shorter name, such as a symbolic link, will do)\n";
  } else if (!ok) {
    err << "kavogps monitor: " << reader.Error() << '\n';
  }
  if (!ok) {
    err << "Run 'kavogps monitor --help' for the options.\n";
    return kExitUsage;
  }
  if (help) {
    out << "Usage: kavogps monitor PORT [OPTIONS]\n\n"
           "Shows what a GPS receiver on PORT sends, decoded by the library, until\n"
           "interrupted (Ctrl+C): on a terminal a screen updated in place, otherwise one\n"
           "line per change. PORT is a name such as COM3 or, on Linux, a device such as\n"
           "/dev/ttyUSB0; 'kavogps find' tells where a receiver is.\n\n"
           "Options:\n"
           "  --baud N      the port's speed (default 4800): "
        << kBaudRates
        << "\n"
           "  --json        write JSON lines instead: TPV and SKY objects as a GPS\n"
           "                daemon's clients read them (the summary goes to standard error)\n"
           "  --gpx FILE    also write the track of fixes to FILE as GPX 1.1\n"
           "  -h, --help    show this help\n\n"
        << kExitCodeHelp;
    return kExitOk;
  }

  const COMPortParams params{static_cast<int32_t>(baud), 0, 0, 8};
  const PortInfoPtr port(COMPortInfo_Create(ToLibraryText(portName).c_str(), &params));
  if (!port) {
    if (KavoMobileGPS_GetLastError() == kErrorInvalidParameter) {
      err << "kavogps monitor: invalid value '" << baud << "' for --baud: expected " << kBaudRates << '\n';
      return kExitUsage;
    }
    err << "kavogps monitor: the port '" << portName << "' cannot be described (error "
        << KavoMobileGPS_GetLastError() << ")\n";
    return kExitFailure;
  }
  const std::string shown = FromLibraryText(COMPortInfo_GetName(port.get()));
  SessionOutput output(out, err,
                       {json, gpx, shown,
                        "kavogps monitor " + shown + "  (" + std::to_string(baud) + " baud; Ctrl+C stops)"});
  std::string error;
  if (!output.OpenTrackFile(&error)) {
    err << "kavogps monitor: " << error << '\n';
    return kExitFile;
  }

  InterruptWatch interrupt;  // before the library starts any thread
  const DriverPtr driver(GPSDriver_CreateFromCOMPort(port.get(), SessionStatusCallback(), SessionDataCallback(),
                                                     SessionSentenceCallback()));
  if (!driver) {
    const uint32_t code = KavoMobileGPS_GetLastError();
    output.Abandon();
    if (code == kErrorFileNotFound) {
      err << "kavogps monitor: cannot open " << portName
          << ": another program is using it, or there is no such port ('kavogps ports' lists them)\n";
      return kExitPortUnavailable;
    }
    err << "kavogps monitor: cannot set up " << portName << " at " << baud << " baud (error " << code << ")\n";
    return kExitFailure;
  }
  DriverSession session(driver.get(), SessionOptions{});
  output.Attach(session);
  uint32_t code = 0;
  if (!session.Start(&code)) {
    output.Abandon();
    err << "kavogps monitor: the library could not start reading " << portName << " (error " << code << ")\n";
    return kExitFailure;
  }
  if (session.Run(interrupt) == SessionEnd::kOutputFailed) {
    output.Abandon();
    err << "kavogps monitor: writing the output failed\n";
    return kExitFailure;
  }
  if (!output.Finish("Stopped.", &error)) {
    err << "kavogps monitor: " << error << '\n';
    return kExitFile;
  }
  return kExitOk;
}

}  // namespace kavo::cli
