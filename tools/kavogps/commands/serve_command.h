// `kavogps serve`: shares receivers (recordings, ports, the port a search
// finds) with every program that speaks the GPS daemon protocol, and their
// time with chronyd or ntpd.
#pragma once

#include <ostream>
#include <string>
#include <vector>

#include "serve/driver_feed.h"
#include "serve/listen_address.h"
#include "serve/output_options.h"
#include "session/command_line.h"
#include "session/receiver_settings.h"

namespace kavo::cli {

struct ServeSettings {
  std::vector<serve::SourceSpec> sources;    // in the order named; one without a source plays the bundled recording
  std::vector<serve::ListenAddress> listen;  // empty: the default
  serve::OutputOptions outputs;
  bool help = false;
  ReceiverSettings receiver;
};

bool ParseServeArguments(const Arguments& args, ServeSettings* settings, std::string* error);

int RunServe(const Arguments& args, std::ostream& out, std::ostream& err);

}  // namespace kavo::cli
