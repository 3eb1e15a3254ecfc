// The receiver's side held by the native pty_peer helper, which runs this
// program under Wine: it maps a COM name onto a pseudo-terminal and takes
// one-line commands on a loopback socket whose port is in KAVOGPS_PTY_PEER.
#include <winsock2.h>

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>

#include "common/pty_peer/hex.h"
#include "platform/platform.h"
#include "common/port_peer.h"
#include "utf_conversion.h"

namespace kavo::test {
namespace {

class RemotePortPeer final : public PortPeer {
 public:
  RemotePortPeer() {
    const char* port = std::getenv("KAVOGPS_PTY_PEER");
    if (!port) {
      ADD_FAILURE() << "run this program through pty_peer (KAVOGPS_PTY_PEER is not set)";
      return;
    }
    WSADATA data;
    WSAStartup(MAKEWORD(2, 2), &data);
    socket_ = socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<u_short>(std::atoi(port)));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (connect(socket_, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
      ADD_FAILURE() << "pty_peer does not answer on port " << port;
      return;
    }
    name_ = unicode::Utf8ToUtf16(Command("NEW"));
  }

  ~RemotePortPeer() override {
    if (socket_ != INVALID_SOCKET) closesocket(socket_);
    WSACleanup();
  }

  std::u16string PortName() const override { return name_; }

  std::string Settings() override { return Command("SETTINGS"); }

  void Send(const std::string& bytes) override { Command("SEND " + Hex(bytes)); }

  std::string Receive(size_t max, uint32_t waitMs) override {
    return Unhex(Command("RECV " + std::to_string(max) + " " + std::to_string(waitMs)));
  }

 private:
  // Sends one command line and returns what follows "OK " in the answer.
  std::string Command(const std::string& line) {
    const std::string out = line + "\n";
    if (socket_ == INVALID_SOCKET || send(socket_, out.data(), static_cast<int>(out.size()), 0) <= 0) {
      ADD_FAILURE() << "pty_peer is gone";
      return {};
    }
    std::string reply;
    char c = 0;
    while (recv(socket_, &c, 1, 0) == 1 && c != '\n') reply += c;
    if (reply.compare(0, 2, "OK") != 0) ADD_FAILURE() << line << ": " << reply;
    return reply.size() > 3 ? reply.substr(3) : std::string();
  }

  SOCKET socket_ = INVALID_SOCKET;
  std::u16string name_;
};

}  // namespace

std::unique_ptr<PortPeer> NewPortPeer() { return std::make_unique<RemotePortPeer>(); }

}  // namespace kavo::test
