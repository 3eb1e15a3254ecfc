// The live receiver on a pseudo-terminal. Real-time limits here are only
// reached when something is broken.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

#include "common/eventually.h"
#include "simulator/posix/pty_receiver.h"

namespace kavo::test {
namespace {

// What one reader leaves unread is not kept for the next: a reader at
// another speed gets garbage, never the first reader's sentences.
TEST(PtyReceiver, KeepsNothingForTheNextReader) {
  sim::PtyReceiverOptions options;
  options.simulation.rateHz = 20;
  sim::PtyReceiver receiver(options);
  receiver.Start();
  auto setSpeed = [](int fd, speed_t speed) {
    termios t{};
    tcgetattr(fd, &t);
    cfmakeraw(&t);
    cfsetspeed(&t, speed);
    tcsetattr(fd, TCSANOW, &t);  // what was queued stays
    return fd;
  };
  const std::string path = receiver.DevicePath();
  const int first = setSpeed(open(path.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK), B4800);
  ASSERT_TRUE(Eventually([&] { return receiver.Snapshot().nmeaBytes > 0; }));  // sent, never read
  // Away at another speed, so that nothing the next reader gets is a sentence.
  setSpeed(first, B9600);
  close(first);
  ASSERT_TRUE(Eventually([&] { return receiver.Snapshot().readers == 0; }));
  const int second = open(path.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK);
  std::string text;
  char buffer[512];
  for (pollfd p{second, POLLIN, 0}; text.size() < 600 && poll(&p, 1, 30000) == 1;)
    text.append(buffer, static_cast<size_t>(std::max<ssize_t>(0, read(second, buffer, sizeof buffer))));
  close(second);
  EXPECT_GE(text.size(), 600u);
  EXPECT_EQ(text.find("$GP"), std::string::npos);
}

}  // namespace
}  // namespace kavo::test
