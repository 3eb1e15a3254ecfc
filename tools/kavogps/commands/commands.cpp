#include "commands/commands.h"

#include <algorithm>

#include "commands/find_command.h"
#include "commands/monitor_command.h"
#include "commands/play_command.h"
#include "commands/ports_command.h"
#include "commands/serve_command.h"
#include "commands/simulate_command.h"

namespace kavo::cli {
namespace {

void PrintUsage(std::ostream& out) {
  out << "Usage: kavogps COMMAND [OPTIONS]\n"
         "       kavogps --help | --version\n\n"
         "Commands:\n";
  for (const Command& command : Commands()) {
    std::string name = command.name;
    name.resize(12, ' ');
    out << "  " << name << command.summary << '\n';
  }
  out << "\nRun 'kavogps COMMAND --help' for the options of a command; every command\n"
         "also takes --version.\n\n"
      << kExitCodeHelp;
}

}  // namespace

const std::vector<Command>& Commands() {
  static const std::vector<Command> commands = {
      {"play", "play a recorded NMEA file and show what the library decodes", RunPlay},
      {"ports", "list the serial ports with their settings", RunPorts},
      {"find", "search the serial ports for a GPS receiver", RunFind},
      {"monitor", "show what a GPS receiver on a port sends", RunMonitor},
      {"simulate", "simulate a GPS receiver: NMEA recordings or a live port", RunSimulate},
      {"serve", "share a receiver with GPS clients over the GPS daemon protocol", RunServe},
  };
  return commands;
}

int RunTool(const Arguments& args, std::ostream& out, std::ostream& err) {
  if (args.empty()) {
    PrintUsage(err);
    return kExitUsage;
  }
  const std::string& first = args.front();
  if (first == "--help" || first == "-h" || first == "help") {
    PrintUsage(out);
    return kExitOk;
  }
  const auto isVersion = [](const std::string& arg) { return arg == "--version" || arg == "-V"; };
  const bool known =
      std::any_of(Commands().begin(), Commands().end(), [&](const Command& command) { return first == command.name; });
  if (isVersion(first) || (known && std::any_of(args.begin() + 1, args.end(), isVersion))) {
    out << "kavogps " << KAVOGPS_VERSION << '\n';
    return kExitOk;
  }
  for (const Command& command : Commands())
    if (first == command.name) return command.run(Arguments(args.begin() + 1, args.end()), out, err);
  err << "kavogps: unknown " << (first.rfind('-', 0) == 0 ? "option" : "command") << " '" << first
      << "'; run 'kavogps --help' for the list of commands\n";
  return kExitUsage;
}

}  // namespace kavo::cli
