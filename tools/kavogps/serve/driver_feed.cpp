#include "serve/driver_feed.h"

#include <chrono>
#include <condition_variable>
#include <cstring>
#include <mutex>
#include <thread>

#include "cli/commands.h"
#include "cli/gps_library.h"
#include "cli/json_report.h"
#include "cli/play_command.h"
#include "cli/reading.h"
#include "serve/epoch_cutter.h"
#include "serve/protocol.h"

namespace kavo::serve {
namespace {

using Clock = std::chrono::steady_clock;
constexpr auto kReopenEvery = std::chrono::seconds(1);
constexpr auto kLoopWait = std::chrono::milliseconds(100);
// How long an epoch's end waits for the library to apply its last
// sentence, when nothing it carried changes the records (a receiver
// standing still): applying it takes microseconds after the announcement.
constexpr auto kCopyWait = std::chrono::milliseconds(3);
constexpr uint32_t kErrorFileNotFound = 2;

// What the library's callbacks, which carry no context, share with the
// feed's own thread.
struct Context {
  std::mutex mutex;
  std::condition_variable ended;  // an epoch's last sentence came
  GPSDriverHandle driver = nullptr;  // set while a driver runs
  FeedSink* sink = nullptr;
  std::string device;
  EpochCutter cutter;
  std::string lastSky;
  bool endPending = false;  // reported once the library applied the last sentence
  double endTime = 0;       // of the epoch that sentence ended
  GPSLocation beforeEnd{};  // the location before it did
};

Context& Active() {
  static Context context;
  return context;
}

// The records as they stand, as one TPV and, when it changed, a SKY; the
// epoch's time is the one its sentences gave, when they gave a date too.
void ReportLocked(Context& c, double time) {
  cli::Reading reading;
  if (!cli::TakeReading(c.driver, &reading)) return;
  if (time > 0) {
    reading.location.Time = time;
    reading.location.TimeType = GPS_TIME_FULL;
  }
  c.sink->Tpv(cli::TpvJson(reading, c.device));
  std::string sky = cli::SkyJson(reading, c.device, &c.cutter.UsedSatellites());
  if (sky == c.lastSky) return;
  c.lastSky = sky;
  c.sink->Sky(std::move(sky));
}

// Runs after the library applied a chunk (when its notifications are not
// held back), so an epoch whose last sentence came is complete now.
void OnData(uint32_t) {
  Context& c = Active();
  std::lock_guard<std::mutex> lock(c.mutex);
  if (!c.driver || !c.endPending) return;
  c.endPending = false;
  ReportLocked(c, c.endTime);
}

void OnSentence(const KavoChar* text) {
  std::string sentence = cli::FromLibraryText(text);
  while (!sentence.empty() && (sentence.back() == '\r' || sentence.back() == '\n')) sentence.pop_back();
  Context& c = Active();
  std::lock_guard<std::mutex> lock(c.mutex);
  if (!c.driver) return;
  // The library applies a chunk's sentences after announcing them all, so
  // here the records hold everything before this sentence.
  if (c.endPending) {
    c.endPending = false;
    ReportLocked(c, c.endTime);
  }
  c.sink->Nmea(sentence);
  const EpochCutter::Cut cut = c.cutter.Next(sentence);
  if (cut.before) ReportLocked(c, cut.beforeTime);
  if (cut.after) {
    GPSDriver_GetLocation(c.driver, &c.beforeEnd);
    c.endTime = cut.afterTime;
    c.endPending = true;
    c.ended.notify_one();
  }
}

// Reports an epoch whose last sentence came, once the library applied it:
// the location changes then (each epoch brings its own time), and when it
// does not within a moment, nothing of the sentence changed it.
void ReportEndedEpoch(std::unique_lock<std::mutex>& lock) {
  Context& c = Active();
  for (const auto until = Clock::now() + kCopyWait; c.endPending && c.driver && Clock::now() < until;) {
    GPSLocation now{};
    GPSDriver_GetLocation(c.driver, &now);
    if (std::memcmp(&now, &c.beforeEnd, sizeof now) != 0) break;
    lock.unlock();
    std::this_thread::sleep_for(std::chrono::microseconds(200));
    lock.lock();
  }
  if (!c.endPending || !c.driver) return;
  c.endPending = false;
  ReportLocked(c, c.endTime);
}

class Source {
 public:
  Source(FeedSink& sink, std::ostream& err, const SourceSpec& spec) : sink_(sink), err_(err), spec_(spec) {}
  ~Source() { Close(); }

  // The device's name for clients, the port found for --find; false (with
  // the exit code in `code`) when there is nothing to open.
  bool Prepare(int* code) {
    if (!spec_.find) {
      device_.path = spec_.file.empty() ? spec_.port : spec_.file;
      device_.bps = spec_.file.empty() ? static_cast<int>(spec_.baud) : 0;
      return true;
    }
    err_ << "kavogps serve: searching the serial ports for a GPS receiver...\n";
    const cli::PortInfoPtr found(COMPortInfo_FindGPSCOMPort(1));
    if (!found) {
      err_ << "kavogps serve: no GPS receiver found (error " << KavoMobileGPS_GetLastError() << ")\n";
      *code = cli::kExitNoReceiver;
      return false;
    }
    COMPortParams params{};
    COMPortInfo_GetParams(found.get(), &params);
    spec_.port = cli::FromLibraryText(COMPortInfo_GetName(found.get()));
    spec_.baud = params.BaudRate;
    device_.path = spec_.port;
    device_.bps = params.BaudRate;
    err_ << "kavogps serve: GPS receiver on " << spec_.port << " at " << spec_.baud << " baud\n";
    return true;
  }

  const DeviceState& Device() const { return device_; }

  // Opens and starts a driver on the source; false with the library's
  // error when it cannot.
  bool Open(uint32_t* error) {
    const cli::LibraryText name = cli::ToLibraryText(spec_.file.empty() ? spec_.port : spec_.file);
    if (spec_.file.empty()) {
      const COMPortParams params{static_cast<int32_t>(spec_.baud), 0, 0, 8};
      const cli::PortInfoPtr port(COMPortInfo_Create(name.c_str(), &params));
      if (port) driver_.reset(GPSDriver_CreateFromCOMPort(port.get(), nullptr, OnData, OnSentence));
      *error = KavoMobileGPS_GetLastError();  // before the port's release resets it
    } else {
      driver_.reset(GPSDriver_CreateFromFile(name.c_str(), static_cast<int32_t>(spec_.intervalMs),
                                             spec_.repeat ? 1 : 0, nullptr, OnData, OnSentence));
      *error = KavoMobileGPS_GetLastError();
      if (driver_) GPSDriver_SetTimeoutInterval(driver_.get(), static_cast<int32_t>(cli::EndTimeoutMs(spec_.intervalMs)));
    }
    if (!driver_) return false;
    {
      Context& c = Active();
      std::lock_guard<std::mutex> lock(c.mutex);
      c.driver = driver_.get();
      c.sink = &sink_;
      c.device = device_.path;
      c.cutter = EpochCutter();
      c.endPending = false;
    }
    if (!GPSDriver_Start(driver_.get())) {
      *error = KavoMobileGPS_GetLastError();
      Close();
      return false;
    }
    delivered_ = false;
    device_.activated = IsoNow();
    sink_.Device(device_);
    return true;
  }

  void Close() {
    if (!driver_) return;
    {
      std::lock_guard<std::mutex> lock(Active().mutex);
      Active().driver = nullptr;
    }
    GPSDriver_Stop(driver_.get());  // joins the reading thread: no callback after this
    driver_.reset();
  }

  // Follows the driver's status: a recording's end, a port that failed
  // and its reopening.
  void Check() {
    if (!driver_) {
      if (spec_.file.empty() && Clock::now() >= nextReopen_) Reopen();
      return;
    }
    const int32_t status = GPSDriver_GetStatus(driver_.get());
    if (status == GPS_STATUS_RECEIVING) delivered_ = true;
    if (!delivered_) return;
    if (!spec_.file.empty() && status == GPS_STATUS_TIMEOUT && !ended_) {
      ended_ = true;
      {
        std::lock_guard<std::mutex> lock(Active().mutex);
        if (Active().cutter.Unreported()) ReportLocked(Active(), Active().cutter.Time());
        Active().cutter.MarkReported();
      }
      err_ << "kavogps serve: end of recording; serving its last fix until interrupted\n";
      Gone();
    } else if (spec_.file.empty() && status == GPS_STATUS_STOPPED) {
      err_ << "kavogps serve: the receiver on " << spec_.port << " is gone; reopening it every second\n";
      Close();
      Gone();
      nextReopen_ = Clock::now() + kReopenEvery;
    }
  }

 private:
  void Gone() {
    device_.activated.clear();
    sink_.Device(device_);
  }

  void Reopen() {
    uint32_t error = 0;
    if (Open(&error)) {
      err_ << "kavogps serve: the receiver on " << spec_.port << " is back\n";
      return;
    }
    nextReopen_ = Clock::now() + kReopenEvery;
  }

  FeedSink& sink_;
  std::ostream& err_;
  SourceSpec spec_;
  DeviceState device_;
  cli::DriverPtr driver_;
  bool delivered_ = false;
  bool ended_ = false;
  Clock::time_point nextReopen_{};
};

}  // namespace

int DriverFeed::Run(const SourceSpec& spec, cli::InterruptWatch& interrupt) {
  Source source(sink_, err_, spec);
  int code = cli::kExitOk;
  if (!source.Prepare(&code)) return code;
  uint32_t error = 0;
  if (!source.Open(&error)) {
    const std::string& path = source.Device().path;
    if (!spec.file.empty()) {
      err_ << "kavogps serve: the library could not open '" << path << "' (error " << error << ")\n";
      return cli::kExitFile;
    }
    if (error == kErrorFileNotFound) {
      err_ << "kavogps serve: cannot open " << path
           << ": another program is using it, or there is no such port ('kavogps ports' lists them)\n";
      return cli::kExitPortUnavailable;
    }
    err_ << "kavogps serve: cannot set up " << path << " (error " << error << ")\n";
    return cli::kExitFailure;
  }
  Context& c = Active();
  while (!interrupt.Wait(0)) {
    {
      std::unique_lock<std::mutex> lock(c.mutex);
      if (c.ended.wait_for(lock, kLoopWait, [&c] { return c.endPending; })) ReportEndedEpoch(lock);
    }
    source.Check();
  }
  source.Close();
  return cli::kExitOk;
}

}  // namespace kavo::serve
