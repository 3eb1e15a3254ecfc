// kavogps: the command-line tool of the KavoMobileGPS library.
#include <iostream>

#include "cli/commands.h"

int main(int argc, char** argv) {
  kavo::cli::Arguments args(argv + 1, argv + argc);
  const int code = kavo::cli::RunTool(args, std::cout, std::cerr);
  std::cout.flush();
  return code;
}
