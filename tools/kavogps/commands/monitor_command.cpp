#include "commands/monitor_command.h"

#include <functional>

#include "session/driver_session.h"
#include "session/gps_library.h"
#include "session/option_reader.h"
#include "session/receiver_settings.h"
#include "session/serial_ports.h"
#include "session/session_output.h"

namespace kavo::cli {
namespace {

constexpr uint32_t kErrorFileNotFound = 2;  // what the library reports for a port it cannot open
constexpr uint32_t kErrorInvalidParameter = 87;

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
