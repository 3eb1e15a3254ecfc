// The MQTT publisher's reconnection schedule, queue and topics, against a
// broker link the test plays, at times the test chooses.
#include "serve/mqtt_publisher.h"

#include <gtest/gtest.h>

#include <sstream>
#include <vector>

#include "serve/mqtt_topics.h"

namespace kavo::serve {
namespace {

using namespace std::chrono_literals;
using Clock = MqttPublisher::Clock;

// A broker the test takes away and brings back.
struct FakeBroker {
  bool reachable = false, up = false;
  size_t unsent = 0;                      // what the client library claims to hold
  std::vector<Clock::duration> attempts;  // since the start
  std::vector<MqttMessage> published;
  std::string statusTopic;
};

class FakeLink : public BrokerLink {
 public:
  FakeLink(FakeBroker& broker, const Clock::time_point& now, Clock::time_point start)
      : broker_(broker), now_(now), start_(start) {}
  bool Connect(std::string* why) override {
    broker_.attempts.push_back(now_ - start_);
    broker_.up = broker_.reachable;
    if (!broker_.up) *why = "Connection refused";
    return broker_.up;
  }
  State Service(std::string* why) override {
    if (broker_.up && !broker_.reachable) {
      broker_.up = false;
      *why = "The connection was lost.";
    }
    return broker_.up ? State::kUp : State::kDown;
  }
  bool Publish(const MqttMessage& message) override {
    if (broker_.up) broker_.published.push_back(message);
    return broker_.up;
  }
  size_t Unsent() const override { return broker_.unsent; }
  void Close() override {}

 private:
  FakeBroker& broker_;
  const Clock::time_point& now_;
  Clock::time_point start_;
};

class MqttPublisherTest : public ::testing::Test {
 protected:
  MqttPublisherTest()
      : publisher_(
            {{"broker.example", 1883, false, "", "", "fleet/van7"}, 0, "", 8, 4},
            [this](const BrokerLinkSettings& settings) {
              broker_.statusTopic = settings.statusTopic;
              return std::make_unique<FakeLink>(broker_, now_, start_);
            },
            err_) {}
  // Turns as the publisher's thread would, every 100 ms of the test's clock.
  void RunUntil(Clock::duration until) {
    for (; now_ - start_ < until; now_ += 100ms) publisher_.Turn(now_);
  }
  void Epochs(int count) {
    for (int i = 0; i < count; ++i) publisher_.Epoch("/dev/ttyUSB0", "tpv" + std::to_string(epoch_++), "");
  }
  size_t Lines() const {
    const std::string text = err_.str();
    return std::count(text.begin(), text.end(), '\n');
  }

  const Clock::time_point start_ = Clock::now();
  Clock::time_point now_ = start_;
  FakeBroker broker_;
  std::ostringstream err_;
  MqttPublisher publisher_;
  int epoch_ = 0;
};

// A broker away at the start is tried after 1, 2, 4, 8... s, with one line
// said however often it fails; what waits meanwhile is the newest, and it
// goes out in order once the broker is there.
TEST_F(MqttPublisherTest, BrokerAwayIsTriedLessOftenAndGetsTheNewestOnceBack) {
  DeviceState device;
  device.path = "/dev/ttyUSB0";
  publisher_.Device(device);
  Epochs(11);
  RunUntil(20s);
  EXPECT_EQ(broker_.attempts, (std::vector<Clock::duration>{0s, 1s, 3s, 7s, 15s}));
  EXPECT_EQ(Lines(), 1u) << err_.str();
  EXPECT_NE(err_.str().find("mqtt://broker.example:1883/fleet/van7 (/dev/ttyUSB0): Connection refused"),
            std::string::npos)
      << err_.str();
  EXPECT_EQ(broker_.statusTopic, "fleet/van7/ttyUSB0/status");

  broker_.reachable = true;
  RunUntil(32s);
  ASSERT_EQ(broker_.attempts.back(), 31s);
  EXPECT_EQ(publisher_.Dropped(), 3u);
  ASSERT_EQ(broker_.published.size(), 8u);
  for (int i = 0; i < 8; ++i) {
    EXPECT_EQ(broker_.published[i].topic, "fleet/van7/ttyUSB0/tpv");
    EXPECT_EQ(broker_.published[i].payload, "tpv" + std::to_string(3 + i));
    EXPECT_TRUE(broker_.published[i].retain);
  }
  EXPECT_EQ(Lines(), 2u) << err_.str();

  // Lost again: the waits start from a second again.
  broker_.reachable = false;
  RunUntil(40s);
  broker_.reachable = true;
  RunUntil(50s);
  EXPECT_EQ(broker_.attempts.size(), 10u);  // lost at 32 s: tried at 33, 35, 39 and 47 s
  EXPECT_EQ(broker_.attempts[6], 33s);
  EXPECT_EQ(Lines(), 4u) << err_.str();
}

// What the client library holds is bounded too: the rest waits in the
// queue, and a sky goes right after its epoch's TPV.
TEST_F(MqttPublisherTest, LibraryHoldsAtMostItsShareAndSkyFollowsItsTpv) {
  broker_.reachable = true;
  broker_.unsent = 4;
  publisher_.Epoch("COM4:", "tpv", "sky");
  RunUntil(1s);
  EXPECT_TRUE(broker_.published.empty());
  broker_.unsent = 0;
  RunUntil(2s);
  ASSERT_EQ(broker_.published.size(), 2u);
  EXPECT_EQ(broker_.published[1].topic, "fleet/van7/COM4/sky");
  EXPECT_EQ(broker_.published[1].payload, "sky");
}

TEST(MqttNames, BrokerUrlsAndDeviceTopicLevels) {
  std::string why;
  auto broker = ParseBrokerUrl("mqtt://van%407:p%3Ass@[::1]:1884/fleet/vans/", &why);
  ASSERT_TRUE(broker) << why;
  EXPECT_EQ(broker->host, "::1");
  EXPECT_EQ(broker->port, 1884);
  EXPECT_EQ(broker->user, "van@7");
  EXPECT_EQ(broker->password, "p:ss");
  EXPECT_EQ(broker->prefix, "fleet/vans");
  EXPECT_EQ(Shown(*broker), "mqtt://van@7@[::1]:1884/fleet/vans");
  broker = ParseBrokerUrl("mqtts://broker.example", &why);
  ASSERT_TRUE(broker) << why;
  EXPECT_TRUE(broker->tls);
  EXPECT_EQ(broker->port, 8883);
  EXPECT_EQ(broker->prefix, "kavogps");
  for (const char* bad : {"http://host/x", "mqtt:///x", "mqtt://host:/x", "mqtt://host:65536/x", "mqtt://[::1/x",
                          "mqtt://host/a/+/b", "mqtt://host//x", "mqtt://u%4@host/x", "mqtt://:pw@host/x"})
    EXPECT_FALSE(ParseBrokerUrl(bad, &why)) << bad;

  EXPECT_EQ(DeviceTopicLevel("/dev/ttyUSB0"), "ttyUSB0");
  EXPECT_EQ(DeviceTopicLevel("com4:"), "com4");
  EXPECT_EQ(DeviceTopicLevel("/dev/serial/by-id/usb-u-blox_AG_7-if00"), "usb-u-blox_AG_7-if00");
  EXPECT_EQ(DeviceTopicLevel("C:\\tracks\\walk #2+.nmea"), "walk__2_.nmea");
  EXPECT_EQ(DeviceTopicLevel("/"), "receiver");
}

}  // namespace
}  // namespace kavo::serve
