#include "commands/play_command.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <vector>

#include "session/bundled_data.h"
#include "session/gps_library.h"
#include "session/option_reader.h"
#include "session/recording_file.h"
#include "session/session_output.h"

namespace kavo::cli {
namespace {

namespace fs = std::filesystem;

void PrintHelp(std::ostream& out) {
  out << "Usage: kavogps play [FILE] [OPTIONS]\n\n"
         "Plays a recorded NMEA file through the library, one line per interval, as if\n"
         "a receiver were attached, and shows what it decodes: on a terminal a screen\n"
         "updated in place, otherwise one line per epoch. Without FILE it plays the\n"
         "bundled recording "
      << kDefaultRecording
      << ".\nAt the end of the recording it stops and prints the number of fixes, the\n"
         "distance travelled and the time they span.\n\n"
         "Options:\n"
         "  --interval MS   milliseconds per line, 1 to 60000 (default 100: a receiver\n"
         "                  sending 7 lines a second plays a little faster than real\n"
         "                  time)\n"
         "  --repeat        start again at the end, until interrupted (Ctrl+C)\n"
      << OutputOptionsHelp(18) << "  -h, --help      show this help\n\n"
      << kExitCodeHelp;
}

std::string FolderList() {
  std::string list;
  for (const fs::path& folder : BundledDataFolders()) list += (list.empty() ? "" : ", ") + folder.string();
  return list;
}

}  // namespace

bool ParsePlayArguments(const Arguments& args, PlaySettings* s, std::string* error) {
  OptionReader reader(args);
  bool ok = true;
  while (ok && reader.Next()) {
    const std::string& name = reader.Name();
    if (name == "-h" || name == "--help")
      ok = reader.Flag(&s->help);
    else if (name == "--interval")
      ok = reader.Number(1, kMaxIntervalMs, "milliseconds per line from 1 to 60000", &s->intervalMs);
    else if (name == "--repeat")
      ok = reader.Flag(&s->repeat);
    else if (ReadOutputOption(reader, &s->output, &ok))
      continue;
    else if (!reader.IsOption() && s->file.empty())
      s->file = name;
    else
      ok = reader.Unknown();
  }
  *error = ok ? OutputOptionsConflict(s->output) : reader.Error();
  return ok && error->empty();
}

int RunPlay(const Arguments& args, std::ostream& out, std::ostream& err) {
  PlaySettings settings;
  std::string error;
  if (!ParsePlayArguments(args, &settings, &error)) {
    err << "kavogps play: " << error << "\nRun 'kavogps play --help' for the options.\n";
    return kExitUsage;
  }
  if (settings.help) {
    PrintHelp(out);
    return kExitOk;
  }

  fs::path file = settings.file;
  if (file.empty()) {
    file = FindBundledFile(kDefaultRecording);
    if (file.empty()) {
      err << "kavogps play: the bundled recording " << kDefaultRecording << " was not found (looked in " << FolderList()
          << "); name a recording to play\n";
      return kExitFile;
    }
  }
  const std::string shown = settings.file.empty() ? file.string() : settings.file;
  const std::string problem = RecordingProblem(file.string());
  if (!problem.empty()) {
    err << "kavogps play: '" << shown << "': " << problem << '\n';
    return kExitFile;
  }

  SessionOutput output(out, err,
                       {settings.output.json, settings.output.nmea, settings.output.gpx, shown,
                        "kavogps play " + shown + "  (" + std::to_string(settings.intervalMs) + " ms per line" +
                            (settings.repeat ? ", repeating" : "") + "; Ctrl+C stops)"});
  if (const int code = output.Prepare("play", settings.output.receiver)) return code;
  InterruptWatch interrupt;  // before the library starts any thread
  const LibraryText path = ToLibraryText(file.string());
  const DriverPtr driver(GPSDriver_CreateFromFile(path.c_str(), static_cast<int32_t>(settings.intervalMs),
                                                  settings.repeat ? 1 : 0, SessionStatusCallback(),
                                                  SessionDataCallback(), SessionSentenceCallback()));
  if (!driver) {
    err << "kavogps play: the library could not open '" << shown << "' (error " << KavoMobileGPS_GetLastError()
        << ")\n";
    output.Abandon();
    return kExitFile;
  }
  const SessionOptions options = PlaybackOptions(settings.intervalMs, settings.repeat);
  GPSDriver_SetTimeoutInterval(driver.get(), static_cast<int32_t>(options.endTimeoutMs));
  DriverSession session(driver.get(), options);
  output.Attach(session);
  uint32_t code = 0;
  if (!session.Start(&code)) {
    err << "kavogps play: the library could not start playing '" << shown << "' (error " << code << ")\n";
    output.Abandon();
    return kExitFailure;
  }
  const SessionEnd end = session.Run(interrupt);

  if (end == SessionEnd::kOutputFailed && OutputClosed(out)) {
    output.Finish("", &error);  // the track so far is kept
    return kExitOk;
  }
  if (end == SessionEnd::kOutputFailed) {
    output.Abandon();
    err << "kavogps play: writing the output failed\n";
    return kExitFailure;
  }
  const bool interrupted = end == SessionEnd::kInterrupted;
  if (end == SessionEnd::kSourceFailed || (!interrupted && session.SentencesSeen() == 0)) {
    // Nothing trustworthy to keep: no track file is left behind.
    output.Abandon();
    if (end == SessionEnd::kSourceFailed) {
      err << "kavogps play: '" << shown << "': reading it failed while playing it\n";
      return kExitFile;
    }
    const std::string hint = TalkersHint(TalkersInFile(file.string()), settings.output.receiver);
    err << "kavogps play: '" << shown << "' holds no NMEA sentence the library recognises"
        << (hint.empty() ? "" : ": " + hint) << '\n';
    return kExitFile;
  }
  if (!output.Finish(interrupted ? "Interrupted." : "End of recording.", &error)) {
    err << "kavogps play: " << error << '\n';
    return kExitFile;
  }
  return kExitOk;
}

}  // namespace kavo::cli
