#include "serve/mqtt_publisher.h"

#include <algorithm>
#include <vector>

#include "serve/mqtt_topics.h"

namespace kavo::serve {
namespace {

// How often a connection is looked after: often while it connects or has
// messages in flight, else for its keep-alive and to notice a broker gone.
constexpr std::chrono::milliseconds kServiceEvery{250};
constexpr std::chrono::milliseconds kBusyEvery{20};
// How long Stop waits for what is queued to reach a broker that is there.
constexpr std::chrono::milliseconds kFlushFor{1000};

}  // namespace

MqttPublisher::Route::Route(std::string name, const std::string& prefix, size_t queueLength)
    : device(std::move(name)),
      tpvTopic(DeviceTopic(prefix, device, "tpv")),
      skyTopic(DeviceTopic(prefix, device, "sky")),
      statusTopic(DeviceTopic(prefix, device, "status")),
      queue(queueLength) {}

MqttPublisher::MqttPublisher(MqttOptions options, LinkMaker makeLink, std::ostream& err)
    : options_(std::move(options)), makeLink_(std::move(makeLink)), err_(err) {}

MqttPublisher::~MqttPublisher() { Stop(); }

void MqttPublisher::Start() {
  thread_ = std::thread([this] { Loop(); });
}

void MqttPublisher::Stop() {
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    stopping_ = true;
  }
  wake_.notify_one();
  if (thread_.joinable()) thread_.join();
}

MqttPublisher::Route& MqttPublisher::RouteFor(const std::string& device) {
  std::unique_ptr<Route>& route = routes_[device];
  if (!route) route = std::make_unique<Route>(device, options_.broker.prefix, options_.queueLength);
  return *route;
}

void MqttPublisher::Epoch(const std::string& device, std::string tpv, std::string sky) {
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    Route& route = RouteFor(device);
    route.queue.Push({route.tpvTopic, std::move(tpv), true});
    if (!sky.empty()) route.queue.Push({route.skyTopic, std::move(sky), true});
    woken_ = true;
  }
  wake_.notify_one();
}

// A receiver named connects before its first epoch, so that its status
// says `online` while it is being looked for.
void MqttPublisher::Device(DeviceState state) {
  if (state.path.empty()) return;  // a port a search has not found yet
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    RouteFor(state.path);
    woken_ = true;
  }
  wake_.notify_one();
}

uint64_t MqttPublisher::Dropped() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  uint64_t dropped = 0;
  for (const auto& entry : routes_) dropped += entry.second->queue.Dropped() + entry.second->refused;
  return dropped;
}

MqttPublisher::Clock::time_point MqttPublisher::Turn(Clock::time_point now) {
  std::vector<Route*> routes;
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    for (auto& entry : routes_) routes.push_back(entry.second.get());
  }
  Clock::time_point next = now + kServiceEvery;
  for (Route* route : routes) next = std::min(next, TurnRoute(*route, now));
  return next;
}

MqttPublisher::Clock::time_point MqttPublisher::TurnRoute(Route& route, Clock::time_point now) {
  using State = BrokerLink::State;
  if (!route.link) route.link = makeLink_({options_.broker, options_.qos, options_.caFile, route.statusTopic});
  if (!route.link) return Clock::time_point::max();
  std::string why;
  if (route.state != State::kDown) {
    const State was = route.state;
    route.state = route.link->Service(&why);
    if (route.state == State::kDown) {
      Complain(route, why);
      route.nextAttempt = now + route.backoff.Next();
    } else if (route.state == State::kUp && was != State::kUp) {
      route.backoff.Reset();
      if (route.complained || !route.everUp)
        err_ << "kavogps serve: " << (route.everUp ? "the MQTT broker is back; publishing " : "publishing ")
             << route.device << " to " << Shown(options_.broker) << "/" << DeviceTopicLevel(route.device) << "/\n"
             << std::flush;
      route.everUp = true;
      route.complained = false;
    }
  }
  if (route.state == State::kDown) {
    if (now < route.nextAttempt) return route.nextAttempt;
    if (!route.link->Connect(&why)) {
      Complain(route, why);
      route.nextAttempt = now + route.backoff.Next();
      return route.nextAttempt;
    }
    route.state = State::kConnecting;
    return now + kBusyEvery;
  }
  if (route.state == State::kUp) PublishQueued(route);
  return now + (route.state == State::kUp && route.link->Unsent() == 0 ? kServiceEvery : kBusyEvery);
}

// One line for a broker that cannot be reached, however many attempts fail.
void MqttPublisher::Complain(Route& route, const std::string& why) {
  if (route.complained) return;
  route.complained = true;
  err_ << "kavogps serve: MQTT broker " << Shown(options_.broker) << " (" << route.device << "): " << why
       << "; trying again, less and less often\n"
       << std::flush;
}

// Hands the library what it may hold; the rest waits in the queue.
void MqttPublisher::PublishQueued(Route& route) {
  while (route.link->Unsent() < options_.unsentLength) {
    MqttMessage message;
    {
      const std::lock_guard<std::mutex> lock(mutex_);
      if (!route.queue.Pop(&message)) return;
    }
    if (!route.link->Publish(message)) {  // the connection just went: the message is lost with it
      const std::lock_guard<std::mutex> lock(mutex_);
      ++route.refused;
      return;
    }
  }
}

void MqttPublisher::Loop() {
  std::unique_lock<std::mutex> lock(mutex_);
  while (!stopping_) {
    lock.unlock();
    const Clock::time_point next = Turn(Clock::now());
    lock.lock();
    wake_.wait_until(lock, next, [this] { return woken_ || stopping_; });
    woken_ = false;
  }
  lock.unlock();
  Finish();
}

void MqttPublisher::Finish() {
  const Clock::time_point until = Clock::now() + kFlushFor;
  std::vector<Route*> routes;
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    for (auto& entry : routes_) routes.push_back(entry.second.get());
  }
  for (Route* route : routes) {
    if (!route->link || route->state != BrokerLink::State::kUp) continue;
    std::string why;
    while (Clock::now() < until) {
      PublishQueued(*route);
      bool queued;
      {
        const std::lock_guard<std::mutex> lock(mutex_);
        queued = !route->queue.Empty();
      }
      if (!queued && route->link->Unsent() == 0) break;
      if (route->link->Service(&why) != BrokerLink::State::kUp) break;
      std::this_thread::sleep_for(kBusyEvery);
    }
    route->link->Close();
  }
  const uint64_t dropped = Dropped();
  if (dropped > 0)
    err_ << "kavogps serve: " << dropped << " MQTT messages dropped while the broker was away or too slow\n"
         << std::flush;
}

}  // namespace kavo::serve
