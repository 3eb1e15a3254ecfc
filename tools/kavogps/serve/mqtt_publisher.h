// `serve --mqtt`: publishes each receiver's reports to an MQTT broker,
// under PREFIX/DEVICE/: `tpv` once per epoch and `sky` when it changed
// (both retained, so that a late subscriber starts with the latest), and
// `status`, `online` while connected and `offline` as the last will. Each
// receiver gets a connection of its own, since a will names one topic.
//
// The feed's calls only queue (a bounded queue per receiver; the oldest
// go, counted) and wake the publisher's thread, which connects, publishes
// and reconnects after a growing wait. A broker that is away costs one
// line on standard error, and another when it is back.
#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <ostream>
#include <string>
#include <thread>

#include "serve/broker_link.h"
#include "serve/feed.h"
#include "serve/publish_queue.h"
#include "serve/reconnect_backoff.h"

namespace kavo::serve {

struct MqttOptions {
  BrokerAddress broker;
  int qos = 0;
  std::string caFile;
  size_t queueLength = 256;  // messages per receiver waiting for the broker
  size_t unsentLength = 16;  // messages per receiver inside the client library
};

class MqttPublisher : public FeedSink {
 public:
  using Clock = std::chrono::steady_clock;
  // Makes the link for one receiver (the real one: MakeBrokerLink).
  using LinkMaker = std::function<std::unique_ptr<BrokerLink>(const BrokerLinkSettings&)>;

  MqttPublisher(MqttOptions options, LinkMaker makeLink, std::ostream& err);
  ~MqttPublisher() override;

  // Starts the publisher's thread.
  void Start();
  // Publishes what is queued where the broker is there, says `offline`,
  // and ends the thread; says on `err` how many messages were dropped.
  void Stop();

  void Epoch(const std::string& device, std::string tpv, std::string sky) override;
  bool WantsNmea() const override { return false; }
  void Nmea(const std::string&, std::string) override {}
  void Device(DeviceState state) override;

  // One turn of the thread's work at `now`: connects, publishes and
  // reconnects as due. When the next turn is due at the latest.
  Clock::time_point Turn(Clock::time_point now);
  uint64_t Dropped() const;

 private:
  // One receiver's connection. The queue is the feed's and the thread's,
  // under the lock; the rest is the thread's alone.
  struct Route {
    Route(std::string device, const std::string& prefix, size_t queueLength);
    std::string device, tpvTopic, skyTopic, statusTopic;
    PublishQueue queue;
    uint64_t refused = 0;  // by a connection going as they were handed over; under the lock too
    std::unique_ptr<BrokerLink> link;
    BrokerLink::State state = BrokerLink::State::kDown;
    ReconnectBackoff backoff;
    Clock::time_point nextAttempt{};
    bool everUp = false, complained = false;
  };

  Route& RouteFor(const std::string& device);  // with the lock held
  Clock::time_point TurnRoute(Route& route, Clock::time_point now);
  void Complain(Route& route, const std::string& why);
  void PublishQueued(Route& route);
  void Loop();
  void Finish();

  MqttOptions options_;
  LinkMaker makeLink_;
  std::ostream& err_;
  mutable std::mutex mutex_;
  std::condition_variable wake_;
  bool woken_ = false, stopping_ = false;
  std::map<std::string, std::unique_ptr<Route>> routes_;  // never shrinks: the thread holds on to its routes
  std::thread thread_;
};

}  // namespace kavo::serve
