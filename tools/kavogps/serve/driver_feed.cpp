#include "serve/driver_feed.h"

#include "serve/protocol.h"
#include "session/command_line.h"
#include "session/driver_session.h"
#include "session/gps_library.h"
#include "session/json_report.h"
#include "session/open_session.h"
#include "session/serial_ports.h"

namespace kavo::serve {
namespace {

constexpr uint32_t kReopenEveryMs = 1000;

// Each epoch as the clients read it, its time as time servers read it, and
// the sentences as they came. Every call only hands work on without
// waiting, so it may run on the library's reading thread.
class FeedView : public cli::ReadingView {
 public:
  FeedView(FeedSink& sink, std::string device, const std::vector<TimeOutput*>& timeOutputs)
      : sink_(sink), device_(std::move(device)), timeOutputs_(timeOutputs) {}
  void Show(const cli::EpochReport& report) override {
    if (!timeOutputs_.empty())
      if (const std::optional<FixTime> time = EpochTime(report))
        for (TimeOutput* output : timeOutputs_) output->Sample(*time);
    sink_.Epoch(device_, cli::TpvJson(report.reading, device_),
                report.skyChanged ? cli::SkyJson(report.reading, device_, report.used) : std::string());
  }
  void Sentence(const std::string& sentence) override {
    if (sink_.WantsNmea()) sink_.Nmea(device_, sentence);
  }

 private:
  FeedSink& sink_;
  std::string device_;
  const std::vector<TimeOutput*>& timeOutputs_;
};

class Feed {
 public:
  Feed(FeedSink& sink, std::ostream& err, const SourceSpec& spec, const std::vector<TimeOutput*>& timeOutputs)
      : sink_(sink), err_(err), spec_(spec), device_(NamedDevice(spec)), view_(sink, device_.path, timeOutputs) {
    sink_.Device(device_);  // named, not there yet
  }

  int PlayRecording(cli::Waiter& interrupt) {
    cli::OpenedSession opened;
    uint32_t error = 0;
    if (!cli::OpenSession({spec_.file, spec_.intervalMs, spec_.repeat}, true, &opened, &error))
      return Fail("the library could not open '" + spec_.file + "'", error, cli::kExitFile);
    cli::DriverSession& session = *opened.session;
    session.AddView(&view_);
    if (!session.Start(&error))
      return Fail("the library could not play '" + spec_.file + "'", error, cli::kExitFailure);
    Present(true);
    const cli::SessionEnd end = session.Run(interrupt);
    if (end == cli::SessionEnd::kInterrupted) return cli::kExitOk;
    if (end != cli::SessionEnd::kRecordingEnded) {
      err_ << "kavogps serve: '" << spec_.file
           << (end == cli::SessionEnd::kNoText ? "' holds no NMEA sentence the library recognises\n"
                                               : "': reading it failed while playing it\n");
      return cli::kExitFile;
    }
    err_ << "kavogps serve: end of '" << spec_.file << "'; serving its last fix until interrupted\n";
    Present(false);
    while (!interrupt.Wait(kReopenEveryMs)) {}
    return cli::kExitOk;
  }

  // A port that cannot be opened, at the start or after it failed, is
  // tried again every second until interrupted.
  int FollowPort(cli::Waiter& interrupt) {
    const COMPortParams params{static_cast<int32_t>(spec_.baud), 0, 0, 8};
    const cli::PortInfoPtr port(
        COMPortInfo_Create(cli::ToLibraryText(cli::LibraryPortName(spec_.port)).c_str(), &params));
    if (!port)
      return Fail("the port '" + spec_.port + "' cannot be described", KavoMobileGPS_GetLastError(), cli::kExitFailure);
    bool absent = false;  // and said so
    do {
      uint32_t error = 0;
      cli::SessionEnd end = cli::SessionEnd::kSourceFailed;
      if (RunOnPort(port.get(), interrupt, absent, &end, &error)) {
        if (end == cli::SessionEnd::kInterrupted) return cli::kExitOk;
        err_ << "kavogps serve: the receiver on " << spec_.port << " is gone; reopening it every second\n";
        Present(false);
        absent = true;
      } else if (!absent) {
        err_ << "kavogps serve: cannot open " << spec_.port << ": "
             << (error == KAVOGPS_ERROR_FILE_NOT_FOUND ? cli::TroubleText(spec_.port)
                                                       : "error " + std::to_string(error))
             << "; trying again every second\n";
        Present(false);
        absent = true;
      }
    } while (!interrupt.Wait(kReopenEveryMs));
    return cli::kExitOk;
  }

 private:
  // Runs a session on the port until it ends; false with the library's
  // error when the port could not be opened.
  bool RunOnPort(COMPortInfoHandle port, cli::Waiter& interrupt, bool absent, cli::SessionEnd* end, uint32_t* error) {
    cli::SessionSource source;
    source.port = port;
    cli::OpenedSession opened;
    if (!cli::OpenSession(source, true, &opened, error)) return false;
    cli::DriverSession& session = *opened.session;
    session.AddView(&view_);
    if (!session.Start(error)) return false;
    if (absent) err_ << "kavogps serve: the receiver on " << spec_.port << " is back\n";
    Present(true);
    *end = session.Run(interrupt);
    return true;
  }

  int Fail(const std::string& what, uint32_t error, int code) {
    err_ << "kavogps serve: " << what << " (error " << error << ")\n";
    return code;
  }

  // Tells the clients whether the receiver is there.
  void Present(bool present) {
    err_.flush();
    device_.activated = present ? IsoNow() : std::string();
    sink_.Device(device_);
  }

  FeedSink& sink_;
  std::ostream& err_;
  const SourceSpec& spec_;
  DeviceState device_;
  FeedView view_;
};

}  // namespace

DeviceState NamedDevice(const SourceSpec& spec) {
  DeviceState device;
  device.path = spec.file.empty() ? spec.port : spec.file;
  device.bps = spec.file.empty() ? static_cast<int>(spec.baud) : 0;
  return device;
}

int DriverFeed::Run(SourceSpec spec, cli::Waiter& interrupt) {
  if (spec.find) {
    err_ << "kavogps serve: searching the serial ports for a GPS receiver...\n";
    const cli::PortInfoPtr found(COMPortInfo_FindGPSCOMPort(1));
    if (!found) {
      err_ << "kavogps serve: no GPS receiver found (error " << KavoMobileGPS_GetLastError() << ")\n";
      return cli::kExitNoReceiver;
    }
    COMPortParams params{};
    COMPortInfo_GetParams(found.get(), &params);
    spec.port = cli::FromLibraryText(COMPortInfo_GetName(found.get()));
    spec.baud = params.BaudRate;
    err_ << "kavogps serve: GPS receiver on " << spec.port << " at " << spec.baud << " baud\n";
  }
  Feed feed(sink_, err_, spec, timeOutputs_);
  return spec.file.empty() ? feed.FollowPort(interrupt) : feed.PlayRecording(interrupt);
}

}  // namespace kavo::serve
