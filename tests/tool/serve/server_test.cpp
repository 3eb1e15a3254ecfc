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
 protected:
  void Start(size_t queueBytes = 64 * 1024, const char* address = "127.0.0.1") {
    auto server =
        std::make_unique<Server>(io_, ServerOptions{{tcp::endpoint(asio::ip::make_address(address), 0)}, queueBytes},
                                 DeviceState{"/dev/gps0", "NMEA0183", 4800, "2026-01-01T00:00:00.000Z"});
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

}  // namespace
}  // namespace kavo::serve
