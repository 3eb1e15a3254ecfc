#include "commands/play_command.h"

#include <filesystem>

#include "session/bundled_data.h"
#include "session/console.h"
#include "session/gps_library.h"
#include "session/open_session.h"
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
    if (name == "--interval")
      ok = reader.Number(1, kMaxIntervalMs, "milliseconds per line from 1 to 60000", &s->intervalMs);
    else if (name == "--repeat")
      ok = reader.Flag(&s->repeat);
    else if (!ReadSessionCommandOption(reader, &s->help, &s->output, &s->file, &ok))
      ok = reader.Unknown();
  }
  *error = ok ? OutputOptionsConflict(s->output) : reader.Error();
  return ok && error->empty();
}

namespace {

// The recording to play: the one named, else the bundled one; empty, with
// the reason said, when it cannot be played.
std::string RecordingToPlay(const std::string& named, std::ostream& err) {
  const std::string file = named.empty() ? FindBundledFile(kDefaultRecording).string() : named;
  if (file.empty()) {
    err << "kavogps play: the bundled recording " << kDefaultRecording << " was not found (looked in " << FolderList()
        << "); name a recording to play\n";
    return {};
  }
  const std::string problem = RecordingProblem(file);
  if (problem.empty()) return file;
  err << "kavogps play: '" << (named.empty() ? file : named) << "': " << problem << '\n';
  return {};
}

// What is wrong with a recording whose session leaves nothing worth
// keeping, as it follows the recording's name: its source failed, or it
// held no sentence the library read; empty when the session was fine.
std::string NothingToKeep(SessionEnd end, const DriverSession& session, const std::string& file,
                          const PlaySettings& settings) {
  if (end == SessionEnd::kSourceFailed) return ": reading it failed while playing it";
  if (end == SessionEnd::kInterrupted || end == SessionEnd::kOutputFailed || session.SentencesSeen() > 0) return {};
  const std::string hint = TalkersHint(TalkersInFile(file), settings.output.receiver);
  return " holds no NMEA sentence the library recognises" + (hint.empty() ? "" : ": " + hint);
}

// Plays `file`, named `shown` in messages, with its output prepared.
int Play(const PlaySettings& settings, const std::string& file, const std::string& shown, SessionOutput& output,
         std::ostream& err) {
  InterruptWatch interrupt;  // before the library starts any thread
  OpenedSession opened;
  uint32_t code = 0;
  if (!OpenSession({file, settings.intervalMs, settings.repeat}, false, &opened, &code)) {
    err << "kavogps play: the library could not open '" << shown << "' (error " << code << ")\n";
    output.Abandon();
    return kExitFile;
  }
  DriverSession& session = *opened.session;
  output.Attach(session);
  if (!session.Start(&code)) {
    err << "kavogps play: the library could not start playing '" << shown << "' (error " << code << ")\n";
    output.Abandon();
    return kExitFailure;
  }
  const SessionEnd end = session.Run(interrupt);
  const std::string problem = NothingToKeep(end, session, file, settings);
  if (!problem.empty()) {
    output.Abandon();  // no track file is left behind
    err << "kavogps play: '" << shown << "'" << problem << '\n';
    return kExitFile;
  }
  return output.FinishSession(end, "play", end == SessionEnd::kInterrupted ? "Interrupted." : "End of recording.",
                              kExitOk);
}

}  // namespace

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
  const std::string file = RecordingToPlay(settings.file, err);
  if (file.empty()) return kExitFile;
  const std::string shown = settings.file.empty() ? file : settings.file;
  SessionOutput output(out, err,
                       ChoiceOf(settings.output, shown,
                                "kavogps play " + shown + "  (" + std::to_string(settings.intervalMs) + " ms per line" +
                                    (settings.repeat ? ", repeating" : "") + "; Ctrl+C stops)"));
  if (const int code = output.Prepare("play", settings.output.receiver)) return code;
  return Play(settings, file, shown, output, err);
}

}  // namespace kavo::cli
