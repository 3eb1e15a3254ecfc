#include "commands/monitor_command.h"

#include <functional>

#include "session/console.h"
#include "session/driver_session.h"
#include "session/gps_library.h"
#include "session/open_session.h"
#include "session/option_reader.h"
#include "session/receiver_settings.h"
#include "session/serial_ports.h"
#include "session/session_output.h"

namespace kavo::cli {
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
    if (name == "--baud")
      ok = reader.Number(1, INT32_MAX, kBaudRates, &s->baud);
    else if (name == "--once")
      ok = reader.Flag(&s->once);
    else if (!ReadSessionCommandOption(reader, &s->help, &s->output, &s->port, &ok))
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
// not be created or started when `code` is set.
SessionEnd MonitorOnce(const PortInfoPtr& port, SessionOutput& output, ReadingView& hint, InterruptWatch& interrupt,
                       uint32_t* code, const std::function<void()>& started) {
  SessionSource source;
  source.port = port.get();
  OpenedSession opened;
  if (!OpenSession(source, false, &opened, code)) return SessionEnd::kSourceFailed;
  output.Attach(*opened.session);
  opened.session->AddView(&hint);
  if (!opened.session->Start(code)) return SessionEnd::kSourceFailed;
  started();
  return opened.session->Run(interrupt);
}

// The port at the speed asked for, as the library describes it; null, with
// the reason said and the exit code in `*exitCode`, when it cannot be.
PortInfoPtr DescribeMonitoredPort(const MonitorSettings& settings, std::ostream& err, int* exitCode) {
  const COMPortParams params{static_cast<int32_t>(settings.baud), 0, 0, 8};
  PortInfoPtr port(COMPortInfo_Create(ToLibraryText(LibraryPortName(settings.port)).c_str(), &params));
  if (port) return port;
  const uint32_t error = KavoMobileGPS_GetLastError();
  if (error == KAVOGPS_ERROR_INVALID_PARAMETER) {
    err << "kavogps monitor: invalid value '" << settings.baud << "' for --baud: expected " << kBaudRates << '\n';
    *exitCode = kExitUsage;
  } else {
    err << "kavogps monitor: the port '" << settings.port << "' cannot be described (error " << error << ")\n";
    *exitCode = kExitFailure;
  }
  return nullptr;
}

// What a port the library could not set up at all ends with.
int CannotSetUp(const MonitorSettings& settings, uint32_t code, std::ostream& err) {
  if (code == KAVOGPS_ERROR_FILE_NOT_FOUND) {
    err << "kavogps monitor: cannot open " << settings.port << ": " << TroubleText(LibraryPortName(settings.port))
        << '\n';
    return kExitPortUnavailable;
  }
  err << "kavogps monitor: cannot set up " << settings.port << " at " << settings.baud << " baud (error " << code
      << ")\n";
  return kExitFailure;
}

// Monitors the receiver on `port`, named `shown`, with its output
// prepared; an unplugged receiver is waited for and opened again once a
// second unless --once.
int Monitor(const MonitorSettings& settings, const PortInfoPtr& port, const std::string& shown, SessionOutput& output,
            std::ostream& err) {
  NoSentenceHint hint(err, shown, settings.output.receiver);
  InterruptWatch interrupt;  // before the library starts any thread
  uint32_t code = 0;
  SessionEnd end = MonitorOnce(port, output, hint, interrupt, &code, [] {});
  if (code != KAVOGPS_ERROR_SUCCESS) {
    output.Abandon();
    return CannotSetUp(settings, code, err);
  }
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
  const bool receiverGone = end == SessionEnd::kSourceFailed;
  if (receiverGone) err << "kavogps monitor: the receiver on " << shown << " is gone\n";
  return output.FinishSession(end, "monitor", receiverGone ? "Receiver gone." : "Stopped.",
                              receiverGone ? kExitFailure : kExitOk);
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
  int exitCode = kExitOk;
  const PortInfoPtr port = DescribeMonitoredPort(settings, err, &exitCode);
  if (!port) return exitCode;
  // The colon the library adds belongs to COM names, not to paths.
  const bool path = !settings.port.empty() && settings.port[0] == '/';
  const std::string shown = path ? settings.port : FromLibraryText(COMPortInfo_GetName(port.get()));
  SessionOutput output(
      out, err,
      ChoiceOf(settings.output, shown,
               "kavogps monitor " + shown + "  (" + std::to_string(settings.baud) + " baud; Ctrl+C stops)"));
  if (const int code = output.Prepare("monitor", settings.output.receiver)) return code;
  return Monitor(settings, port, shown, output, err);
}

}  // namespace kavo::cli
