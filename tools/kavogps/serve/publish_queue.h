// The messages waiting for one broker connection, bounded in number: when
// the broker is away or slower than the receiver, the oldest go, counted,
// so that what reaches it when it is back is current.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <string>

namespace kavo::serve {

struct MqttMessage {
  std::string topic, payload;
  bool retain = false;
};

class PublishQueue {
 public:
  explicit PublishQueue(size_t maxMessages) : maxMessages_(maxMessages) {}

  void Push(MqttMessage message) {
    messages_.push_back(std::move(message));
    while (messages_.size() > maxMessages_) {
      messages_.pop_front();
      ++dropped_;
    }
  }
  // The oldest message; false when there is none.
  bool Pop(MqttMessage* message) {
    if (messages_.empty()) return false;
    *message = std::move(messages_.front());
    messages_.pop_front();
    return true;
  }
  bool Empty() const { return messages_.empty(); }
  uint64_t Dropped() const { return dropped_; }

 private:
  size_t maxMessages_;
  uint64_t dropped_ = 0;
  std::deque<MqttMessage> messages_;
};

}  // namespace kavo::serve
