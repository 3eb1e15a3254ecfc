// The broker link through libmosquitto, without its thread: the
// publisher's thread drives the connection with mosquitto_loop, never
// waiting in it, and owns the reconnection schedule itself.
#include <cerrno>
#include <mutex>
#include <system_error>

#include <mosquitto.h>

#include "serve/broker_link.h"

namespace kavo::serve {
namespace {

constexpr int kKeepAliveSeconds = 30;
constexpr char kOnline[] = "online";
constexpr char kOffline[] = "offline";

// Without the library's full stop, for a line that goes on.
std::string Unstopped(std::string text) {
  if (!text.empty() && text.back() == '.') text.pop_back();
  return text;
}

std::string ErrorText(int code) {
  if (code == MOSQ_ERR_ERRNO) return std::generic_category().message(errno);
  return Unstopped(mosquitto_strerror(code));
}

class MosquittoLink : public BrokerLink {
 public:
  explicit MosquittoLink(BrokerLinkSettings settings) : settings_(std::move(settings)) {
    static std::once_flag initialised;
    std::call_once(initialised, [] { mosquitto_lib_init(); });  // never cleaned up: other links may outlive any one
    mosq_ = mosquitto_new(nullptr, true, this);
  }
  ~MosquittoLink() override {
    if (mosq_) mosquitto_destroy(mosq_);
  }

  bool Connect(std::string* why) override {
    if (!mosq_) {
      *why = "out of memory";
      return false;
    }
    if (!configured_) {
      const int code = Configure();
      if (code != MOSQ_ERR_SUCCESS) {
        *why = ErrorText(code);
        return false;
      }
      configured_ = true;
    }
    state_ = State::kConnecting;
    const int code = started_ ? mosquitto_reconnect_async(mosq_)
                              : mosquitto_connect_async(mosq_, settings_.broker.host.c_str(), settings_.broker.port,
                                                        kKeepAliveSeconds);
    started_ = true;
    if (code == MOSQ_ERR_SUCCESS) return true;
    state_ = State::kDown;
    *why = ErrorText(code);
    return false;
  }

  State Service(std::string* why) override {
    if (state_ == State::kDown) return state_;
    const int code = mosquitto_loop(mosq_, 0, 1);
    if (code != MOSQ_ERR_SUCCESS && state_ != State::kDown) Lost(ErrorText(code));
    if (state_ == State::kDown) *why = why_;
    return state_;
  }

  bool Publish(const MqttMessage& message) override {
    if (state_ != State::kUp) return false;
    ++handedOver_;  // before the call: a QoS 0 message may be written, and counted, inside it
    const int code = mosquitto_publish(mosq_, nullptr, message.topic.c_str(), static_cast<int>(message.payload.size()),
                                       message.payload.data(), settings_.qos, message.retain);
    if (code == MOSQ_ERR_SUCCESS) return true;
    --handedOver_;
    return false;
  }

  size_t Unsent() const override { return handedOver_ > gone_ ? handedOver_ - gone_ : 0; }

  void Close() override {
    if (state_ != State::kUp) return;
    Status(kOffline);
    mosquitto_disconnect(mosq_);
    for (int turn = 0; turn < 20 && state_ != State::kDown; ++turn)
      if (mosquitto_loop(mosq_, 50, 1) != MOSQ_ERR_SUCCESS) break;
    state_ = State::kDown;
  }

 private:
  int Configure() {
    const BrokerAddress& broker = settings_.broker;
    mosquitto_connect_callback_set(
        mosq_, [](mosquitto*, void* link, int code) { static_cast<MosquittoLink*>(link)->OnConnect(code); });
    mosquitto_disconnect_callback_set(mosq_, [](mosquitto*, void* link, int code) {
      static_cast<MosquittoLink*>(link)->Lost(code == 0 ? "disconnected" : ErrorText(code));
    });
    mosquitto_publish_callback_set(mosq_,
                                   [](mosquitto*, void* link, int) { ++static_cast<MosquittoLink*>(link)->gone_; });
    int code =
        mosquitto_will_set(mosq_, settings_.statusTopic.c_str(), sizeof kOffline - 1, kOffline, settings_.qos, true);
    if (code == MOSQ_ERR_SUCCESS && !broker.user.empty())
      code = mosquitto_username_pw_set(mosq_, broker.user.c_str(), broker.password.c_str());
    // The system's certificates turn TLS on by themselves; a CA file is named through tls_set.
    if (code == MOSQ_ERR_SUCCESS && broker.tls)
      code = settings_.caFile.empty()
                 ? mosquitto_int_option(mosq_, MOSQ_OPT_TLS_USE_OS_CERTS, 1)
                 : mosquitto_tls_set(mosq_, settings_.caFile.c_str(), nullptr, nullptr, nullptr, nullptr);
    return code;
  }

  void OnConnect(int code) {
    if (code != 0) return Lost(Unstopped(mosquitto_connack_string(code)));
    state_ = State::kUp;
    Status(kOnline);
  }

  // Messages queued in the library when the connection went are gone at
  // QoS 0; at QoS 1 the library sends them again on reconnecting.
  void Lost(std::string why) {
    if (state_ == State::kDown) return;
    state_ = State::kDown;
    why_ = std::move(why);
    if (settings_.qos == 0) gone_ = handedOver_;
  }

  void Status(const char* text) { Publish({settings_.statusTopic, text, true}); }

  BrokerLinkSettings settings_;
  mosquitto* mosq_ = nullptr;
  bool configured_ = false, started_ = false;
  State state_ = State::kDown;
  std::string why_;
  size_t handedOver_ = 0, gone_ = 0;
};

}  // namespace

bool MqttBuiltIn() { return true; }

std::unique_ptr<BrokerLink> MakeBrokerLink(const BrokerLinkSettings& settings) {
  return std::make_unique<MosquittoLink>(settings);
}

}  // namespace kavo::serve
