#include "serve/serve_command.h"

#include <system_error>
#include <thread>

#include <asio/io_context.hpp>

#include "commands/play_command.h"
#include "commands/port_commands.h"
#include "serve/server.h"
#include "session/bundled_data.h"
#include "session/option_reader.h"

namespace kavo::serve {
namespace {

using asio::ip::tcp;

void PrintHelp(std::ostream& out) {
  out << "Usage: kavogps serve [FILE [--interval MS] [--repeat] | --port PORT [--baud N]\n"
         "                     | --find] [--listen ADDR:PORT]...\n\n"
         "Shares a receiver with every program that reads a GPS daemon (cgps, gpspipe,\n"
         "xgps, Python's gps module, map applications): it plays FILE (without a\n"
         "source, the bundled recording "
      << cli::kDefaultRecording
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
      << cli::ReceiverOptionsHelp(20) << "  -h, --help        show this help\n\n"
      << cli::kExitCodeHelp;
}

std::string Shown(const tcp::endpoint& endpoint) {
  const std::string address = endpoint.address().to_string();
  return (endpoint.address().is_v6() ? "[" + address + "]" : address) + ":" + std::to_string(endpoint.port());
}

}  // namespace

bool ParseListenAddress(const std::string& text, tcp::endpoint* endpoint) {
  const size_t colon = text.rfind(':');
  if (colon == std::string::npos || colon + 1 == text.size()) return false;
  std::string host = text.substr(0, colon);
  if (host.size() >= 2 && host.front() == '[' && host.back() == ']')
    host = host.substr(1, host.size() - 2);
  else if (host.find(':') != std::string::npos)
    return false;  // an IPv6 address needs its brackets
  const std::string port = text.substr(colon + 1);
  if (port.size() > 5 || port.find_first_not_of("0123456789") != std::string::npos || std::stoul(port) > 65535)
    return false;
  std::error_code error;
  const asio::ip::address address = asio::ip::make_address(host == "localhost" ? "127.0.0.1" : host, error);
  if (error) return false;
  *endpoint = tcp::endpoint(address, static_cast<unsigned short>(std::stoul(port)));
  return true;
}

bool ParseServeArguments(const cli::Arguments& args, ServeSettings* s, std::string* error) {
  cli::OptionReader reader(args);
  bool ok = true, intervalGiven = false, repeatGiven = false, baudGiven = false;
  std::string listen;
  while (ok && reader.Next()) {
    const std::string& name = reader.Name();
    if (name == "-h" || name == "--help") {
      ok = reader.Flag(&s->help);
    } else if (name == "--interval") {
      ok = reader.Number(1, cli::kMaxIntervalMs, "milliseconds per line from 1 to 60000", &s->source.intervalMs);
      intervalGiven = true;
    } else if (name == "--repeat") {
      ok = reader.Flag(&s->source.repeat);
      repeatGiven = true;
    } else if (name == "--port") {
      ok = reader.Value(&s->source.port);
    } else if (name == "--baud") {
      ok = reader.Number(1, INT32_MAX, cli::kBaudRates, &s->source.baud);
      baudGiven = true;
    } else if (name == "--find") {
      ok = reader.Flag(&s->source.find);
    } else if (name == "--listen" && (ok = reader.Value(&listen))) {
      tcp::endpoint endpoint;
      if (!ParseListenAddress(listen, &endpoint)) {
        *error =
            "invalid value '" + listen + "' for --listen: expected ADDRESS:PORT, e.g. 127.0.0.1:2947 or [::1]:2947";
        return false;
      }
      s->listen.push_back(endpoint);
    } else if (cli::ReadReceiverOption(reader, &s->receiver, &ok)) {
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
  const int sources = !s->source.file.empty() + !s->source.port.empty() + s->source.find;
  if (sources > 1)
    *error = "name one source: a FILE, --port PORT or --find";
  else if ((intervalGiven || repeatGiven) && sources == 1 && s->source.file.empty())
    *error = "--interval and --repeat are for playing a FILE";
  else if (baudGiven && s->source.port.empty())
    *error = "--baud is for a port named with --port";
  else if (!s->source.port.empty() && cli::LibraryPortName(s->source.port).empty())
    *error = "the port name '" + s->source.port + "' is too long, even as the device it names";
  return error->empty();
}

int RunServe(const cli::Arguments& args, std::ostream& out, std::ostream& err) {
  ServeSettings settings;
  std::string error;
  if (!ParseServeArguments(args, &settings, &error)) {
    err << "kavogps serve: " << error << "\nRun 'kavogps serve --help' for the options.\n";
    return cli::kExitUsage;
  }
  if (settings.help) {
    PrintHelp(out);
    return cli::kExitOk;
  }
  SourceSpec& source = settings.source;
  if (source.port.empty() && !source.find) {
    if (source.file.empty()) source.file = cli::FindBundledFile(cli::kDefaultRecording).string();
    const std::string problem = source.file.empty() ? "no such file" : cli::RecordingProblem(source.file);
    if (!problem.empty()) {
      err << "kavogps serve: '" << (source.file.empty() ? cli::kDefaultRecording : source.file) << "': " << problem
          << '\n';
      return cli::kExitFile;
    }
  }
  if (!cli::ApplyReceiverSettings(settings.receiver)) {
    err << "kavogps serve: the talkers and checksums cannot be handed to the library\n";
    return cli::kExitFailure;
  }
  if (settings.listen.empty()) settings.listen.emplace_back(asio::ip::make_address("127.0.0.1"), kDefaultPort);

  cli::InterruptWatch interrupt;  // before any thread starts, so none takes the interruption
  asio::io_context io;
  Server server(io, {settings.listen}, DeviceState{});
  try {
    server.Open();
  } catch (const std::system_error& e) {
    err << "kavogps serve: " << e.what() << '\n';
    return cli::kExitFailure;
  }
  for (const tcp::endpoint& endpoint : server.Endpoints())
    err << "kavogps serve: listening on " << Shown(endpoint) << '\n';
  err.flush();
  std::thread network([&io] { io.run(); });
  const int code = DriverFeed(server, err).Run(source, interrupt);
  server.Close();
  network.join();
  out.flush();
  return code;
}

}  // namespace kavo::serve
