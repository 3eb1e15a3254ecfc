// What play and monitor share around a driver session: the views chosen
// for the output, the optional GPX track, and the summary at the end.
#pragma once

#include <memory>
#include <ostream>
#include <string>

#include "session/driver_session.h"
#include "session/fix_track.h"
#include "session/gpx_writer.h"
#include "session/live_view.h"
#include "session/option_reader.h"
#include "session/receiver_settings.h"

namespace kavo::cli {

// The options play and monitor share: what they show, the track file, how
// the library reads the receiver.
struct OutputOptions {
  bool json = false;
  bool nmea = false;  // the sentences as received instead of decoded
  std::string gpx;    // empty: no track file
  ReceiverSettings receiver;
};
// Reads --json, --nmea, --gpx, --talkers or --checksums when the reader
// stands on one of them: true when it did (`*ok` false for a bad value).
bool ReadOutputOption(OptionReader& reader, OutputOptions* options, bool* ok);
// Reads what else play and monitor share where the reader stands: -h or
// --help, the output options, and the one plain argument (the recording or
// the port) into `*plain`. True when it did (`*ok` false for a bad value).
bool ReadSessionCommandOption(OptionReader& reader, bool* help, OutputOptions* options, std::string* plain, bool* ok);
// Why the options cannot go together; empty when they can.
std::string OutputOptionsConflict(const OutputOptions& options);
// Their help, descriptions starting at `column`.
std::string OutputOptionsHelp(size_t column);

struct OutputChoice {
  bool json = false;
  bool nmea = false;    // the sentences as received instead of decoded
  std::string gpxPath;  // empty: none
  std::string device;   // names the source in JSON
  std::string title;    // heads the live screen
};
// What `options` choose, for a source named `device`.
OutputChoice ChoiceOf(const OutputOptions& options, std::string device, std::string title);

class SessionOutput {
 public:
  // `out` is the tool's standard output; a live screen is drawn when it is
  // the process's terminal.
  SessionOutput(std::ostream& out, std::ostream& err, OutputChoice choice);

  // Creates the GPX file when one was asked for and hands `receiver` to
  // the library; when either fails, says so as `command` and returns the
  // exit code to end with, else kExitOk.
  int Prepare(const char* command, const ReceiverSettings& receiver);
  // Connects the views and the track to `session`.
  void Attach(DriverSession& session);
  // Completes the track file and prints the summary under `heading` (none
  // when `heading` is empty); false with a message when the track file
  // could not be written.
  bool Finish(const std::string& heading, std::string* error);
  // Ends the output of a session that ended with `end`: when the reader
  // went away, quietly, the track so far kept (kExitOk); when the output
  // failed, keeping nothing (kExitFailure); else with the summary under
  // `heading` and the track file completed, returning `code` (kExitFile
  // when the track file cannot be written). Messages name `command`.
  int FinishSession(SessionEnd end, const char* command, const std::string& heading, int code);
  // Removes a track file that will not be completed.
  void Abandon() { gpx_.Abandon(); }

 private:
  std::ostream& out_;
  std::ostream& err_;
  OutputChoice choice_;
  GpxWriter gpx_;
  FixTrack track_;
  std::unique_ptr<ReadingView> view_;
};

}  // namespace kavo::cli
