#include "serve/outputs.h"

namespace kavo::serve {

bool Outputs::Open(const OutputOptions& options, asio::io_context& io, FeedFanOut& fanOut, std::ostream& err) {
  if (!options.nmeaSocket.empty()) {
    std::string why;
    nmea_ = OpenNmeaSocket(io, {options.nmeaSocket, options.nmeaSocketMode}, &why);
    if (!nmea_) {
      err << "kavogps serve: cannot listen on " << options.nmeaSocket << ": " << why << '\n';
      return false;
    }
    err << "kavogps serve: NMEA sentences on " << options.nmeaSocket << '\n';
    fanOut.Add(*nmea_);
  }
  for (const BrokerAddress& broker : options.mqtt) {
    mqtt_.push_back(
        std::make_unique<MqttPublisher>(MqttOptions{broker, options.mqttQos, options.mqttCaFile}, MakeBrokerLink, err));
    fanOut.Add(*mqtt_.back());
    mqtt_.back()->Start();
  }
  err.flush();
  return true;
}

void Outputs::Close() {
  for (auto& publisher : mqtt_) publisher->Stop();
  if (nmea_) nmea_->Close();
}

}  // namespace kavo::serve
