// The Unix socket of raw sentences: clients that read and one that does
// not, and what may already be at its path.
#include "serve/nmea_socket.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <thread>

#include <asio/executor_work_guard.hpp>
#include <asio/local/stream_protocol.hpp>
#include <asio/read_until.hpp>
#include <asio/streambuf.hpp>

namespace kavo::serve {
namespace {

using asio::local::stream_protocol;
namespace fs = std::filesystem;
using namespace std::chrono_literals;

// In the system's temporary folder: a socket's path has room for about a
// hundred characters.
fs::path MadeFolder() {
  std::string name = (fs::temp_directory_path() / "kavogps-nmea-XXXXXX").string();
  if (!mkdtemp(name.data())) throw std::system_error(errno, std::generic_category(), "mkdtemp");
  return name;
}

class NmeaSocketTest : public ::testing::Test {
 protected:
  NmeaSocketTest() : network_([this] { io_.run(); }) {}
  ~NmeaSocketTest() override {
    if (output_) output_->Close();
    guard_.reset();
    network_.join();
    fs::remove_all(dir_);
  }
  std::unique_ptr<NmeaSocketOutput> Open(unsigned mode = 0660, std::string* why = nullptr) {
    std::string ignored;
    return OpenNmeaSocket(io_, {path_, mode, 16 * 1024}, why ? why : &ignored);
  }
  stream_protocol::socket Connect() {
    stream_protocol::socket client(clientIo_);
    client.connect(stream_protocol::endpoint(path_));
    return client;
  }
  // Hang guard for what the network thread does on its own.
  template <typename Condition>
  static bool Eventually(Condition condition) {
    for (int i = 0; i < 500 && !condition(); ++i) std::this_thread::sleep_for(10ms);
    return condition();
  }

  const fs::path dir_ = MadeFolder();
  const std::string path_ = (dir_ / "gps.sock").string();
  asio::io_context io_, clientIo_;
  asio::executor_work_guard<asio::io_context::executor_type> guard_ = asio::make_work_guard(io_);
  std::thread network_;
  std::unique_ptr<NmeaSocketOutput> output_;
};

// A client that stops reading loses its oldest sentences and holds back
// neither the feed nor the client that reads, which gets every sentence
// in order.
TEST_F(NmeaSocketTest, StalledClientHoldsBackNoOne) {
  output_ = Open(0600);
  ASSERT_TRUE(output_);
  EXPECT_EQ(fs::status(path_).type(), fs::file_type::socket);
  EXPECT_EQ(fs::status(path_).permissions() & fs::perms::all, fs::perms::owner_read | fs::perms::owner_write);
  EXPECT_FALSE(output_->WantsNmea());
  stream_protocol::socket reader = Connect(), stalled = Connect();
  ASSERT_TRUE(Eventually([&] { return output_->ClientCount() == 2; }));
  EXPECT_TRUE(output_->WantsNmea());

  const std::string filler(70, 'x');  // a sentence's length, so that the stalled client's buffers fill soon
  asio::streambuf buffer;
  std::istream in(&buffer);
  std::string line;
  for (int batch = 0; batch < 200; ++batch) {
    for (int i = 0; i < 50; ++i) output_->Nmea("/dev/gps0", "$GPTXT," + std::to_string(batch * 50 + i) + filler);
    for (int i = 0; i < 50; ++i) {
      asio::read_until(reader, buffer, '\n');
      std::getline(in, line);
      ASSERT_EQ(line, "$GPTXT," + std::to_string(batch * 50 + i) + filler + "\r");
    }
  }
  EXPECT_GT(output_->DroppedLines(), 0u);

  output_->Close();
  EXPECT_FALSE(fs::exists(path_));
  std::error_code end;
  asio::read_until(reader, buffer, '\n', end);
  EXPECT_EQ(end, asio::error::eof);
}

// A socket file left by a run that crashed is replaced; a socket someone
// listens on, and a file that is not a socket, are refused and left alone.
TEST_F(NmeaSocketTest, StaleSocketReplacedOthersRefused) {
  { stream_protocol::acceptor crashed(clientIo_, stream_protocol::endpoint(path_)); }
  ASSERT_EQ(fs::status(path_).type(), fs::file_type::socket);
  output_ = Open();
  ASSERT_TRUE(output_);
  stream_protocol::socket client = Connect();
  ASSERT_TRUE(Eventually([&] { return output_->ClientCount() == 1; }));

  std::string why;
  EXPECT_FALSE(Open(0660, &why));
  EXPECT_EQ(why, "another program is listening on it");
  // The refusal's probe connected for a moment; the client stays served.
  EXPECT_TRUE(Eventually([&] { return output_->ClientCount() == 1; }));

  output_->Close();
  output_.reset();
  std::ofstream(path_) << "notes";
  EXPECT_FALSE(Open(0660, &why));
  EXPECT_NE(why.find("not a socket"), std::string::npos) << why;
  EXPECT_EQ(fs::file_size(path_), 5u);
}

}  // namespace
}  // namespace kavo::serve
