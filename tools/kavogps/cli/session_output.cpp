#include "cli/session_output.h"

#include <iostream>

#include "cli/console.h"

namespace kavo::cli {

SessionOutput::SessionOutput(std::ostream& out, std::ostream& err, OutputChoice choice)
    : out_(out), err_(err), choice_(std::move(choice)), track_([this](const Fix& fix) { gpx_.Add(fix); }) {
  if (choice_.nmea)
    view_ = std::make_unique<SentenceView>(out_);
  else if (choice_.json)
    view_ = std::make_unique<JsonView>(out_, choice_.device);
  else if (&out_ == &std::cout && StandardOutputIsAnsiTerminal())
    view_ = std::make_unique<TerminalView>(out_, choice_.title, StandardOutputRows);
  else
    view_ = std::make_unique<LineView>(out_);
}

bool SessionOutput::OpenTrackFile(std::string* error) {
  if (choice_.gpxPath.empty()) return true;
  return gpx_.Open(choice_.gpxPath, choice_.device, error);
}

void SessionOutput::Attach(DriverSession& session) {
  session.AddView(view_.get());
  session.SetTrack(&track_);
  session.WatchOutput(&out_);
}

bool SessionOutput::Finish(const std::string& heading, std::string* error) {
  const bool written = gpx_.Finish(error);
  if (heading.empty()) return written;
  // With JSON or sentences on standard output the summary goes with the
  // messages, so the output stays what programs read.
  std::ostream& summary = choice_.json || choice_.nmea ? err_ : out_;
  summary << heading << '\n' << Summary(track_);
  if (written && !choice_.gpxPath.empty())
    summary << "Track:      " << choice_.gpxPath << " (" << track_.Count() << " points)\n";
  summary.flush();
  return written;
}

}  // namespace kavo::cli
