// The receiver's side held in the test process: the master of a
// pseudo-terminal, whose termios are the slave's.
#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <termios.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "port_peer.h"
#include "platform/platform.h"

namespace kavo::test {
namespace {

class LocalPortPeer final : public PortPeer {
 public:
  LocalPortPeer() {
    char name[128] = {};
    if (openpty(&master_, &slave_, name, nullptr, nullptr) != 0) {
      ADD_FAILURE() << "openpty failed";
      return;
    }
    // The library opens the slave by its path; the test's own descriptor
    // would only keep the line up after a hang-up.
    close(slave_);
    slave_ = -1;
    name_ = name;
  }
  ~LocalPortPeer() override { HangUp(); }

  PortLimits Limits() const override { return PortLimits(); }

  std::u16string PortName() const override { return platform::Utf8ToUtf16(name_); }

  LineSettings Settings() override {
    termios tio {};
    EXPECT_EQ(tcgetattr(master_, &tio), 0);
    LineSettings s;
    const speed_t speeds[] = {B2400, B4800, B9600, B19200, B38400, B57600, B115200};
    const uint32_t rates[] = {2400, 4800, 9600, 19200, 38400, 57600, 115200};
    for (size_t i = 0; i < sizeof rates / sizeof rates[0]; ++i)
      if (cfgetospeed(&tio) == speeds[i]) s.speed = rates[i];
    const tcflag_t size = tio.c_cflag & CSIZE;
    s.dataBits = size == CS5 ? 5 : size == CS6 ? 6 : size == CS7 ? 7 : 8;
    s.stopBits = (tio.c_cflag & CSTOPB) ? 2 : 1;
    if (!(tio.c_cflag & PARENB)) {
      s.parity = 'N';
    } else if (tio.c_cflag & CMSPAR) {
      s.parity = (tio.c_cflag & PARODD) ? 'M' : 'S';
    } else {
      s.parity = (tio.c_cflag & PARODD) ? 'O' : 'E';
    }
    return s;
  }

  void Send(const std::string& bytes) override {
    size_t done = 0;
    while (done < bytes.size()) {
      const ssize_t n = write(master_, bytes.data() + done, bytes.size() - done);
      ASSERT_GT(n, 0) << "the pseudo-terminal refused the data";
      done += static_cast<size_t>(n);
    }
  }

  std::string Receive(size_t max, uint32_t waitMs) override {
    std::string got;
    char chunk[4096];
    while (got.size() < max) {
      pollfd p{master_, POLLIN, 0};
      if (poll(&p, 1, static_cast<int>(waitMs)) <= 0) break;
      const ssize_t n = read(master_, chunk, std::min(sizeof chunk, max - got.size()));
      if (n <= 0) break;
      got.append(chunk, static_cast<size_t>(n));
    }
    return got;
  }

  void HangUp() override {
    if (master_ >= 0) close(master_);
    master_ = -1;
  }

 private:
  int master_ = -1;
  int slave_ = -1;
  std::string name_;
};

}  // namespace

std::unique_ptr<PortPeer> NewPortPeer() { return std::make_unique<LocalPortPeer>(); }

}  // namespace kavo::test
