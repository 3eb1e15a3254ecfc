#include "cli/simulate_command.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "cli/live_receiver.h"

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
         "  --encoding E       ascii, utf8, utf16le or utf16be (default ascii)\n"
         "  --output FILE      write a recording to FILE (default, or -: standard output)\n";
  if (LiveReceiverAvailable()) {
    out << "  --pty              act as a live receiver on a new pseudo-terminal until\n"
           "                     interrupted (or for --duration); prints the device path\n"
           "  --baud N           the live receiver's baud rate (default 4800); while the\n"
           "                     port is at another speed it sends garbage\n"
           "  --silent           the live receiver sends nothing\n";
  }
  out << "  -h, --help         show this help\n\n"
         "Exit status: 0 done, 1 failed while working, 2 bad command line.\n";
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
  static const std::pair<const char*, sim::System> kNames[] = {
      {"gps", sim::System::kGps}, {"glonass", sim::System::kGlonass},
      {"galileo", sim::System::kGalileo}, {"beidou", sim::System::kBeidou}};
  std::vector<sim::System> chosen;
  size_t start = 0;
  while (true) {
    const size_t comma = text.find(',', start);
    const std::string name = text.substr(start, comma == std::string::npos ? std::string::npos : comma - start);
    const auto known = std::find_if(std::begin(kNames), std::end(kNames),
                                    [&](const auto& entry) { return name == entry.first; });
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
  return ParseNumber(text.substr(0, comma), &start->latitude) &&
         ParseNumber(text.substr(comma + 1), &start->longitude);
}

}  // namespace

bool ParseSimulateArguments(const Arguments& args, SimulateSettings* s, std::string* error) {
  bool baudGiven = false, silentGiven = false, outputGiven = false, encodingGiven = false;
  for (size_t i = 0; i < args.size(); ++i) {
    std::string name = args[i];
    std::optional<std::string> inlineValue;
    const size_t equals = name.find('=');
    if (name.rfind("--", 0) == 0 && equals != std::string::npos) {
      inlineValue = name.substr(equals + 1);
      name.resize(equals);
    }
    // The option's value: after "=" or the next argument.
    auto value = [&](std::string* out) {
      if (inlineValue) {
        *out = *inlineValue;
        return true;
      }
      if (i + 1 >= args.size()) {
        *error = "option " + name + " needs a value";
        return false;
      }
      *out = args[++i];
      return true;
    };
    auto flag = [&](bool* target) {
      if (inlineValue) {
        *error = "option " + name + " takes no value";
        return false;
      }
      *target = true;
      return true;
    };
    auto invalid = [&](const std::string& text, const char* expected) {
      *error = "invalid value '" + text + "' for " + name + ": " + expected;
      return false;
    };

    std::string text;
    if (name == "-h" || name == "--help") {
      if (!flag(&s->help)) return false;
    } else if (name == "--seed") {
      if (!value(&text)) return false;
      if (!ParseUnsigned(text, &s->simulation.seed)) return invalid(text, "expected a whole number from 0 to 18446744073709551615");
    } else if (name == "--rate") {
      if (!value(&text)) return false;
      if (!ParseNumber(text, &s->simulation.rateHz) || s->simulation.rateHz < 1.0 / 60.0 - 1e-12 ||
          s->simulation.rateHz > 50.0)
        return invalid(text, "expected a number of epochs per second from 1/60 (0.0167) to 50");
    } else if (name == "--duration") {
      double seconds = 0;
      if (!value(&text)) return false;
      if (!ParseNumber(text, &seconds) || seconds <= 0.0 || seconds > kMaxDuration)
        return invalid(text, "expected a number of seconds above 0 and up to 86400");
      s->duration = seconds;
    } else if (name == "--mode") {
      if (!value(&text)) return false;
      if (text == "walk") s->simulation.mode = sim::Mode::kWalk;
      else if (text == "drive") s->simulation.mode = sim::Mode::kDrive;
      else return invalid(text, "expected walk or drive");
    } else if (name == "--start") {
      if (!value(&text)) return false;
      sim::Geodetic start = s->simulation.start;
      if (!ParseStart(text, &start) || std::fabs(start.latitude) > 85.0 || start.longitude < -180.0 ||
          start.longitude >= 180.0)
        return invalid(text, "expected LAT,LON in degrees, latitude within 85 of the equator, longitude from -180 to below 180");
      s->simulation.start = start;
    } else if (name == "--talkers") {
      if (!flag(&s->simulation.otherTalkers)) return false;
    } else if (name == "--constellations") {
      if (!value(&text)) return false;
      if (!ParseConstellations(text, &s->simulation.constellations))
        return invalid(text, "expected a list of gps, glonass, galileo, beidou, each at most once");
    } else if (name == "--bad-checksums") {
      if (!value(&text)) return false;
      if (!ParseNumber(text, &s->simulation.badChecksums) || s->simulation.badChecksums < 0.0 ||
          s->simulation.badChecksums > 1.0)
        return invalid(text, "expected a probability from 0 to 1");
    } else if (name == "--proprietary") {
      if (!flag(&s->simulation.proprietary)) return false;
    } else if (name == "--fix-loss") {
      if (!flag(&s->simulation.fixLoss)) return false;
    } else if (name == "--damage") {
      if (!value(&text)) return false;
      if (!ParseNumber(text, &s->simulation.damage) || s->simulation.damage < 0.0 || s->simulation.damage > 1.0)
        return invalid(text, "expected a probability from 0 to 1");
    } else if (name == "--encoding") {
      if (!value(&text)) return false;
      const auto encoding = sim::ParseEncoding(text);
      if (!encoding) return invalid(text, "expected ascii, utf8, utf16le or utf16be");
      s->encoding = *encoding;
      encodingGiven = true;
    } else if (name == "--output" || name == "-o") {
      if (!value(&s->output)) return false;
      if (s->output.empty()) return invalid(s->output, "expected a file name");
      outputGiven = true;
    } else if (LiveReceiverAvailable() && name == "--pty") {
      if (!flag(&s->live)) return false;
    } else if (LiveReceiverAvailable() && name == "--baud") {
      uint64_t baud = 0;
      if (!value(&text)) return false;
      if (!ParseUnsigned(text, &baud) || (baud != 1200 && baud != 2400 && baud != 4800 && baud != 9600 &&
                                          baud != 19200 && baud != 38400 && baud != 57600 && baud != 115200))
        return invalid(text, "expected 1200, 2400, 4800, 9600, 19200, 38400, 57600 or 115200");
      s->baud = static_cast<uint32_t>(baud);
      baudGiven = true;
    } else if (LiveReceiverAvailable() && name == "--silent") {
      if (!flag(&s->silent)) return false;
      silentGiven = true;
    } else if (!LiveReceiverAvailable() && (name == "--pty" || name == "--baud" || name == "--silent")) {
      *error = "option " + name + " is not available on this platform (it has no pseudo-terminals)";
      return false;
    } else {
      *error = (name.rfind('-', 0) == 0 ? "unknown option '" : "unexpected argument '") + name + "'";
      return false;
    }
  }
  if (s->help) return true;
  if (s->live && (outputGiven || encodingGiven)) {
    *error = std::string(outputGiven ? "--output" : "--encoding") +
             " is for recordings; a live receiver sends single-byte text on its port";
    return false;
  }
  if (!s->live && (baudGiven || silentGiven)) {
    *error = std::string(baudGiven ? "--baud" : "--silent") + " needs --pty";
    return false;
  }
  return true;
}

uint64_t WriteSimulation(const SimulateSettings& settings, std::ostream& out, uint64_t* lines,
                         uint64_t* damaged) {
  sim::Simulator simulator(settings.simulation);
  sim::RecordingWriter writer(out, settings.encoding);
  const uint64_t epochs = sim::EpochsFor(settings.simulation, settings.duration.value_or(kDefaultDuration));
  *lines = *damaged = 0;
  uint64_t written = 0;
  for (; written < epochs && writer.Good(); ++written) {
    const sim::Epoch epoch = simulator.Next();
    for (const sim::Line& line : epoch.lines) {
      writer.WriteLine(line.text);
      ++*lines;
      if (line.damage != sim::Damage::kNone) ++*damaged;
    }
  }
  return written;
}

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

  uint64_t lines = 0, damaged = 0;
  if (settings.output.empty() || settings.output == "-") {
    UseBinaryStandardOutput();
    WriteSimulation(settings, out, &lines, &damaged);
    out.flush();
    if (!out.good()) {
      err << "kavogps simulate: writing to standard output failed\n";
      return kExitFailure;
    }
    return kExitOk;
  }

  std::ofstream file(settings.output, std::ios::binary | std::ios::trunc);
  if (!file) {
    err << "kavogps simulate: cannot create '" << settings.output << "': " << std::strerror(errno) << '\n';
    return kExitFailure;
  }
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
    return kExitFailure;
  }
  out << "Wrote " << epochs << " epochs, " << lines << " lines (" << damaged << " damaged) to "
      << settings.output << " (" << sim::EncodingName(settings.encoding) << ")\n";
  return kExitOk;
}

}  // namespace kavo::cli
