// What the command line asks of the outputs beside the TCP server; apart
// from them, so that the command line needs no network headers.
#pragma once

#include <string>
#include <vector>

#include "serve/broker_address.h"

namespace kavo::serve {

struct OutputOptions {
  std::vector<BrokerAddress> mqtt;
  int mqttQos = 0;
  std::string mqttCaFile;
  std::string nmeaSocket;  // empty: none
  unsigned nmeaSocketMode = 0660;
};

}  // namespace kavo::serve
