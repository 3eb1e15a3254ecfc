#include "session/gpx_writer.h"

#include <cerrno>
#include <cstring>
#include <filesystem>

#include "session/json_report.h"

namespace kavo::cli {

std::string XmlEscape(const std::string& text) {
  std::string escaped;
  for (char c : text) {
    switch (c) {
      case '&':
        escaped += "&amp;";
        break;
      case '<':
        escaped += "&lt;";
        break;
      case '>':
        escaped += "&gt;";
        break;
      case '"':
        escaped += "&quot;";
        break;
      case '\'':
        escaped += "&apos;";
        break;
      default:
        escaped += c;
    }
  }
  return escaped;
}

GpxWriter::~GpxWriter() { Abandon(); }

bool GpxWriter::Open(const std::string& path, const std::string& trackName, std::string* error) {
  file_.open(path, std::ios::binary | std::ios::trunc);
  if (!file_) {
    *error = "cannot create '" + path + "': " + std::strerror(errno);
    return false;
  }
  path_ = path;
  file_ << "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
           "<gpx version=\"1.1\" creator=\"kavogps\" xmlns=\"http://www.topografix.com/GPX/1/1\">\n"
           "  <trk>\n"
           "    <name>"
        << XmlEscape(trackName) << "</name>\n";
  return true;
}

void GpxWriter::Add(const Fix& fix) {
  if (!file_.is_open()) return;
  if (segmentOpen_ && fix.startsSegment) file_ << "    </trkseg>\n";
  if (!segmentOpen_ || fix.startsSegment) file_ << "    <trkseg>\n";
  segmentOpen_ = true;
  file_ << "      <trkpt lat=\"" << JsonNumber(fix.latitude, 9) << "\" lon=\"" << JsonNumber(fix.longitude, 9) << "\">";
  if (fix.altitude) file_ << "<ele>" << JsonNumber(*fix.altitude, 3) << "</ele>";
  if (!fix.time.empty()) {
    std::string time = fix.time;
    const size_t ms = time.find(".000Z");
    if (ms != std::string::npos) time.replace(ms, 5, "Z");
    file_ << "<time>" << time << "</time>";
  }
  file_ << "</trkpt>\n";
}

bool GpxWriter::Finish(std::string* error) {
  if (!file_.is_open()) return true;
  file_ << (segmentOpen_ ? "    </trkseg>\n" : "") << "  </trk>\n</gpx>\n";
  file_.close();
  if (!file_.fail()) {
    path_.clear();
    return true;
  }
  *error = "writing '" + path_ + "' failed; the incomplete file was removed";
  Abandon();
  return false;
}

void GpxWriter::Abandon() {
  if (file_.is_open()) file_.close();
  if (path_.empty()) return;
  // Only a file this writer made is removed, never a device named as output.
  std::error_code ignored;
  if (std::filesystem::is_regular_file(path_, ignored)) std::filesystem::remove(path_, ignored);
  path_.clear();
}

}  // namespace kavo::cli
