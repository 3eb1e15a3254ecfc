#include "session/live_view.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "session/json_report.h"

namespace kavo::cli {
namespace {

std::string Format(const char* format, double value) {
  char text[64];
  std::snprintf(text, sizeof text, format, value);
  return text;
}

std::string Coordinate(double degrees, char positive, char negative) {
  return Format("%.6f", std::fabs(degrees)) + ' ' + (degrees < 0 ? negative : positive);
}

std::string TimeText(const GPSLocation& l) {
  std::string iso = IsoTime(l);
  if (!iso.empty()) return iso.substr(0, 10) + ' ' + iso.substr(11, 8) + " UTC";
  const std::string day = TimeOfDay(l);
  return day.empty() ? "-" : day + " UTC (no date yet)";
}

std::string Dops(const GPSLocation& l) {
  const auto dop = [&](const char* name, uint32_t flag, double value) {
    return std::string(name) + (Has(l, flag) ? Format(" %.1f", value) : " -");
  };
  return dop("HDOP", GPS_VALID_HDOP, l.HDOP) + "  " + dop("VDOP", GPS_VALID_VDOP, l.VDOP) + "  " +
         dop("PDOP", GPS_VALID_PDOP, l.PDOP);
}

}  // namespace

std::string SignalBar(int32_t snr) {
  constexpr int kWidth = 10;  // one mark per 5 dB-Hz, full at 50
  const int marks = snr <= 0 ? 0 : snr >= 50 ? kWidth : (snr + 4) / 5;
  return "[" + std::string(static_cast<size_t>(marks), '#') + std::string(static_cast<size_t>(kWidth - marks), ' ') +
         "]";
}

std::string RenderScreen(const Reading& r, const std::string& title, int rows) {
  const GPSLocation& l = r.location;
  std::string s = title + "\n\n";
  s += "Status      " + std::string(StatusWords(r.status)) + "\n";
  s += "Time        " + TimeText(l) + "\n";
  s += "Position    " +
       (HasPosition(l) ? Coordinate(l.Latitude, 'N', 'S') + "  " + Coordinate(l.Longitude, 'E', 'W') : "-") + "\n";
  s += "Fix         " + std::string(FixQualityWords(l.FixQuality)) + " (quality " + std::to_string(l.FixQuality) +
       "), " + (Has(l, GPS_VALID_SATELLITES_IN_USE) ? std::to_string(l.SatellitesInUse) : "-") + " satellites in use\n";
  s += "Altitude    " + (Has(l, GPS_VALID_ALTITUDE) ? Format("%.1f m", l.Altitude) : "-") + "\n";
  s += "Speed       " + (Has(l, GPS_VALID_SPEED) ? Format("%.1f km/h", l.Speed * kKmhPerMph) : "-") + "\n";
  s += "Course      " + (Has(l, GPS_VALID_COURSE) ? Format("%.1f deg true", Degrees(l.Course)) : "-") +
       (Has(l, GPS_VALID_MAGNETIC_COURSE) ? Format(", %.1f deg magnetic", Degrees(l.MagneticCourse)) : "") + "\n";
  s += "Precision   " + Dops(l) + "\n\n";
  s += "Satellites in view: " + std::to_string(r.satellites.size()) + "\n";
  if (!r.satellites.empty()) s += "  PRN  Elev  Azim  SNR\n";
  // What fits: the lines so far, and one for "... n more" when not all do.
  const int used = static_cast<int>(std::count(s.begin(), s.end(), '\n'));
  const int total = static_cast<int>(r.satellites.size());
  const int shown = rows <= 0 || used + total <= rows ? total : std::max(0, rows - used - 1);
  for (int i = 0; i < shown; ++i) {
    const GPSSatellite& sat = r.satellites[static_cast<size_t>(i)];
    char line[96];
    std::snprintf(line, sizeof line, "  %3d  %4.0f  %4.0f  %3d  ", sat.PRN, Degrees(sat.Elevation),
                  Degrees(sat.Azimuth), sat.SNR);
    s += line + SignalBar(sat.SNR) + "\n";
  }
  if (shown < total) s += "  ... " + std::to_string(total - shown) + " more\n";
  return s;
}

std::string RenderLine(const Reading& r) {
  const GPSLocation& l = r.location;
  std::string s = IsoTime(l);
  if (s.empty()) s = TimeOfDay(l).empty() ? "-" : TimeOfDay(l);
  s += HasPosition(l) ? "  " + Coordinate(l.Latitude, 'N', 'S') + " " + Coordinate(l.Longitude, 'E', 'W') : "  -";
  s += "  " + std::string(FixQualityWords(l.FixQuality));
  s += "  " + (Has(l, GPS_VALID_SATELLITES_IN_USE) ? std::to_string(l.SatellitesInUse) : "-") + " used, " +
       std::to_string(r.satellites.size()) + " in view";
  if (Has(l, GPS_VALID_ALTITUDE)) s += Format("  alt %.1f m", l.Altitude);
  if (Has(l, GPS_VALID_SPEED)) s += Format("  %.1f km/h", l.Speed * kKmhPerMph);
  if (Has(l, GPS_VALID_COURSE)) s += Format("  course %.1f", Degrees(l.Course));
  s += "  " + Dops(l) + "  [" + StatusWords(r.status) + "]";
  return s;
}

void TerminalView::Show(const EpochReport& report) {
  latest_ = report.reading;
  pending_ = true;
  Tick();
}

void TerminalView::Status(int32_t status) {
  if (status == latest_.status) return;
  latest_.status = status;
  pending_ = true;
}

void TerminalView::Tick() {
  const auto now = std::chrono::steady_clock::now();
  if (!pending_ || (started_ && now - lastDraw_ < std::chrono::milliseconds(100))) return;
  lastDraw_ = now;
  Draw();
}

void TerminalView::Close() {
  if (pending_ || !started_) Draw();
}

void TerminalView::Draw() {
  // Home, each line cleared to its end, then everything below cleared: the
  // screen changes in place without flicker.
  std::string frame = started_ ? "\x1b[H" : "\x1b[2J\x1b[H";
  // One row is left free for the cursor after the last line.
  int rowsLeft = rows_ && rows_() > 1 ? rows_() - 1 : -1;
  const std::string screen = RenderScreen(latest_, title_, rowsLeft);
  size_t start = 0;
  for (size_t end; rowsLeft != 0 && (end = screen.find('\n', start)) != std::string::npos; start = end + 1, --rowsLeft)
    frame += screen.substr(start, end - start) + "\x1b[K\n";
  out_ << frame << "\x1b[J" << std::flush;
  started_ = true;
  pending_ = false;
}

void LineView::Show(const EpochReport& report) { out_ << RenderLine(report.reading) << '\n' << std::flush; }

void JsonView::Show(const EpochReport& report) {
  out_ << TpvJson(report.reading, device_) << '\n';
  if (report.skyChanged) out_ << SkyJson(report.reading, device_, report.used) << '\n';
  out_ << std::flush;
}

}  // namespace kavo::cli
