#include "commands/serve_command.h"

#include <charconv>
#include <fstream>

#include "serve/broker_link.h"
#include "serve/nmea_socket.h"
#include "serve/service.h"
#include "serve/time_outputs.h"
#include "session/bundled_data.h"
#include "session/driver_session.h"
#include "session/option_reader.h"
#include "session/recording_file.h"
#include "session/serial_ports.h"

namespace kavo::cli {
namespace {

std::string MqttHelp() {
  if (!serve::MqttBuiltIn())
    return "  --mqtt URL        publish to an MQTT broker: not in this build, which was made\n"
           "                    without libmosquitto\n";
  return "  --mqtt URL        publish to an MQTT broker, URL being\n"
         "                    mqtt://[USER[:PASSWORD]@]HOST[:PORT]/PREFIX (port 1883), or\n"
         "                    mqtts://... for TLS (port 8883); may be given more than once.\n"
         "                    Topics: PREFIX/DEVICE/tpv each epoch and PREFIX/DEVICE/sky when\n"
         "                    the sky changed (the daemon's JSON, both retained), and\n"
         "                    PREFIX/DEVICE/status: online, or offline once serve is gone.\n"
         "                    DEVICE is the last part of the receiver's path with every\n"
         "                    character but letters, digits, '-', '_' and '.' made '_':\n"
         "                    /dev/ttyUSB0 gives ttyUSB0, COM4 gives COM4. A broker that is\n"
         "                    away is tried again after 1 s, 2 s, 4 s... up to a minute;\n"
         "                    meanwhile the newest 256 messages per receiver wait\n"
         "  --mqtt-qos N      0 (default), or 1 for messages the broker acknowledges\n"
         "  --mqtt-cafile FILE  the certificate authorities that vouch for an mqtts://\n"
         "                    broker (default: the system's)\n";
}

std::string NmeaSocketHelp() {
  if (!serve::NmeaSocketSupported()) return "  --nmea-socket PATH  a Unix socket of raw sentences: not on Windows\n";
  return "  --nmea-socket PATH  a Unix socket where each client gets the raw NMEA sentences\n"
         "                    (GeoClue's nmea-socket setting); a socket file left by an\n"
         "                    earlier run is replaced, and the file goes at exit\n"
         "  --nmea-socket-mode MODE  the socket file's permissions, in octal (default 0660)\n";
}

void PrintHelp(std::ostream& out) {
  out << "Usage: kavogps serve [SOURCE [SOURCE OPTIONS]]... [--listen ADDR:PORT]...\n"
         "                     [--mqtt URL]... [--nmea-socket PATH]\n"
         "  SOURCE: FILE | --port PORT | --find\n\n"
         "Shares receivers with every program that reads a GPS daemon (cgps, gpspipe,\n"
         "xgps, Python's gps module, map applications): it plays each FILE (without a\n"
         "source, the bundled recording "
      << kDefaultRecording
      << "), reads the receiver on each PORT, or\n"
         "on the port a search finds, and answers the daemon protocol on TCP; each\n"
         "receiver's reports carry its name as their device. A port that cannot be\n"
         "opened, or fails, is tried again once a second, without disturbing the\n"
         "others; at the end of a recording its last fix stays. A client too slow for\n"
         "the reports loses its oldest ones. A receiver's time can also go to chronyd\n"
         "or ntpd. Started by a service manager with listening sockets (socket\n"
         "activation: LISTEN_FDS), it serves on those instead of the default address.\n\n"
         "Options (those of a source go with the source named before them):\n"
         "  --interval MS     milliseconds per line of FILE, 1 to 60000 (default 100)\n"
         "  --repeat          start FILE again at its end\n"
         "  --port PORT       a receiver's port, e.g. COM3 or /dev/ttyUSB0\n"
         "  --baud N          the port's speed (default 4800)\n"
         "  --find            search the serial ports for a receiver\n"
         "  --chrony-sock PATH  send the time of each fix to chronyd's SOCK refclock\n"
         "                    at PATH (not on Windows)\n"
         "  --ntp-shm UNIT    write the time of each fix to NTP shared memory UNIT,\n"
         "                    0 to 255, for chronyd's SHM refclock or ntpd's driver 28\n"
         "                    (not on Windows)\n"
         "  --listen ADDR:PORT  where to listen, e.g. 0.0.0.0:2947 or [::1]:2947;\n"
         "                    may be given more than once (default 127.0.0.1:2947)\n"
      << MqttHelp() << NmeaSocketHelp() << ReceiverOptionsHelp(20) << "  -h, --help        show this help\n\n"
      << kExitCodeHelp;
}

}  // namespace

namespace {

// Which of the options that go only with one kind of source were given.
struct GivenOptions {
  bool interval = false, repeat = false, baud = false;
};

// A source as the command line names it, with the options it was given.
struct NamedSource {
  serve::SourceSpec spec;
  GivenOptions given;
  bool Named() const { return !spec.file.empty() || !spec.port.empty() || spec.find; }
};

// The source that a source's name starts: the one whose options came
// before any source was named, else a new one.
serve::SourceSpec& StartSource(std::vector<NamedSource>* sources) {
  if (sources->empty() || sources->back().Named()) sources->emplace_back();
  return sources->back().spec;
}

// Reads an option of a source when the reader stands on one: true when it
// did (`*ok` false for a bad value, the reader holding why). Options go
// with the source named last.
bool ReadSourceOption(OptionReader& reader, std::vector<NamedSource>* sources, bool* ok) {
  if (sources->empty()) sources->emplace_back();
  serve::SourceSpec* source = &sources->back().spec;
  GivenOptions* given = &sources->back().given;
  const std::string& name = reader.Name();
  if (name == "--interval") {
    *ok = reader.Number(1, kMaxIntervalMs, "milliseconds per line from 1 to 60000", &source->intervalMs);
    given->interval = true;
  } else if (name == "--repeat") {
    *ok = reader.Flag(&source->repeat);
    given->repeat = true;
  } else if (name == "--port") {
    *ok = reader.Value(&StartSource(sources).port);
  } else if (name == "--baud") {
    *ok = reader.Number(1, INT32_MAX, kBaudRates, &source->baud);
    given->baud = true;
  } else if (name == "--find") {
    *ok = reader.Flag(&StartSource(sources).find);
  } else if (name == "--chrony-sock") {
    *ok = serve::TimeOutputsAvailable() ? reader.Value(&source->chronySock)
                                        : reader.Refuse("is not available on Windows: it needs chronyd");
  } else if (name == "--ntp-shm") {
    int64_t unit = 0;
    *ok = serve::TimeOutputsAvailable() ? reader.Number(0, serve::kMaxNtpShmUnit, "a unit from 0 to 255", &unit)
                                        : reader.Refuse("is not available on Windows: it needs System V shared memory");
    if (*ok) source->ntpShmUnit = static_cast<int>(unit);
  } else {
    return false;
  }
  return true;
}

// Reads an option of the outputs beside the TCP server, as
// ReadSourceOption does.
bool ReadOutputOption(OptionReader& reader, serve::OutputOptions* outputs, bool* ok) {
  const std::string& name = reader.Name();
  std::string text;
  if (name == "--mqtt") {
    if (!(*ok = reader.Value(&text))) return true;
    std::string why;
    const std::optional<serve::BrokerAddress> broker = serve::ParseBrokerUrl(text, &why);
    if (!serve::MqttBuiltIn()) {
      *ok = reader.Refuse("is not in this build, which was made without libmosquitto");
    } else if (!broker) {
      *ok = reader.Invalid(text, ("mqtt://[USER[:PASSWORD]@]HOST[:PORT]/PREFIX (" + why + ")").c_str());
    } else {
      outputs->mqtt.push_back(*broker);
    }
  } else if (name == "--mqtt-qos") {
    int64_t qos = 0;
    *ok = reader.Number(0, 1, "0 or 1", &qos);
    outputs->mqttQos = static_cast<int>(qos);
  } else if (name == "--mqtt-cafile") {
    *ok = reader.Value(&outputs->mqttCaFile);
  } else if (name == "--nmea-socket") {
    *ok = reader.Value(&outputs->nmeaSocket);
    if (*ok && !serve::NmeaSocketSupported()) *ok = reader.Refuse("is for Unix systems; not available on Windows");
  } else if (name == "--nmea-socket-mode") {
    if (!(*ok = reader.Value(&text))) return true;
    const char* end = text.data() + text.size();
    const auto [last, error] = std::from_chars(text.data(), end, outputs->nmeaSocketMode, 8);
    if (text.empty() || error != std::errc() || last != end || outputs->nmeaSocketMode > 0777)
      *ok = reader.Invalid(text, "permissions in octal, such as 0660 or 666");
  } else {
    return false;
  }
  return true;
}

// Why a source's options cannot go together; empty when they can.
std::string SourceConflict(const NamedSource& named) {
  const serve::SourceSpec& source = named.spec;
  if ((named.given.interval || named.given.repeat) && named.Named() && source.file.empty())
    return "--interval and --repeat are for playing a FILE";
  if (named.given.baud && source.port.empty()) return "--baud is for a port named with --port";
  if (!source.port.empty() && LibraryPortName(source.port).empty())
    return "the port name '" + source.port + "' is too long, even as the device it names";
  return {};
}

// Why the sources cannot be served together; empty when they can.
std::string SourcesConflict(const std::vector<NamedSource>& sources) {
  if (sources.size() > kMaxSessions)
    return "at most " + std::to_string(kMaxSessions) + " receivers can be served at once";
  for (size_t i = 0; i < sources.size(); ++i) {
    const std::string conflict = SourceConflict(sources[i]);
    if (!conflict.empty()) return conflict;
    const serve::SourceSpec& a = sources[i].spec;
    for (size_t j = 0; j < i; ++j) {
      const serve::SourceSpec& b = sources[j].spec;
      const std::string path = serve::NamedDevice(a).path;
      if (!path.empty() && path == serve::NamedDevice(b).path) return "'" + path + "' is named twice";
      if (!a.chronySock.empty() && a.chronySock == b.chronySock)
        return "two receivers cannot share the chronyd socket " + a.chronySock;
      if (a.ntpShmUnit >= 0 && a.ntpShmUnit == b.ntpShmUnit)
        return "two receivers cannot share NTP shared-memory unit " + std::to_string(a.ntpShmUnit);
    }
  }
  return {};
}

}  // namespace

bool ParseServeArguments(const Arguments& args, ServeSettings* s, std::string* error) {
  OptionReader reader(args);
  std::vector<NamedSource> sources;
  bool ok = true;
  std::string listen;
  while (ok && reader.Next()) {
    const std::string& name = reader.Name();
    if (name == "-h" || name == "--help") {
      ok = reader.Flag(&s->help);
    } else if (name == "--listen" && (ok = reader.Value(&listen))) {
      const std::optional<serve::ListenAddress> address = serve::ParseListenAddress(listen);
      if (!address) {
        *error =
            "invalid value '" + listen + "' for --listen: expected ADDRESS:PORT, e.g. 127.0.0.1:2947 or [::1]:2947";
        return false;
      }
      s->listen.push_back(*address);
    } else if (ReadSourceOption(reader, &sources, &ok) || ReadOutputOption(reader, &s->outputs, &ok) ||
               ReadReceiverOption(reader, &s->receiver, &ok)) {
    } else if (!reader.IsOption()) {
      StartSource(&sources).file = name;
    } else {
      ok = reader.Unknown();
    }
  }
  if (!ok) {
    *error = reader.Error();
    return false;
  }
  *error = SourcesConflict(sources);
  for (const NamedSource& source : sources) s->sources.push_back(source.spec);
  if (s->sources.empty()) s->sources.emplace_back();
  if (error->empty() && s->outputs.mqtt.empty() && (s->outputs.mqttQos != 0 || !s->outputs.mqttCaFile.empty()))
    *error = "--mqtt-qos and --mqtt-cafile are for publishing with --mqtt";
  return error->empty();
}

int RunServe(const Arguments& args, std::ostream& out, std::ostream& err) {
  ServeSettings settings;
  std::string error;
  if (!ParseServeArguments(args, &settings, &error)) {
    err << "kavogps serve: " << error << "\nRun 'kavogps serve --help' for the options.\n";
    return kExitUsage;
  }
  if (settings.help) {
    PrintHelp(out);
    return kExitOk;
  }
  for (serve::SourceSpec& source : settings.sources) {
    if (!source.port.empty() || source.find) continue;
    if (source.file.empty()) source.file = FindBundledFile(kDefaultRecording).string();
    const std::string problem = source.file.empty() ? "no such file" : RecordingProblem(source.file);
    if (!problem.empty()) {
      err << "kavogps serve: '" << (source.file.empty() ? kDefaultRecording : source.file) << "': " << problem << '\n';
      return kExitFile;
    }
  }
  const std::string& caFile = settings.outputs.mqttCaFile;
  if (!caFile.empty() && !std::ifstream(caFile)) {
    err << "kavogps serve: '" << caFile << "': cannot be read\n";
    return kExitFile;
  }
  if (!ApplyReceiverSettings(settings.receiver)) {
    err << "kavogps serve: the talkers and checksums cannot be handed to the library\n";
    return kExitFailure;
  }
  InterruptWatch interrupt;  // before any thread starts, so none takes the interruption
  const int code = serve::ServeReceiver(settings.sources, settings.listen, settings.outputs, err, interrupt);
  out.flush();
  return code;
}

}  // namespace kavo::cli
