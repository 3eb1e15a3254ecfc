#include "session/session_output.h"

#include <iostream>

#include "session/command_line.h"
#include "session/console.h"

namespace kavo::cli {

bool ReadOutputOption(OptionReader& reader, OutputOptions* options, bool* ok) {
  const std::string& name = reader.Name();
  if (name == "--json")
    *ok = reader.Flag(&options->json);
  else if (name == "--nmea")
    *ok = reader.Flag(&options->nmea);
  else if (name == "--gpx")
    *ok = reader.Value(&options->gpx);
  else
    return ReadReceiverOption(reader, &options->receiver, ok);
  return true;
}

bool ReadSessionCommandOption(OptionReader& reader, bool* help, OutputOptions* options, std::string* plain, bool* ok) {
  if (reader.Name() == "-h" || reader.Name() == "--help")
    *ok = reader.Flag(help);
  else if (ReadOutputOption(reader, options, ok))
    return true;
  else if (!reader.IsOption() && plain->empty())
    *plain = reader.Name();
  else
    return false;
  return true;
}

OutputChoice ChoiceOf(const OutputOptions& options, std::string device, std::string title) {
  return {options.json, options.nmea, options.gpx, std::move(device), std::move(title)};
}

std::string OutputOptionsConflict(const OutputOptions& options) {
  return options.json && options.nmea ? "--json and --nmea are two kinds of output: choose one" : "";
}

std::string OutputOptionsHelp(size_t column) {
  const std::string indent(column, ' ');
  const auto option = [&](const std::string& name) {
    std::string head = "  " + name;
    head.resize(column, ' ');
    return head;
  };
  return option("--json") + "write JSON lines instead: a TPV object per epoch and a SKY\n" + indent +
         "object when the sky changes, as a GPS daemon's clients read\n" + indent +
         "them (the summary goes to standard error)\n" + option("--nmea") +
         "write the sentences as received instead (the summary goes to\n" + indent + "standard error)\n" +
         option("--gpx FILE") + "also write the track of fixes to FILE as GPX 1.1\n" + ReceiverOptionsHelp(column);
}

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

int SessionOutput::Prepare(const char* command, const ReceiverSettings& receiver) {
  std::string error;
  if (!choice_.gpxPath.empty() && !gpx_.Open(choice_.gpxPath, choice_.device, &error)) {
    err_ << "kavogps " << command << ": " << error << '\n';
    return kExitFile;
  }
  if (ApplyReceiverSettings(receiver)) return kExitOk;
  err_ << "kavogps " << command << ": the talkers and checksums cannot be handed to the library\n";
  gpx_.Abandon();
  return kExitFailure;
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

int SessionOutput::FinishSession(SessionEnd end, const char* command, const std::string& heading, int code) {
  std::string error;
  if (end == SessionEnd::kOutputFailed && OutputClosed(out_)) {
    Finish("", &error);  // the track so far is kept
    return kExitOk;
  }
  if (end == SessionEnd::kOutputFailed) {
    Abandon();
    err_ << "kavogps " << command << ": writing the output failed\n";
    return kExitFailure;
  }
  if (Finish(heading, &error)) return code;
  err_ << "kavogps " << command << ": " << error << '\n';
  return kExitFile;
}

}  // namespace kavo::cli
