// A GPX 1.1 track written as the fixes come: one <trk>, a <trkseg> per
// stretch of fixes (see Fix::startsSegment), a <trkpt> per fix with its
// elevation and time when known. A file that
// could not be completed is removed.
#pragma once

#include <fstream>
#include <string>

#include "session/fix_track.h"

namespace kavo::cli {

class GpxWriter {
 public:
  GpxWriter() = default;
  ~GpxWriter();  // removes a file that was not finished
  GpxWriter(const GpxWriter&) = delete;
  GpxWriter& operator=(const GpxWriter&) = delete;

  // Creates the file and writes the header; false with a message.
  bool Open(const std::string& path, const std::string& trackName, std::string* error);
  bool IsOpen() const { return file_.is_open(); }
  void Add(const Fix& fix);
  // Writes the end of the track and closes the file; false with a message
  // (the file is then removed).
  bool Finish(std::string* error);
  // Closes and removes the file.
  void Abandon();

 private:
  std::string path_;
  std::ofstream file_;
  bool segmentOpen_ = false;
};

std::string XmlEscape(const std::string& text);

}  // namespace kavo::cli
