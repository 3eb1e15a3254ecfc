// kavogps: the command-line tool of the KavoMobileGPS library.
#include <iostream>

#include "commands/commands.h"
#include "session/console.h"

int main(int argc, char** argv) {
  kavo::cli::SurviveClosedOutput();
  kavo::cli::Arguments args(argv + 1, argv + argc);
  const int code = kavo::cli::RunTool(args, std::cout, std::cerr);
  if (std::cout.flush()) return code;
  if (kavo::cli::StandardOutputClosed()) return kavo::cli::kExitOk;  // the reader stopped reading
  std::cerr << "kavogps: writing the output failed\n";
  return code == kavo::cli::kExitOk ? kavo::cli::kExitFailure : code;
}
