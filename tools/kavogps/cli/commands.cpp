#include "cli/commands.h"

#include "cli/simulate_command.h"

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
  out << "\nRun 'kavogps COMMAND --help' for the options of a command.\n";
}

}  // namespace

const std::vector<Command>& Commands() {
  static const std::vector<Command> commands = {
      {"simulate", "simulate a GPS receiver: NMEA recordings or a live port", RunSimulate},
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
  if (first == "--version" || first == "-V") {
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
