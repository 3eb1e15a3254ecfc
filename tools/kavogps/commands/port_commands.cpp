#include "commands/port_commands.h"

#include <chrono>
#include <cstdio>
#include <functional>
#include <future>
#include <iostream>
#include <vector>

#include "session/console.h"
#include "session/option_reader.h"
#include "session/port_device.h"
#include "session/receiver_settings.h"
#include "session/session_output.h"

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

constexpr size_t kMaxPortName = 18;  // without the colon the library adds

size_t PortNameLength(const std::string& name) {
  const size_t length = ToLibraryText(name).size();
  return !name.empty() && name.back() == ':' ? length - 1 : length;
}

}  // namespace

std::string LibraryPortName(const std::string& portName) {
  if (PortNameLength(portName) <= kMaxPortName) return portName;
  const std::string device = ResolveDevicePath(portName);
  return PortNameLength(device) <= kMaxPortName ? device : std::string();
}

namespace {

std::string Padded(std::string text, size_t width) {
  if (text.size() < width) text.resize(width, ' ');
  return text + ' ';
}

// "/dev/ttyUSB0: u-blox AG u-blox 7 (cdc_acm)", or empty when unknown.
std::string DeviceText(const std::string& portName) {
  const PortDevice device = DescribePort(portName);
  if (device.path.empty()) return device.description;
  return device.description.empty() ? device.path : device.path + ": " + device.description;
}

// A machine description that cannot be used is told, not taken for a
// machine without ports.
bool MachineUsable(const char* command, std::ostream& err) {
  const std::string problem = MachineDescriptionProblem();
  if (problem.empty()) return true;
  err << "kavogps " << command << ": " << problem << '\n';
  return false;
}

}  // namespace

std::string TroubleText(const std::string& portName) {
  const PortDiagnosis diagnosis = DiagnosePort(portName);
  switch (diagnosis.trouble) {
    case PortTrouble::kMissing:
      return "there is no such device";
    case PortTrouble::kNoPermission:
      return "permission denied" + (diagnosis.group.empty() ? std::string()
                                                            : "; members of the group '" + diagnosis.group +
                                                                  "' may use it (sudo usermod -aG " + diagnosis.group +
                                                                  " $USER, then log in again)");
    case PortTrouble::kBusy:
      break;
  }
  return "it is busy: another program is using it";
}

const char kBaudRates[] = "110, 1200, 2400, 4800, 9600, 14400, 19200, 38400, 56000, 57600, 115200, 128000 or 256000";

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
           "it, the device is gone, or access is denied) and its current settings\n"
           "(speed, parity, data bits, stop bits). Each port is opened briefly to read\n"
           "them. Under each port: its device and what the system knows of it.\n\n"
        << kExitCodeHelp;
    return kExitOk;
  }
  if (!MachineUsable("ports", err)) return kExitFile;
  const PortCollectionPtr ports(COMPortCollection_Create(1));
  const int32_t count = ports ? COMPortCollection_GetCount(ports.get()) : 0;
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
    if (!port) {
      err << "kavogps ports: port " << i + 1 << " of " << count << " could not be read (error "
          << KavoMobileGPS_GetLastError() << ")\n";
      ++failures;
      continue;
    }
    const std::string name = FromLibraryText(COMPortInfo_GetName(port.get()));
    out << Padded(name, 21) << Padded(busy ? "yes" : "no", 4);
    COMPortParams params{};
    if (busy) {
      out << "(cannot be opened: " << TroubleText(name) << ")\n";
    } else if (!COMPortInfo_GetParams(port.get(), &params)) {
      out << "(set to a speed or parity outside the library's tables)\n";
    } else {
      out << Padded(std::to_string(params.BaudRate), 7) << Padded(ParityName(params.Parity), 6)
          << Padded(std::to_string(params.ByteSize), 4) << StopBitsName(params.StopBits) << '\n';
    }
    const std::string device = DeviceText(name);
    if (!device.empty()) out << "  " << device << '\n';
  }
  return failures == 0 ? kExitOk : kExitFailure;
}

int RunFind(const Arguments& args, std::ostream& out, std::ostream& err) {
  bool help = false;
  ReceiverSettings receiver;
  OptionReader reader(args);
  bool ok = true;
  while (ok && reader.Next()) {
    if (reader.Name() == "-h" || reader.Name() == "--help")
      ok = reader.Flag(&help);
    else if (!ReadReceiverOption(reader, &receiver, &ok))
      ok = reader.Unknown();
  }
  if (!ok) {
    err << "kavogps find: " << reader.Error() << "\nRun 'kavogps find --help' for the options.\n";
    return kExitUsage;
  }
  if (help) {
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
    return kExitOk;
  }
  if (!MachineUsable("find", err)) return kExitFile;
  if (!ApplyReceiverSettings(receiver)) {
    err << "kavogps find: the talkers and checksums cannot be handed to the library\n";
    return kExitFailure;
  }
  std::vector<std::string> names, busy;
  {
    const PortCollectionPtr ports(COMPortCollection_Create(1));
    const int32_t count = ports ? COMPortCollection_GetCount(ports.get()) : 0;
    for (int32_t i = 0; i < count; ++i) {
      uint8_t inUse = 0;
      const PortInfoPtr port(COMPortCollection_GetPort(ports.get(), i, &inUse));
      if (!port) continue;
      names.push_back(FromLibraryText(COMPortInfo_GetName(port.get())));
      if (inUse) busy.push_back(names.back());
    }
    std::string list;
    for (const std::string& name : names) {
      const std::string path = DescribePort(name).path;
      list += (list.empty() ? "" : ", ") + name + (path.empty() ? "" : " (" + path + ")");
    }
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
  for (const std::string& name : busy) err << "Skipped " << name << " " << TroubleText(name) << '\n';
  if (!port) {
    // Where there are no ports the library cannot even list them.
    if (names.empty() && (lastError == kErrorFileNotFound || lastError == kErrorNotSupported)) {
      err << "kavogps find: no GPS receiver found: there are no serial ports\n";
      return kExitNoReceiver;
    }
    if (lastError == kErrorFileNotFound) {
      err << "kavogps find: no GPS receiver found on "
          << (busy.empty() ? "any port\n" : "the ports that could be opened\n");
      return kExitNoReceiver;
    }
    err << "kavogps find: the search failed (error " << lastError << ")\n";
    return kExitFailure;
  }
  COMPortParams params{};
  COMPortInfo_GetParams(port.get(), &params);
  const std::string name = FromLibraryText(COMPortInfo_GetName(port.get()));
  const std::string device = DeviceText(name);
  out << "GPS receiver on " << name << (device.empty() ? "" : " (" + device + ")") << " at " << params.BaudRate
      << " baud\n";
  return kExitOk;
}

namespace {

struct MonitorSettings {
  std::string port;
  int64_t baud = 4800;
  bool help = false, once = false;
  OutputOptions output;
};

// Says once, when the receiver sends text but not one sentence the library
// reads, what may be wrong instead of waiting silently. The library hands
// over only the sentences it reads, so the talkers sent cannot be named.
class NoSentenceHint : public ReadingView {
 public:
  NoSentenceHint(std::ostream& err, std::string port, const ReceiverSettings& receiver)
      : err_(err), port_(std::move(port)), receiver_(receiver) {}
  void Show(const EpochReport&) override {}
  void Sentence(const std::string&) override { read_ = true; }
  void Status(int32_t status) override {
    if (status != GPS_STATUS_NO_SENTENCE || read_ || told_) return;
    told_ = true;
    err_ << "kavogps monitor: " << port_ << " sends text, but no sentence of the talkers read (" << receiver_.talkers
         << ") with " << (receiver_.checksums == "ignore" ? "any" : "a valid")
         << " checksum; other talkers are read with --talkers LIST, damaged sentences with"
            " --checksums ignore, and a receiver at another speed with --baud N\n"
         << std::flush;
  }

 private:
  std::ostream& err_;
  std::string port_;
  const ReceiverSettings& receiver_;
  bool read_ = false, told_ = false;
};

bool ParseMonitorArguments(const Arguments& args, MonitorSettings* s, std::ostream& err) {
  OptionReader reader(args);
  bool ok = true;
  while (ok && reader.Next()) {
    const std::string& name = reader.Name();
    if (name == "-h" || name == "--help")
      ok = reader.Flag(&s->help);
    else if (name == "--baud")
      ok = reader.Number(1, INT32_MAX, kBaudRates, &s->baud);
    else if (name == "--once")
      ok = reader.Flag(&s->once);
    else if (ReadOutputOption(reader, &s->output, &ok))
      continue;
    else if (!reader.IsOption() && s->port.empty())
      s->port = name;
    else
      ok = reader.Unknown();
  }
  const std::string conflict = OutputOptionsConflict(s->output);
  if (!ok)
    err << "kavogps monitor: " << reader.Error() << '\n';
  else if (s->help)
    return true;
  else if (s->port.empty())
    err << "kavogps monitor: name the port to monitor, e.g. COM3 or /dev/ttyUSB0\n";
  else if (!conflict.empty())
    err << "kavogps monitor: " << conflict << '\n';
  else if (LibraryPortName(s->port).empty())
    // The library opens a port by its name with a colon, in 19 characters.
    err << "kavogps monitor: the port name '" << s->port << "' is too long, even as the device it names: the "
        << "library takes at most " << kMaxPortName << " characters\n";
  else
    return true;
  err << "Run 'kavogps monitor --help' for the options.\n";
  return false;
}

void PrintMonitorHelp(std::ostream& out) {
  out << "Usage: kavogps monitor PORT [OPTIONS]\n\n"
         "Shows what a GPS receiver on PORT sends, decoded by the library, until\n"
         "interrupted (Ctrl+C): on a terminal a screen updated in place, otherwise one\n"
         "line per epoch. PORT is a name such as COM3 or, on Linux, a device such as\n"
         "/dev/ttyUSB0 or a link under /dev/serial/by-id; 'kavogps find' tells where a\n"
         "receiver is. When the receiver is unplugged, it waits for it to come back\n"
         "and opens it again.\n\n"
         "Options:\n"
         "  --baud N      the port's speed (default 4800): 110, 1200, 2400, 4800, 9600,\n"
         "                14400, 19200, 38400, 56000, 57600, 115200, 128000 or 256000\n"
         "  --once        end with status 1 when the receiver goes, instead of waiting\n"
      << OutputOptionsHelp(16) << "  -h, --help    show this help\n\n"
      << kExitCodeHelp;
}

// Opens the port and runs a session on it until it ends; the driver could
// not be created when `code` is set.
SessionEnd MonitorOnce(const PortInfoPtr& port, SessionOutput& output, ReadingView& hint, InterruptWatch& interrupt,
                       uint32_t* code, const std::function<void()>& started) {
  const DriverPtr driver(GPSDriver_CreateFromCOMPort(port.get(), SessionStatusCallback(), SessionDataCallback(),
                                                     SessionSentenceCallback()));
  if (!driver) {
    *code = KavoMobileGPS_GetLastError();
    return SessionEnd::kSourceFailed;
  }
  DriverSession session(driver.get(), SessionOptions{});
  output.Attach(session);
  session.AddView(&hint);
  if (!session.Start(code)) return SessionEnd::kSourceFailed;
  started();
  return session.Run(interrupt);
}

}  // namespace

int RunMonitor(const Arguments& args, std::ostream& out, std::ostream& err) {
  MonitorSettings settings;
  if (!ParseMonitorArguments(args, &settings, err)) return kExitUsage;
  if (settings.help) {
    PrintMonitorHelp(out);
    return kExitOk;
  }
  if (!MachineUsable("monitor", err)) return kExitFile;
  const std::string& portName = settings.port;
  const std::string libraryName = LibraryPortName(portName);
  const COMPortParams params{static_cast<int32_t>(settings.baud), 0, 0, 8};
  const PortInfoPtr port(COMPortInfo_Create(ToLibraryText(libraryName).c_str(), &params));
  if (!port) {
    if (KavoMobileGPS_GetLastError() == kErrorInvalidParameter) {
      err << "kavogps monitor: invalid value '" << settings.baud << "' for --baud: expected " << kBaudRates << '\n';
      return kExitUsage;
    }
    err << "kavogps monitor: the port '" << portName << "' cannot be described (error " << KavoMobileGPS_GetLastError()
        << ")\n";
    return kExitFailure;
  }
  // The colon the library adds belongs to COM names, not to paths.
  const bool path = !portName.empty() && portName[0] == '/';
  const std::string shown = path ? portName : FromLibraryText(COMPortInfo_GetName(port.get()));
  SessionOutput output(out, err,
                       {settings.output.json, settings.output.nmea, settings.output.gpx, shown,
                        "kavogps monitor " + shown + "  (" + std::to_string(settings.baud) + " baud; Ctrl+C stops)"});
  if (const int code = output.Prepare("monitor", settings.output.receiver)) return code;
  std::string error;
  NoSentenceHint hint(err, shown, settings.output.receiver);
  InterruptWatch interrupt;  // before the library starts any thread
  uint32_t code = 0;
  SessionEnd end = MonitorOnce(port, output, hint, interrupt, &code, [] {});
  if (code != 0) {
    output.Abandon();
    if (code == kErrorFileNotFound) {
      err << "kavogps monitor: cannot open " << portName << ": " << TroubleText(libraryName) << '\n';
      return kExitPortUnavailable;
    }
    err << "kavogps monitor: cannot set up " << portName << " at " << settings.baud << " baud (error " << code << ")\n";
    return kExitFailure;
  }
  // An unplugged receiver is waited for and opened again once a second.
  bool gone = false;
  while (end == SessionEnd::kSourceFailed && !settings.once) {
    if (!gone) err << "kavogps monitor: the receiver on " << shown << " is gone; waiting for it (Ctrl+C stops)\n";
    gone = true;
    if (interrupt.Wait(1000)) {
      end = SessionEnd::kInterrupted;
      break;
    }
    code = 0;
    end = MonitorOnce(port, output, hint, interrupt, &code, [&] {
      err << "kavogps monitor: " << shown << " is back\n" << std::flush;
      gone = false;
    });
  }
  if (end == SessionEnd::kOutputFailed && OutputClosed(out)) {
    output.Finish("", &error);
    return kExitOk;
  }
  if (end == SessionEnd::kOutputFailed) {
    output.Abandon();
    err << "kavogps monitor: writing the output failed\n";
    return kExitFailure;
  }
  if (end == SessionEnd::kSourceFailed) err << "kavogps monitor: the receiver on " << shown << " is gone\n";
  if (!output.Finish(end == SessionEnd::kSourceFailed ? "Receiver gone." : "Stopped.", &error)) {
    err << "kavogps monitor: " << error << '\n';
    return kExitFile;
  }
  return end == SessionEnd::kSourceFailed ? kExitFailure : kExitOk;
}

}  // namespace kavo::cli
