// `kavogps simulate`: writes a simulated receiver's NMEA output to a
// recording or standard output, or acts as a live receiver on a
// pseudo-terminal where the platform has them.
#pragma once

#include <optional>
#include <string>

#include "commands/commands.h"
#include "sim/recording.h"
#include "sim/simulator.h"

namespace kavo::cli {

struct SimulateSettings {
  sim::SimulatorOptions simulation;
  std::optional<double> duration;  // seconds; a recording's default is kDefaultDuration
  sim::Encoding encoding = sim::Encoding::kAscii;
  std::string output;  // empty: standard output
  bool live = false;   // --pty
  uint32_t baud = 4800;
  bool silent = false;
  bool help = false;
};

constexpr double kDefaultDuration = 60.0;
constexpr double kMaxDuration = 86400.0;

// Reads the command line of `simulate`; false with a message for the user.
bool ParseSimulateArguments(const Arguments& args, SimulateSettings* settings, std::string* error);

// Writes the recording `settings` describe to `out`; returns the number of
// epochs written (the stream's state tells whether writing succeeded).
uint64_t WriteSimulation(const SimulateSettings& settings, std::ostream& out, uint64_t* lines, uint64_t* damaged);

int RunSimulate(const Arguments& args, std::ostream& out, std::ostream& err);

}  // namespace kavo::cli
