#include "commands/simulate_command.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "commands/live_receiver.h"
#include "session/option_reader.h"

namespace kavo::cli {
namespace {

void PrintHelp(std::ostream& out) {
  out << "Usage: kavogps simulate [OPTIONS]\n\n"
         "Simulates a GPS receiver on a walk or a drive and writes its NMEA 0183\n"
         "sentences (GGA, GSA, GSV, RMC, VTG); the same seed gives the same bytes.\n\n"
         "Options:\n"
         "  --seed N           random seed (default 1)\n"
         "  --rate HZ          epochs per second, 1/60 to 50 (default 1)\n"
         "  --duration S       seconds to simulate, up to 86400 (default 60)\n"
         "  --mode walk|drive  how the receiver travels (default walk)\n"
         "  --start LAT,LON    starting point in degrees (default 48.1173,11.5167)\n"
         "  --talkers          add other talkers: $GNGGA, $GNGSA, $GLGSV\n"
         "  --constellations L a modern receiver using the systems in L, of gps,\n"
         "                     glonass, galileo, beidou: position sentences from the\n"
         "                     system's talker (GN for several), one GSA per system,\n"
         "                     GSV per system and signal (GP, GL, GA, GB)\n"
         "  --proprietary      add proprietary sentences: $PGRME, $PGRMZ, $PSRFTXT\n"
         "  --fix-loss         lose the fix now and then (quality 0, RMC status V)\n"
         "  --damage P         damage each line with probability P, 0 to 1 (default 0)\n"
         "  --bad-checksums P  make a line's checksum wrong or leave it out, with\n"
         "                     probability P, 0 to 1 (default 0)\n"
         "  --binary P         send a binary message (a UBX frame holding NUL bytes,\n"
         "                     lone CR and LF, and \"$\") just before a line, with\n"
         "                     probability P, 0 to 1 (default 0), as survey and RTK\n"
         "                     modules mix their own protocol into NMEA\n"
         "  --encoding E       ascii, utf8, utf16le or utf16be (default ascii)\n"
         "  --output FILE      write a recording to FILE (default, or -: standard output)\n";
  if (LiveReceiverAvailable()) {
    out << "  --pty              act as a live receiver on a new pseudo-terminal until\n"
           "                     interrupted (or for --duration); prints the device path\n"
           "  --baud N           the live receiver's baud rate (default 4800); while the\n"
           "                     port is at another speed it sends garbage\n"
           "  --silent           the live receiver sends nothing\n";
  }
  out << "  -h, --help         show this help\n\n" << kExitCodeHelp;
}

bool ParseUnsigned(const std::string& text, uint64_t* value) {
  const char* end = text.data() + text.size();
  const auto result = std::from_chars(text.data(), end, *value);
  return !text.empty() && result.ec == std::errc() && result.ptr == end;
}

bool ParseNumber(const std::string& text, double* value) {
  const char* begin = text.data();
  if (!text.empty() && text[0] == '+') ++begin;
  const char* end = text.data() + text.size();
  const auto result = std::from_chars(begin, end, *value);
  return begin != end && result.ec == std::errc() && result.ptr == end && std::isfinite(*value);
}

bool ParseConstellations(const std::string& text, std::vector<sim::System>* systems) {
  static const std::pair<const char*, sim::System> kNames[] = {{"gps", sim::System::kGps},
                                                               {"glonass", sim::System::kGlonass},
                                                               {"galileo", sim::System::kGalileo},
                                                               {"beidou", sim::System::kBeidou}};
  std::vector<sim::System> chosen;
  size_t start = 0;
  while (true) {
    const size_t comma = text.find(',', start);
    const std::string name = text.substr(start, comma == std::string::npos ? std::string::npos : comma - start);
    const auto known =
        std::find_if(std::begin(kNames), std::end(kNames), [&](const auto& entry) { return name == entry.first; });
    if (known == std::end(kNames) || std::find(chosen.begin(), chosen.end(), known->second) != chosen.end())
      return false;
    chosen.push_back(known->second);
    if (comma == std::string::npos) break;
    start = comma + 1;
  }
  // Reported in one fixed order, whatever the order named.
  std::sort(chosen.begin(), chosen.end());
  *systems = chosen;
  return true;
}

bool ParseStart(const std::string& text, sim::Geodetic* start) {
  const size_t comma = text.find(',');
  if (comma == std::string::npos) return false;
  return ParseNumber(text.substr(0, comma), &start->latitude) && ParseNumber(text.substr(comma + 1), &start->longitude);
}

// Reads the current option's value and hands it to `parse`, which says
// whether it is one of the `expected` values.
template <typename Parse>
bool ReadValue(OptionReader& reader, const char* expected, Parse parse) {
  std::string text;
  if (!reader.Value(&text)) return false;
  return parse(text) || reader.Invalid(text, expected);
}

bool IsSerialSpeed(uint64_t baud) {
  for (uint64_t speed : {1200, 2400, 4800, 9600, 19200, 38400, 57600, 115200}) {
    if (baud == speed) return true;
  }
  return false;
}

// Which of the options that go only with a recording, or only with a live
// receiver, were given.
struct GivenOptions {
  bool baud = false, silent = false, output = false, encoding = false;
};

// The options of the simulated receiver's journey. Each Read...Option reads
// the option the reader stands on when it is one of its kind: true when it
// did (`*ok` false for a bad value, the reader holding why).
bool ReadJourneyOption(OptionReader& reader, SimulateSettings* s, bool* ok) {
  sim::SimulatorOptions& o = s->simulation;
  const std::string& name = reader.Name();
  if (name == "--seed") {
    *ok = ReadValue(reader, "a whole number from 0 to 18446744073709551615",
                    [&](const std::string& t) { return ParseUnsigned(t, &o.seed); });
  } else if (name == "--rate") {
    *ok = ReadValue(reader, "a number of epochs per second from 1/60 (0.0167) to 50", [&](const std::string& t) {
      return ParseNumber(t, &o.rateHz) && o.rateHz >= 1.0 / 60.0 - 1e-12 && o.rateHz <= 50.0;
    });
  } else if (name == "--duration") {
    *ok = ReadValue(reader, "a number of seconds above 0 and up to 86400", [&](const std::string& t) {
      double seconds = 0;
      if (!ParseNumber(t, &seconds) || seconds <= 0.0 || seconds > kMaxDuration) return false;
      s->duration = seconds;
      return true;
    });
  } else if (name == "--mode") {
    *ok = ReadValue(reader, "walk or drive", [&](const std::string& t) {
      if (t != "walk" && t != "drive") return false;
      o.mode = t == "walk" ? sim::Mode::kWalk : sim::Mode::kDrive;
      return true;
    });
  } else if (name == "--start") {
    *ok = ReadValue(reader, "LAT,LON in degrees, latitude within 85 of the equator, longitude from -180 to below 180",
                    [&](const std::string& t) {
                      sim::Geodetic start = o.start;
                      if (!ParseStart(t, &start) || std::fabs(start.latitude) > 85.0 || start.longitude < -180.0 ||
                          start.longitude >= 180.0)
                        return false;
                      o.start = start;
                      return true;
                    });
  } else {
    return false;
  }
  return true;
}

// The options of what the receiver sends.
bool ReadSentenceOption(OptionReader& reader, sim::SimulatorOptions* o, bool* ok) {
  const std::string& name = reader.Name();
  if (name == "--talkers") {
    *ok = reader.Flag(&o->otherTalkers);
  } else if (name == "--proprietary") {
    *ok = reader.Flag(&o->proprietary);
  } else if (name == "--fix-loss") {
    *ok = reader.Flag(&o->fixLoss);
  } else if (name == "--constellations") {
    *ok = ReadValue(reader, "a list of gps, glonass, galileo, beidou, each at most once",
                    [&](const std::string& t) { return ParseConstellations(t, &o->constellations); });
  } else if (name == "--bad-checksums") {
    *ok = ReadValue(reader, "a probability from 0 to 1", [&](const std::string& t) {
      return ParseNumber(t, &o->badChecksums) && o->badChecksums >= 0.0 && o->badChecksums <= 1.0;
    });
  } else if (name == "--binary") {
    *ok = ReadValue(reader, "a probability from 0 to 1", [&](const std::string& t) {
      return ParseNumber(t, &o->binaryMessages) && o->binaryMessages >= 0.0 && o->binaryMessages <= 1.0;
    });
  } else if (name == "--damage") {
    *ok = ReadValue(reader, "a probability from 0 to 1", [&](const std::string& t) {
      return ParseNumber(t, &o->damage) && o->damage >= 0.0 && o->damage <= 1.0;
    });
  } else {
    return false;
  }
  return true;
}

// The options of where it goes: a recording, or a live receiver.
bool ReadDestinationOption(OptionReader& reader, SimulateSettings* s, GivenOptions* given, bool* ok) {
  const std::string& name = reader.Name();
  const bool liveOption = name == "--pty" || name == "--baud" || name == "--silent";
  if (name == "--encoding") {
    *ok = given->encoding = ReadValue(reader, "ascii, utf8, utf16le or utf16be", [&](const std::string& t) {
      const auto encoding = sim::ParseEncoding(t);
      if (encoding) s->encoding = *encoding;
      return encoding.has_value();
    });
  } else if (name == "--output" || name == "-o") {
    *ok = given->output = reader.Value(&s->output);
  } else if (liveOption && !LiveReceiverAvailable()) {
    *ok = reader.Refuse("is not available on this platform (it has no pseudo-terminals)");
  } else if (name == "--pty") {
    *ok = reader.Flag(&s->live);
  } else if (name == "--baud") {
    *ok = given->baud =
        ReadValue(reader, "1200, 2400, 4800, 9600, 19200, 38400, 57600 or 115200", [&](const std::string& t) {
          uint64_t baud = 0;
          if (!ParseUnsigned(t, &baud) || !IsSerialSpeed(baud)) return false;
          s->baud = static_cast<uint32_t>(baud);
          return true;
        });
  } else if (name == "--silent") {
    *ok = given->silent = reader.Flag(&s->silent);
  } else {
    return false;
  }
  return true;
}

// Why the options given cannot go together; empty when they can.
std::string OptionsConflict(const SimulateSettings& s, const GivenOptions& given) {
  if (s.live && (given.output || given.encoding))
    return std::string(given.output ? "--output" : "--encoding") +
           " is for recordings; a live receiver sends single-byte text on its port";
  if (!s.live && (given.baud || given.silent)) return std::string(given.baud ? "--baud" : "--silent") + " needs --pty";
  return {};
}

}  // namespace

bool ParseSimulateArguments(const Arguments& args, SimulateSettings* s, std::string* error) {
  OptionReader reader(args);
  GivenOptions given;
  bool ok = true;
  while (ok && reader.Next()) {
    if (reader.Name() == "-h" || reader.Name() == "--help")
      ok = reader.Flag(&s->help);
    else if (!ReadJourneyOption(reader, s, &ok) && !ReadSentenceOption(reader, &s->simulation, &ok) &&
             !ReadDestinationOption(reader, s, &given, &ok))
      ok = reader.Unknown();
  }
  if (!ok) {
    *error = reader.Error();
    return false;
  }
  if (s->help) return true;
  *error = OptionsConflict(*s, given);
  return error->empty();
}

uint64_t WriteSimulation(const SimulateSettings& settings, std::ostream& out, uint64_t* lines, uint64_t* damaged) {
  sim::Simulator simulator(settings.simulation);
  sim::RecordingWriter writer(out, settings.encoding);
  const uint64_t epochs = sim::EpochsFor(settings.simulation, settings.duration.value_or(kDefaultDuration));
  *lines = *damaged = 0;
  uint64_t written = 0;
  for (; written < epochs && writer.Good(); ++written) {
    const sim::Epoch epoch = simulator.Next();
    for (const sim::Line& line : epoch.lines) {
      writer.WriteLine(line.binary + line.text);
      ++*lines;
      if (line.damage != sim::Damage::kNone) ++*damaged;
    }
  }
  return written;
}

namespace {

// Writes the recording to standard output; a reader that went away ends
// it quietly.
int WriteToStandardOutput(const SimulateSettings& settings, std::ostream& out, std::ostream& err) {
  uint64_t lines = 0, damaged = 0;
  UseBinaryStandardOutput();
  WriteSimulation(settings, out, &lines, &damaged);
  out.flush();
  if (!out.good() && OutputClosed(out)) return kExitOk;  // the reader stopped reading
  if (!out.good()) {
    err << "kavogps simulate: writing to standard output failed\n";
    return kExitFailure;
  }
  return kExitOk;
}

// Writes the recording to the file named, and says what it wrote.
int WriteToFile(const SimulateSettings& settings, std::ostream& out, std::ostream& err) {
  std::ofstream file(settings.output, std::ios::binary | std::ios::trunc);
  if (!file) {
    err << "kavogps simulate: cannot create '" << settings.output << "': " << std::strerror(errno) << '\n';
    return kExitFile;
  }
  uint64_t lines = 0, damaged = 0;
  const uint64_t epochs = WriteSimulation(settings, file, &lines, &damaged);
  file.close();
  if (file.fail()) {
    // A half-written recording is removed; a device or pipe named as the
    // output is of course left alone.
    std::error_code ignored;
    const bool regular = std::filesystem::is_regular_file(settings.output, ignored);
    if (regular) std::filesystem::remove(settings.output, ignored);
    err << "kavogps simulate: writing '" << settings.output << "' failed"
        << (regular ? "; the incomplete file was removed\n" : "\n");
    return kExitFile;
  }
  out << "Wrote " << epochs << " epochs, " << lines << " lines (" << damaged << " damaged) to " << settings.output
      << " (" << sim::EncodingName(settings.encoding) << ")\n";
  return kExitOk;
}

}  // namespace

int RunSimulate(const Arguments& args, std::ostream& out, std::ostream& err) {
  SimulateSettings settings;
  std::string error;
  if (!ParseSimulateArguments(args, &settings, &error)) {
    err << "kavogps simulate: " << error << "\nRun 'kavogps simulate --help' for the options.\n";
    return kExitUsage;
  }
  if (settings.help) {
    PrintHelp(out);
    return kExitOk;
  }
  const std::string problem = sim::ValidateOptions(settings.simulation);
  if (!problem.empty()) {
    err << "kavogps simulate: " << problem << '\n';
    return kExitUsage;
  }
  if (settings.live) return RunLiveReceiver(settings, out, err);
  if (settings.output.empty() || settings.output == "-") return WriteToStandardOutput(settings, out, err);
  return WriteToFile(settings, out, err);
}

}  // namespace kavo::cli
