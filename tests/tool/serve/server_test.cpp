#include "serve/server.h"

#include <gtest/gtest.h>

#include <thread>

#include <asio/connect.hpp>
#include <asio/read_until.hpp>
#include <asio/streambuf.hpp>
#include <asio/write.hpp>
#include <nlohmann/json.hpp>

namespace kavo::serve {
namespace {

using asio::ip::tcp;
using nlohmann::json;

const std::string kDevice = "/dev/gps0";

// A server on loopback, run on its own thread as `serve` runs it.
class ServerTest : public ::testing::Test {
 public:
  void Start(size_t queueBytes = 64 * 1024, const char* address = "127.0.0.1") {
    auto server =
        std::make_unique<Server>(io_, ServerOptions{{tcp::endpoint(asio::ip::make_address(address), 0)}, queueBytes},
                                 std::vector<DeviceState>{{kDevice, "NMEA0183", 4800, "2026-01-01T00:00:00.000Z"}});
    server->Open();
    server_ = std::move(server);
    network_ = std::thread([this] { io_.run(); });
  }
  void TearDown() override {
    if (!server_) return;
    server_->Close();
    network_.join();
  }

  struct Peer {
    explicit Peer(asio::io_context& io) : socket(io) {}
    tcp::socket socket;
    asio::streambuf buffer;
    std::string Line() {
      asio::read_until(socket, buffer, '\n');
      std::istream in(&buffer);
      std::string line;
      std::getline(in, line);
      return line;
    }
    json Object() { return json::parse(Line()); }
    void Send(const std::string& text) { asio::write(socket, asio::buffer(text)); }
  };
  std::unique_ptr<Peer> Connect() {
    auto peer = std::make_unique<Peer>(clientIo_);
    peer->socket.connect(server_->Endpoints()[0]);
    return peer;
  }
  std::unique_ptr<Peer> Watcher(const std::string& stream = "json") {
    auto peer = Connect();
    EXPECT_EQ(peer->Object()["class"], "VERSION");
    peer->Send("?WATCH={\"enable\":true,\"" + stream + "\":true}\n");
    while (peer->Object()["class"] != "WATCH") {}
    return peer;
  }
  std::string Tpv(int n, size_t padding = 0) {
    return R"({"class":"TPV","mode":3,"n":)" + std::to_string(n) + R"(,"pad":")" + std::string(padding, 'x') + "\"}";
  }

  asio::io_context io_, clientIo_;
  std::unique_ptr<Server> server_;
  std::thread network_;
};

TEST_F(ServerTest, HundredWatchersGetEveryEpochInOrderBesideOneThatNeverReads) {
  Start();
  auto stalled = Watcher();  // asks for the stream and never reads it
  std::vector<std::unique_ptr<Peer>> watchers;
  for (int i = 0; i < 100; ++i) watchers.push_back(Watcher());
  for (int n = 0; n < 50; ++n) server_->Epoch(kDevice, Tpv(n, 200), "");
  server_->Device(DeviceState{"/dev/gps0", "NMEA0183", 4800, ""});  // the receiver went away
  for (auto& peer : watchers) {
    for (int n = 0; n < 50; ++n) ASSERT_EQ(peer->Object()["n"], n);
    EXPECT_EQ(peer->Object(), json::parse(R"({"class":"DEVICE","path":"/dev/gps0","activated":0})"));
  }
  auto late = Connect();  // the last fix is still served
  late->Line();
  late->Send("?POLL;\n");
  EXPECT_EQ(late->Object()["tpv"][0]["n"], 49);
}

// What a watcher read before its answer to ?VERSION: "CLASS device" for
// each object, raw sentences as they are.
std::vector<std::string> ReadUntilVersion(std::unique_ptr<ServerTest::Peer>& peer) {
  peer->Send("?VERSION;\n");
  std::vector<std::string> got;
  for (std::string line = peer->Line(); line.find("\"VERSION\"") == std::string::npos; line = peer->Line()) {
    if (line[0] == '$') {
      got.push_back(line.substr(0, line.size() - 1));
      continue;
    }
    const json object = json::parse(line);
    got.push_back(object["class"].get<std::string>() + " " + object.value("device", object.value("path", "")));
  }
  return got;
}

TEST_F(ServerTest, EachWatcherGetsItsDevicesAndOneGoneLeavesTheOthersServed) {
  Start();
  const std::string other = "/dev/ttyACM0";
  const struct {
    std::string watch;
    std::vector<std::string> expected;
  } watchers[] = {
      {R"({"enable":true,"json":true})",
       {"DEVICE /dev/ttyACM0", "TPV /dev/gps0", "TPV /dev/ttyACM0", "SKY /dev/ttyACM0", "DEVICE /dev/gps0",
        "TPV /dev/ttyACM0"}},
      {R"({"enable":true,"json":true,"device":"/dev/ttyACM0"})",
       {"DEVICE /dev/ttyACM0", "TPV /dev/ttyACM0", "SKY /dev/ttyACM0", "TPV /dev/ttyACM0"}},
      {R"({"enable":true,"json":true,"device":"/dev/gps0"})", {"TPV /dev/gps0", "DEVICE /dev/gps0"}},
      {R"({"enable":true,"json":false,"nmea":true,"device":"/dev/ttyACM0"})", {"$GPGGA,B"}},
      {R"({"enable":true,"json":true,"nmea":true})",
       {"DEVICE /dev/ttyACM0", "TPV /dev/gps0", "TPV /dev/ttyACM0", "SKY /dev/ttyACM0", "$GPGGA,A", "$GPGGA,B",
        "DEVICE /dev/gps0", "TPV /dev/ttyACM0"}},
  };
  std::vector<std::unique_ptr<Peer>> peers;
  for (const auto& watcher : watchers) {
    peers.push_back(Connect());
    peers.back()->Send("?WATCH=" + watcher.watch + "\n");
    while (peers.back()->Object()["class"] != "WATCH") {}
  }
  const auto tpv = [](const std::string& device) { return R"({"class":"TPV","mode":3,"device":")" + device + "\"}"; };
  server_->Device(DeviceState{other, "NMEA0183", 9600, "2026-01-01T00:00:01.000Z"});  // a second receiver comes
  server_->Epoch(kDevice, tpv(kDevice), "");
  server_->Epoch(other, tpv(other), R"({"class":"SKY","device":"/dev/ttyACM0"})");
  server_->Nmea(kDevice, "$GPGGA,A");
  server_->Nmea(other, "$GPGGA,B");
  server_->Device(DeviceState{kDevice, "NMEA0183", 4800, ""});  // the first receiver failed
  server_->Epoch(other, tpv(other), "");
  for (size_t i = 0; i < peers.size(); ++i) EXPECT_EQ(ReadUntilVersion(peers[i]), watchers[i].expected) << i;

  auto late = Connect();
  late->Line();
  late->Send("?DEVICES;?POLL;\n");
  const json devices = late->Object()["devices"];
  ASSERT_EQ(devices.size(), 2u);
  EXPECT_EQ(devices[0]["activated"], 0);
  EXPECT_EQ(devices[1]["path"], other);
  const json poll = late->Object();
  EXPECT_EQ(poll["active"], 1);
  EXPECT_EQ(poll["tpv"].size(), 2u);
}

TEST_F(ServerTest, AClientThatDoesNotReadLosesItsOldestLinesNotTheNewest) {
  Start(16 * 1024);
  auto stalled = Watcher();
  auto reader = Watcher();
  int sent = 0;
  // Until lines are dropped for the stalled client (the bound: a hang guard).
  while (server_->DroppedLines() == 0 && sent < 20000) {
    server_->Epoch(kDevice, Tpv(sent++, 4000), "");
    ASSERT_EQ(reader->Object()["n"], sent - 1);
  }
  ASSERT_GT(server_->DroppedLines(), 0u);
  server_->Epoch(kDevice, Tpv(sent++, 0), "");  // still connected: what it reads ends with the newest
  for (int last = -1; last != sent - 1;) {
    const int n = stalled->Object()["n"];
    ASSERT_GT(n, last);
    last = n;
  }
}

TEST_F(ServerTest, ThousandClientsComeAndGoMidRequestOrWithGarbage) {
  Start();
  const std::string leavings[] = {"", "?WATCH={\"enable\":tr", "\x01\x02\xff garbage\n", std::string(3000, 'A'),
                                  "?WATCH={\"enable\":true,\"nmea\":true}\n"};
  for (int i = 0; i < 1000; ++i) {
    auto peer = Connect();
    if (i % 2) peer->Send(leavings[i % 5]);
    if (i % 7 == 0) server_->Nmea(kDevice, "$GPGGA,1*00");
  }
  auto peer = Connect();
  EXPECT_EQ(peer->Object()["class"], "VERSION");
  peer->Send(std::string(5000, 'A') + "\n?VERSION;\n");  // one line too long, then a good one
  EXPECT_EQ(peer->Object()["class"], "ERROR");
  EXPECT_EQ(peer->Object()["class"], "VERSION");
  for (int wait = 0; server_->ClientCount() != 1 && wait < 30000; ++wait)  // hang guard only
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  EXPECT_EQ(server_->ClientCount(), 1u);
  EXPECT_FALSE(server_->WantsNmea());  // those that asked for sentences are gone
}

TEST_F(ServerTest, ListensOnIpv6AndStreamsRawSentences) {
  try {
    Start(64 * 1024, "::1");
  } catch (const std::system_error&) {
    GTEST_SKIP() << "no IPv6 loopback here";
  }
  auto peer = Watcher("nmea");
  EXPECT_TRUE(server_->WantsNmea());
  server_->Epoch(kDevice, Tpv(1), "");  // not asked for
  server_->Nmea(kDevice, "$GPGGA,100000.00*00");
  EXPECT_EQ(peer->Line(), "$GPGGA,100000.00*00\r");
}

// Socket activation: only sockets announced for this very process count
// (a child inherits the variables), and garbage is an error, not none.
TEST(HandedSocketsTest, CountsOnlySocketsAnnouncedForThisProcess) {
  EXPECT_EQ(AnnouncedSocketCount("42", "2", 42), 2);
  EXPECT_EQ(AnnouncedSocketCount("41", "2", 42), 0);
  EXPECT_EQ(AnnouncedSocketCount(nullptr, "2", 42), 0);
  EXPECT_EQ(AnnouncedSocketCount("42", "two", 42), std::nullopt);
  EXPECT_EQ(AnnouncedSocketCount("42x", "1", 42), std::nullopt);
  EXPECT_EQ(AnnouncedSocketCount("42", "-1", 42), std::nullopt);
}

}  // namespace
}  // namespace kavo::serve
