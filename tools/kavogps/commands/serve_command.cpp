#include "commands/serve_command.h"

#include <charconv>
#include <fstream>

#include "serve/broker_link.h"
#include "serve/nmea_socket.h"
#include "serve/service.h"
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
  out << "Usage: kavogps serve [FILE [--interval MS] [--repeat] | --port PORT [--baud N]\n"
         "                     | --find] [--listen ADDR:PORT]... [--mqtt URL]...\n"
         "                     [--nmea-socket PATH]\n\n"
         "Shares a receiver with every program that reads a GPS daemon (cgps, gpspipe,\n"
         "xgps, Python's gps module, map applications): it plays FILE (without a\n"
         "source, the bundled recording "
      << kDefaultRecording
      << "), reads the receiver on PORT, or on the\n"
         "port a search finds, and answers the daemon protocol on TCP. A port that\n"
         "cannot be opened, or fails, is tried again once a second; at the end of a\n"
         "recording its last fix stays. A client too slow for the reports loses its\n"
         "oldest ones.\n\n"
         "Options:\n"
         "  --interval MS     milliseconds per line of FILE, 1 to 60000 (default 100)\n"
         "  --repeat          start FILE again at its end\n"
         "  --port PORT       the receiver's port, e.g. COM3 or /dev/ttyUSB0\n"
         "  --baud N          the port's speed (default 4800)\n"
         "  --find            search the serial ports for the receiver\n"
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

// Reads an option of the source when the reader stands on one: true when
// it did (`*ok` false for a bad value, the reader holding why).
bool ReadSourceOption(OptionReader& reader, serve::SourceSpec* source, GivenOptions* given, bool* ok) {
  const std::string& name = reader.Name();
  if (name == "--interval") {
    *ok = reader.Number(1, kMaxIntervalMs, "milliseconds per line from 1 to 60000", &source->intervalMs);
    given->interval = true;
  } else if (name == "--repeat") {
    *ok = reader.Flag(&source->repeat);
    given->repeat = true;
  } else if (name == "--port") {
    *ok = reader.Value(&source->port);
  } else if (name == "--baud") {
    *ok = reader.Number(1, INT32_MAX, kBaudRates, &source->baud);
    given->baud = true;
  } else if (name == "--find") {
    *ok = reader.Flag(&source->find);
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

// Why the source options cannot go together; empty when they can.
std::string SourceConflict(const serve::SourceSpec& source, const GivenOptions& given) {
  const int sources = !source.file.empty() + !source.port.empty() + source.find;
  if (sources > 1) return "name one source: a FILE, --port PORT or --find";
  if ((given.interval || given.repeat) && sources == 1 && source.file.empty())
    return "--interval and --repeat are for playing a FILE";
  if (given.baud && source.port.empty()) return "--baud is for a port named with --port";
  if (!source.port.empty() && LibraryPortName(source.port).empty())
    return "the port name '" + source.port + "' is too long, even as the device it names";
  return {};
}

}  // namespace

bool ParseServeArguments(const Arguments& args, ServeSettings* s, std::string* error) {
  OptionReader reader(args);
  GivenOptions given;
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
    } else if (ReadSourceOption(reader, &s->source, &given, &ok) || ReadOutputOption(reader, &s->outputs, &ok) ||
               ReadReceiverOption(reader, &s->receiver, &ok)) {
    } else if (!reader.IsOption() && s->source.file.empty()) {
      s->source.file = name;
    } else {
      ok = reader.Unknown();
    }
  }
  if (!ok) {
    *error = reader.Error();
    return false;
  }
  *error = SourceConflict(s->source, given);
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
  serve::SourceSpec& source = settings.source;
  if (source.port.empty() && !source.find) {
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
  const int code = serve::ServeReceiver(source, settings.listen, settings.outputs, err, interrupt);
  out.flush();
  return code;
}

}  // namespace kavo::cli
