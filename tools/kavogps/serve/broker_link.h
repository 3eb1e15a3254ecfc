// What the MQTT publisher asks of a client library: one connection to one
// broker for one receiver, used by the publisher's thread alone, and none
// of its calls waits on the network.
#pragma once

#include <cstddef>
#include <memory>
#include <string>

#include "serve/broker_address.h"
#include "serve/publish_queue.h"

namespace kavo::serve {

class BrokerLink {
 public:
  enum class State { kDown, kConnecting, kUp };

  virtual ~BrokerLink() = default;
  // Starts connecting; on connecting the link publishes `online` to the
  // status topic, and leaves `offline` there as its last will. False, with
  // `*why`, when it cannot even start (no such host).
  virtual bool Connect(std::string* why) = 0;
  // Does the network work that is due; the state after it, with `*why`
  // when it fell to kDown.
  virtual State Service(std::string* why) = 0;
  // Hands a message to the connection; false when it is not up.
  virtual bool Publish(const MqttMessage& message) = 0;
  // Messages handed over and not yet written (QoS 0) or acknowledged (1).
  virtual size_t Unsent() const = 0;
  // Publishes `offline` and says goodbye, waiting briefly for both to go.
  virtual void Close() = 0;
};

struct BrokerLinkSettings {
  BrokerAddress broker;
  int qos = 0;
  std::string caFile;       // for mqtts; empty: the system's certificates
  std::string statusTopic;  // `online` and the last will's `offline`
};

// Whether this build has an MQTT client library; without one MakeBrokerLink
// gives nothing.
bool MqttBuiltIn();
std::unique_ptr<BrokerLink> MakeBrokerLink(const BrokerLinkSettings& settings);

}  // namespace kavo::serve
