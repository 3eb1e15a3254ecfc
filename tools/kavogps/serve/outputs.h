// The outputs of `kavogps serve` beside its TCP server: MQTT brokers and a
// Unix socket of raw sentences, as the command line names them.
#pragma once

#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include <asio/io_context.hpp>

#include "serve/feed_fan_out.h"
#include "serve/mqtt_publisher.h"
#include "serve/nmea_socket.h"
#include "serve/output_options.h"

namespace kavo::serve {

class Outputs {
 public:
  // Opens every output on `options` and adds it to `fanOut`; false, with a
  // line on `err`, when one cannot be opened. The NMEA socket runs on `io`.
  bool Open(const OutputOptions& options, asio::io_context& io, FeedFanOut& fanOut, std::ostream& err);
  // Ends them (before `io` stops): the brokers get `offline`, the socket
  // file goes.
  void Close();

 private:
  std::vector<std::unique_ptr<MqttPublisher>> mqtt_;
  std::unique_ptr<NmeaSocketOutput> nmea_;
};

}  // namespace kavo::serve
