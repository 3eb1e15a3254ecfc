// KavoMobileGPS for C++17, header-only, over the C interface of
// KavoMobileGPS.h, whose documentation of each function holds here too:
//
//   - owners that release the four kinds of handle (Driver, Satellites,
//     Port, PortList), movable, not copyable;
//   - callbacks as std::function, with any captures;
//   - text as UTF-8 std::string, whatever KavoChar is on the platform;
//   - positions and angles in degrees, speed in metres per second, altitude
//     in metres, each field a std::optional that is empty unless the
//     receiver sent it;
//   - times as std::chrono::system_clock::time_point where the record's
//     time type gives an instant (see Time);
//   - failures as std::error_code in kavogps::ErrorCategory(), whose
//     messages name each last-error value: an operation that can fail
//     throws std::system_error, or, in its overload that takes a
//     std::error_code&, sets it (and throws only std::bad_alloc).
//
//   kavogps::Driver driver = kavogps::Driver::PlayFile("walk.nmea", std::chrono::milliseconds(100), false,
//       {nullptr, [](uint32_t, const kavogps::Location& at) { ... }, nullptr});
//   driver.Start();
#pragma once

#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <ctime>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include "KavoMobileGPS.h"

namespace kavogps {

// --- Errors ----------------------------------------------------------------

// The last-error values of KavoMobileGPS.h.
enum class Error : int {
  kFileNotFound = KAVOGPS_ERROR_FILE_NOT_FOUND,
  kOutOfMemory = KAVOGPS_ERROR_OUTOFMEMORY,
  kNotSupported = KAVOGPS_ERROR_NOT_SUPPORTED,
  kInvalidParameter = KAVOGPS_ERROR_INVALID_PARAMETER,
  kBadArguments = KAVOGPS_ERROR_BAD_ARGUMENTS,
  kFileInvalid = KAVOGPS_ERROR_FILE_INVALID,
};

namespace detail {

class ErrorCategoryImpl final : public std::error_category {
 public:
  const char* name() const noexcept override { return "KavoMobileGPS"; }

  std::string message(int value) const override {
    switch (value) {
      case 0:
        return "success";
      case KAVOGPS_ERROR_FILE_NOT_FOUND:
        return "KAVOGPS_ERROR_FILE_NOT_FOUND (2): no such port, the port is busy, or no receiver was found";
      case KAVOGPS_ERROR_OUTOFMEMORY:
        return "KAVOGPS_ERROR_OUTOFMEMORY (14): out of memory";
      case KAVOGPS_ERROR_NOT_SUPPORTED:
        return "KAVOGPS_ERROR_NOT_SUPPORTED (50): the file cannot be opened, the driver is already started, the "
               "port list cannot be read, or another failure";
      case KAVOGPS_ERROR_INVALID_PARAMETER:
        return "KAVOGPS_ERROR_INVALID_PARAMETER (87): a port setting outside its table";
      case KAVOGPS_ERROR_BAD_ARGUMENTS:
        return "KAVOGPS_ERROR_BAD_ARGUMENTS (160): a null handle or pointer, or an argument out of range";
      case KAVOGPS_ERROR_FILE_INVALID:
        return "KAVOGPS_ERROR_FILE_INVALID (1006): a serial or file operation failed";
    }
    return "KavoMobileGPS last error " + std::to_string(value);
  }

  // So that portable code can compare with std::errc.
  std::error_condition default_error_condition(int value) const noexcept override {
    switch (value) {
      case KAVOGPS_ERROR_FILE_NOT_FOUND:
        return std::errc::no_such_file_or_directory;
      case KAVOGPS_ERROR_OUTOFMEMORY:
        return std::errc::not_enough_memory;
      case KAVOGPS_ERROR_NOT_SUPPORTED:
        return std::errc::not_supported;
      case KAVOGPS_ERROR_INVALID_PARAMETER:
      case KAVOGPS_ERROR_BAD_ARGUMENTS:
        return std::errc::invalid_argument;
      case KAVOGPS_ERROR_FILE_INVALID:
        return std::errc::io_error;
    }
    return std::error_condition(value, *this);
  }
};

}  // namespace detail

inline const std::error_category& ErrorCategory() noexcept {
  static const detail::ErrorCategoryImpl category;
  return category;
}

inline std::error_code make_error_code(Error error) noexcept { return {static_cast<int>(error), ErrorCategory()}; }

// The calling thread's last error as the library's latest call left it.
inline std::error_code LastError() noexcept {
  return {static_cast<int>(KavoMobileGPS_GetLastError()), ErrorCategory()};
}

}  // namespace kavogps

namespace std {
template <>
struct is_error_code_enum<kavogps::Error> : true_type {};
}  // namespace std

namespace kavogps {
namespace detail {

// The outcome of a call: into `error` when given, else thrown.
inline void Report(bool ok, std::error_code* error, const char* what) {
  if (error) {
    *error = ok ? std::error_code() : LastError();
  } else if (!ok) {
    throw std::system_error(LastError(), what);
  }
}

// --- UTF-8 <-> UTF-16; malformed input becomes U+FFFD --------------------

using LibraryString = std::basic_string<KavoChar>;

inline void AppendUtf16(LibraryString& out, char32_t c) {
  if (c < 0x10000) {
    out += static_cast<KavoChar>(c);
  } else {
    out += static_cast<KavoChar>(0xD800 + ((c - 0x10000) >> 10));
    out += static_cast<KavoChar>(0xDC00 + ((c - 0x10000) & 0x3FF));
  }
}

inline LibraryString ToLibraryText(std::string_view utf8) {
  static constexpr char32_t kSmallest[] = {0, 0, 0x80, 0x800, 0x10000};  // by length: shorter forms are invalid
  LibraryString out;
  for (size_t i = 0; i < utf8.size();) {
    const auto lead = static_cast<unsigned char>(utf8[i]);
    const int length = lead < 0x80 ? 1 : lead < 0xC2 ? 0 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : lead < 0xF5 ? 4 : 0;
    char32_t c = lead & (length == 1 ? 0x7F : 0x7F >> length);
    int used = 1;
    for (; used < length && i + used < utf8.size() && (utf8[i + used] & 0xC0) == 0x80; ++used)
      c = c << 6 | (utf8[i + used] & 0x3F);
    const bool valid =
        length > 0 && used == length && c >= kSmallest[length] && c <= 0x10FFFF && (c & ~0x7FFu) != 0xD800;
    AppendUtf16(out, valid ? c : 0xFFFD);
    i += used;
  }
  return out;
}

inline void AppendUtf8(std::string& out, char32_t c) {
  if (c < 0x80) {
    out += static_cast<char>(c);
    return;
  }
  const int length = c < 0x800 ? 2 : c < 0x10000 ? 3 : 4;
  out += static_cast<char>((0xF00 >> length) | (c >> (6 * (length - 1))));
  for (int shift = 6 * (length - 2); shift >= 0; shift -= 6) out += static_cast<char>(0x80 | ((c >> shift) & 0x3F));
}

inline std::string FromLibraryText(const KavoChar* text) {
  std::string out;
  for (; text && *text; ++text) {
    const char32_t unit = static_cast<char16_t>(*text);
    const char32_t next = static_cast<char16_t>(text[1]);
    if (unit >= 0xD800 && unit < 0xDC00 && next >= 0xDC00 && next < 0xE000) {
      AppendUtf8(out, 0x10000 + ((unit - 0xD800) << 10) + (next - 0xDC00));
      ++text;
    } else {
      AppendUtf8(out, unit >= 0xD800 && unit < 0xE000 ? 0xFFFD : unit);
    }
  }
  return out;
}

constexpr double kPi = 3.14159265358979323846;
constexpr double kMetresPerSecondPerMph = 0.44704;  // exactly: 1609.344 m in 3600 s
constexpr int64_t kMsPerDay = 86400000;
constexpr int64_t kOleDaysTo1970 = 25569;  // 30 December 1899 to 1 January 1970

inline double Degrees(double radians) { return radians * 180.0 / kPi; }

template <class T>
std::optional<T> If(uint32_t flags, uint32_t wanted, T value) {
  return (flags & wanted) == wanted ? std::optional<T>(value) : std::nullopt;
}

}  // namespace detail

// --- Times -----------------------------------------------------------------

enum class TimeType : int32_t {
  kFull = GPS_TIME_FULL,               // date and time from the receiver: UTC
  kTimeOfDay = GPS_TIME_OF_DAY,        // the receiver's UTC time of day on the computer's local date
  kLocalClock = GPS_TIME_LOCAL_CLOCK,  // no receiver time: the computer's local wall-clock time
};

// A time of a record: an OLE Automation date (from 30 December 1899 on) and
// the clock it comes from. Converted to whole milliseconds first, so that
// 10:00:00 does not become 09:59:59.999.
class Time {
 public:
  Time(double oleDate, TimeType type) : oleDate_(oleDate), type_(type) {}

  double OleDate() const { return oleDate_; }
  TimeType Type() const { return type_; }

  // The time of day as stored: UTC for kFull and kTimeOfDay, local wall
  // time for kLocalClock.
  std::chrono::milliseconds TimeOfDay() const { return std::chrono::milliseconds(Ms() - Days() * detail::kMsPerDay); }

  // The instant, for the two types that give one: kFull as UTC, kLocalClock
  // read in the computer's current time zone (where the clock is set back,
  // the hour it repeats is taken as std::mktime decides). Empty for
  // kTimeOfDay, whose date is the computer's, not the receiver's: use
  // TimeOfDay() with a date of your own.
  std::optional<std::chrono::system_clock::time_point> Instant() const {
    int64_t sinceEpochMs;
    if (type_ == TimeType::kFull) {
      sinceEpochMs = Ms() - detail::kOleDaysTo1970 * detail::kMsPerDay;
    } else if (type_ == TimeType::kLocalClock) {
      std::tm fields{};
      fields.tm_year = 70;  // std::mktime carries days and seconds over into months and years
      fields.tm_mday = static_cast<int>(1 + Days() - detail::kOleDaysTo1970);
      fields.tm_sec = static_cast<int>(TimeOfDay().count() / 1000);
      fields.tm_isdst = -1;
      const std::time_t seconds = std::mktime(&fields);
      if (seconds == static_cast<std::time_t>(-1)) return std::nullopt;
      sinceEpochMs = int64_t{seconds} * 1000 + TimeOfDay().count() % 1000;
    } else {
      return std::nullopt;
    }
    return std::chrono::system_clock::time_point(
        std::chrono::duration_cast<std::chrono::system_clock::duration>(std::chrono::milliseconds(sinceEpochMs)));
  }

 private:
  int64_t Ms() const { return std::llround(oleDate_ * detail::kMsPerDay); }
  int64_t Days() const { return Ms() / detail::kMsPerDay; }

  double oleDate_;
  TimeType type_;
};

// --- Records ---------------------------------------------------------------

struct Position {
  double latitude;   // decimal degrees, south negative
  double longitude;  // decimal degrees, west negative
};

// A fix. Each field is empty unless the receiver sent it (ValidFlags); like
// the C record, it may hold one epoch's position with the previous one's
// speed.
struct Location {
  std::optional<Position> position;
  std::optional<double> altitudeMetres;         // above mean sea level
  std::optional<double> geoidSeparationMetres;  // of the geoid above the ellipsoid
  std::optional<double> speedMetresPerSecond;
  std::optional<double> courseDegrees;  // true, clockwise from north
  std::optional<double> magneticCourseDegrees;
  std::optional<int> satellitesInUse;
  std::optional<double> pdop, hdop, vdop;
  int fixQuality = 0;        // 0 no fix, 1 fix, 2..8 as the receiver sent it
  std::optional<Time> time;  // empty before Start
  GPSLocation record{};      // what it was made from

  static Location FromRecord(const GPSLocation& r) {
    using detail::If;
    const uint32_t f = r.ValidFlags;
    Location l;
    l.position = If(f, GPS_VALID_POSITION, Position{r.Latitude, r.Longitude});
    l.altitudeMetres = If(f, GPS_VALID_ALTITUDE, r.Altitude);
    l.geoidSeparationMetres = If(f, GPS_VALID_GEOID_SEPARATION, r.GeoidSeparation);
    l.speedMetresPerSecond = If(f, GPS_VALID_SPEED, r.Speed * detail::kMetresPerSecondPerMph);
    l.courseDegrees = If(f, GPS_VALID_COURSE, detail::Degrees(r.Course));
    l.magneticCourseDegrees = If(f, GPS_VALID_MAGNETIC_COURSE, detail::Degrees(r.MagneticCourse));
    l.satellitesInUse = If(f, GPS_VALID_SATELLITES_IN_USE, static_cast<int>(r.SatellitesInUse));
    l.pdop = If(f, GPS_VALID_PDOP, r.PDOP);
    l.hdop = If(f, GPS_VALID_HDOP, r.HDOP);
    l.vdop = If(f, GPS_VALID_VDOP, r.VDOP);
    l.fixQuality = r.FixQuality;
    if (r.Time != 0) l.time = Time(r.Time, static_cast<TimeType>(r.TimeType));
    l.record = r;
    return l;
  }
};

struct Satellite {
  int prn;
  int snr;  // as sent, 0 when not tracked
  double elevationDegrees;
  double azimuthDegrees;
};

// A snapshot of the satellites in view; it outlives its driver.
class Satellites {
 public:
  Satellites() = default;
  // Takes over a handle from GPSDriver_GetSatellitesInfo.
  explicit Satellites(GPSSatellitesStateHandle handle) : handle_(handle) {}

  int Count() const { return GPSSatellitesState_GetVisibleSatellitesCount(handle_.get()); }
  std::vector<Satellite> InView() const {
    std::vector<Satellite> all;
    GPSSatellite s;
    for (int i = 0; i < Count() && GPSSatellitesState_GetSatellite(handle_.get(), i, &s); ++i)
      all.push_back({s.PRN, s.SNR, detail::Degrees(s.Elevation), detail::Degrees(s.Azimuth)});
    return all;
  }
  // When the table was published, by the computer's clock.
  Time Published() const {
    double oleDate = 0;
    GPSSatellitesState_GetTime(handle_.get(), &oleDate);
    return Time(oleDate, static_cast<TimeType>(GPSSatellitesState_GetTimeType(handle_.get())));
  }
  GPSSatellitesStateHandle Handle() const noexcept { return handle_.get(); }
  explicit operator bool() const noexcept { return handle_ != nullptr; }

 private:
  struct Release {
    void operator()(GPSSatellitesStateHandle h) const noexcept { GPSSatellitesState_Release(h); }
  };
  std::unique_ptr<GPSSatellitesStateObject, Release> handle_;
};

// --- Ports -----------------------------------------------------------------

enum class Parity : int32_t { kNone = 0, kOdd = 1, kEven = 2, kMark = 3, kSpace = 4 };
enum class StopBits : int32_t { kOne = 0, kOneAndAHalf = 1, kTwo = 2 };

struct PortSettings {
  int32_t baudRate = 4800;  // one of the speeds COMPortParams lists
  Parity parity = Parity::kNone;
  StopBits stopBits = StopBits::kOne;
  int32_t dataBits = 8;
};

// A serial port description: a name and line settings. Opens nothing.
class Port {
 public:
  Port() = default;
  // Takes over a handle from the C interface.
  explicit Port(COMPortInfoHandle handle) : handle_(handle) {}

  static Port Describe(std::string_view name, const PortSettings& settings = {}) {
    return Describe(name, settings, nullptr);
  }
  static Port Describe(std::string_view name, const PortSettings& settings, std::error_code& error) {
    return Describe(name, settings, &error);
  }
  // Searches the ports for a receiver (seconds per port: see
  // COMPortInfo_FindGPSCOMPort).
  static Port FindGps() { return FindGps(nullptr); }
  static Port FindGps(std::error_code& error) { return FindGps(&error); }

  std::string Name() const { return detail::FromLibraryText(COMPortInfo_GetName(handle_.get())); }
  // Stored as given, cut to 20 UTF-16 units.
  void SetName(std::string_view name) {
    detail::Report(COMPortInfo_SetName(handle_.get(), detail::ToLibraryText(name).c_str()), nullptr, "SetName");
  }
  PortSettings Settings() const {
    COMPortParams p{};
    detail::Report(COMPortInfo_GetParams(handle_.get(), &p), nullptr, "COMPortInfo_GetParams");
    return {p.BaudRate, static_cast<Parity>(p.Parity), static_cast<StopBits>(p.StopBits), p.ByteSize};
  }
  void SetSettings(const PortSettings& settings) { SetSettings(settings, nullptr); }
  void SetSettings(const PortSettings& settings, std::error_code& error) { SetSettings(settings, &error); }

  COMPortInfoHandle Handle() const noexcept { return handle_.get(); }
  explicit operator bool() const noexcept { return handle_ != nullptr; }

 private:
  static COMPortParams Params(const PortSettings& s) {
    return {s.baudRate, static_cast<int32_t>(s.parity), static_cast<int32_t>(s.stopBits), s.dataBits};
  }
  static Port Describe(std::string_view name, const PortSettings& settings, std::error_code* error) {
    const COMPortParams params = Params(settings);
    Port port(COMPortInfo_Create(detail::ToLibraryText(name).c_str(), &params));
    detail::Report(port.handle_ != nullptr, error, "COMPortInfo_Create");
    return port;
  }
  static Port FindGps(std::error_code* error) {
    Port port(COMPortInfo_FindGPSCOMPort(1));
    detail::Report(port.handle_ != nullptr, error, "COMPortInfo_FindGPSCOMPort");
    return port;
  }
  void SetSettings(const PortSettings& settings, std::error_code* error) {
    const COMPortParams params = Params(settings);
    detail::Report(COMPortInfo_SetParams(handle_.get(), &params), error, "COMPortInfo_SetParams");
  }

  struct Release {
    void operator()(COMPortInfoHandle h) const noexcept { COMPortInfo_Release(h); }
  };
  std::unique_ptr<COMPortInfoObject, Release> handle_;
};

// The machine's serial ports, listed once (see COMPortCollection_Create).
class PortList {
 public:
  PortList() = default;

  static PortList Create() { return Create(nullptr); }
  static PortList Create(std::error_code& error) { return Create(&error); }

  int Count() const { return COMPortCollection_GetCount(handle_.get()); }

  struct Entry {
    Port port;  // with its current line settings
    bool busy;  // it cannot be opened: another program holds it, or it is gone
  };
  // Opens the port briefly to tell whether it is busy.
  Entry At(int index) const { return At(index, nullptr); }
  Entry At(int index, std::error_code& error) const { return At(index, &error); }

  COMPortCollectionHandle Handle() const noexcept { return handle_.get(); }
  explicit operator bool() const noexcept { return handle_ != nullptr; }

 private:
  static PortList Create(std::error_code* error) {
    PortList list;
    list.handle_.reset(COMPortCollection_Create(1));
    detail::Report(list.handle_ != nullptr, error, "COMPortCollection_Create");
    return list;
  }
  Entry At(int index, std::error_code* error) const {
    uint8_t busy = 0;
    Port port(COMPortCollection_GetPort(handle_.get(), index, &busy));
    detail::Report(static_cast<bool>(port), error, "COMPortCollection_GetPort");
    return {std::move(port), busy != 0};
  }

  struct Release {
    void operator()(COMPortCollectionHandle h) const noexcept { COMPortCollection_Release(h); }
  };
  std::unique_ptr<COMPortCollectionObject, Release> handle_;
};

// --- Driver ----------------------------------------------------------------

enum class Status : int32_t {
  kReceiving = GPS_STATUS_RECEIVING,
  kTimeout = GPS_STATUS_TIMEOUT,         // no text within the time-out interval
  kStopped = GPS_STATUS_STOPPED,         // stopped, no known sentence yet, or the source failed
  kNoSentence = GPS_STATUS_NO_SENTENCE,  // text, but no known sentence for 3 s
  kParseError = GPS_STATUS_PARSE_ERROR,  // the text could not be read
};

// Called on the library's threads, as the C callbacks are (see
// KavoMobileGPS.h): share data with other threads under a lock. Any may
// be empty. One must not throw: an exception that leaves it ends the
// program (std::terminate), as one leaving a std::thread does.
struct Callbacks {
  std::function<void(Status status)> onStatus;  // the status this call announces
  // What changed (GPS_CHANGED_* bits), and the fix as it was then.
  std::function<void(uint32_t changedMask, const Location& location)> onData;
  std::function<void(const std::string& sentence)> onSentence;  // UTF-8, without the line end
};

namespace detail {

// A driver's callbacks, and the context the library hands back to them.
// The driver's owner holds one reference and each callback under way
// another, so a callback that destroys its Driver returns into live state.
class CallbackState {
 public:
  explicit CallbackState(Callbacks callbacks) : callbacks_(std::move(callbacks)) {}

  // Only the callbacks given, so that the library skips the others.
  KavoMobileGPS_Callbacks Table() const {
    return {callbacks_.onStatus ? &OnStatus : nullptr, callbacks_.onData ? &OnData : nullptr,
            callbacks_.onSentence ? &OnSentence : nullptr};
  }
  void Release() noexcept {
    if (references_.fetch_sub(1, std::memory_order_acq_rel) == 1) delete this;
  }

 private:
  class Hold {
   public:
    explicit Hold(void* context) : state_(static_cast<CallbackState*>(context)) {
      state_->references_.fetch_add(1, std::memory_order_relaxed);
    }
    ~Hold() { state_->Release(); }
    const Callbacks& operator*() const { return state_->callbacks_; }

   private:
    CallbackState* state_;
  };

  static void OnStatus(void* context, int32_t status) noexcept { (*Hold(context)).onStatus(Status(status)); }
  static void OnData(void* context, uint32_t mask, const GPSLocation* location) noexcept {
    (*Hold(context)).onData(mask, Location::FromRecord(*location));
  }
  static void OnSentence(void* context, const KavoChar* sentence) noexcept {
    (*Hold(context)).onSentence(FromLibraryText(sentence));
  }

  std::atomic<int> references_{1};
  const Callbacks callbacks_;
};

struct ReleaseCallbackState {
  void operator()(CallbackState* state) const noexcept { state->Release(); }
};

}  // namespace detail

// A driver: a receiver on a port, or a recording played back. Released,
// with its port or file closed, when the owner goes (also from inside one
// of its own callbacks).
class Driver {
 public:
  Driver() = default;
  Driver(Driver&&) noexcept = default;
  // The driver held before goes first, then its callbacks.
  Driver& operator=(Driver other) noexcept {
    std::swap(callbacks_, other.callbacks_);
    std::swap(handle_, other.handle_);
    return *this;
  }

  // Plays the NMEA file at `path` (UTF-8), a line each `perLine`.
  static Driver PlayFile(const std::string& path, std::chrono::milliseconds perLine, bool repeat = false,
                         Callbacks callbacks = {}) {
    return PlayFile(path, perLine, repeat, std::move(callbacks), nullptr);
  }
  static Driver PlayFile(const std::string& path, std::chrono::milliseconds perLine, bool repeat, Callbacks callbacks,
                         std::error_code& error) {
    return PlayFile(path, perLine, repeat, std::move(callbacks), &error);
  }
  // Opens the port `port` describes (after the library's 500 ms pause).
  static Driver OpenPort(const Port& port, Callbacks callbacks = {}) {
    return OpenPort(port, std::move(callbacks), nullptr);
  }
  static Driver OpenPort(const Port& port, Callbacks callbacks, std::error_code& error) {
    return OpenPort(port, std::move(callbacks), &error);
  }

  void Start() { detail::Report(GPSDriver_Start(handle_.get()), nullptr, "GPSDriver_Start"); }
  void Start(std::error_code& error) { detail::Report(GPSDriver_Start(handle_.get()), &error, ""); }
  void Stop() { detail::Report(GPSDriver_Stop(handle_.get()), nullptr, "GPSDriver_Stop"); }

  Status GetStatus() const { return static_cast<Status>(GPSDriver_GetStatus(handle_.get())); }
  Location GetLocation() const {
    GPSLocation record{};
    detail::Report(GPSDriver_GetLocation(handle_.get(), &record), nullptr, "GPSDriver_GetLocation");
    return Location::FromRecord(record);
  }
  Satellites GetSatellites() const {
    Satellites snapshot(GPSDriver_GetSatellitesInfo(handle_.get()));
    detail::Report(static_cast<bool>(snapshot), nullptr, "GPSDriver_GetSatellitesInfo");
    return snapshot;
  }
  // How long without text before the status turns kTimeout.
  void SetTimeout(std::chrono::milliseconds timeout) {
    const bool fits = timeout.count() >= 0 && timeout.count() <= INT32_MAX;
    detail::Report(GPSDriver_SetTimeoutInterval(handle_.get(), fits ? static_cast<int32_t>(timeout.count()) : -1),
                   nullptr, "GPSDriver_SetTimeoutInterval");
  }
  std::chrono::milliseconds Timeout() const {
    return std::chrono::milliseconds(GPSDriver_GetTimeoutInterval(handle_.get()));
  }

  GPSDriverHandle Handle() const noexcept { return handle_.get(); }
  explicit operator bool() const noexcept { return handle_ != nullptr; }

 private:
  using CallbackRef = std::unique_ptr<detail::CallbackState, detail::ReleaseCallbackState>;

  static Driver PlayFile(const std::string& path, std::chrono::milliseconds perLine, bool repeat, Callbacks callbacks,
                         std::error_code* error) {
    Driver driver;
    driver.callbacks_.reset(new detail::CallbackState(std::move(callbacks)));
    const KavoMobileGPS_Callbacks table = driver.callbacks_->Table();
    // An interval the library cannot take is refused as it refuses 0.
    const bool fits = perLine.count() > 0 && perLine.count() <= UINT32_MAX;
    driver.handle_.reset(KavoMobileGPS_CreateDriverFromFile(detail::ToLibraryText(path).c_str(),
                                                            fits ? static_cast<uint32_t>(perLine.count()) : 0, repeat,
                                                            &table, driver.callbacks_.get()));
    detail::Report(static_cast<bool>(driver), error, "KavoMobileGPS_CreateDriverFromFile");
    return driver;
  }
  static Driver OpenPort(const Port& port, Callbacks callbacks, std::error_code* error) {
    Driver driver;
    driver.callbacks_.reset(new detail::CallbackState(std::move(callbacks)));
    const KavoMobileGPS_Callbacks table = driver.callbacks_->Table();
    driver.handle_.reset(KavoMobileGPS_CreateDriverFromCOMPort(port.Handle(), &table, driver.callbacks_.get()));
    detail::Report(static_cast<bool>(driver), error, "KavoMobileGPS_CreateDriverFromCOMPort");
    return driver;
  }

  struct Release {
    void operator()(GPSDriverHandle h) const noexcept { GPSDriver_Release(h); }
  };
  // Declared first, destroyed last: the callbacks outlive the driver.
  CallbackRef callbacks_;
  std::unique_ptr<GPSDriverObject, Release> handle_;
};

}  // namespace kavogps
