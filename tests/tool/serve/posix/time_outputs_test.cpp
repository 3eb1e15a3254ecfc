// The time outputs in the layouts chronyd and ntpd read, and what they say
// while the other end is missing or unusable.
#include <sys/ipc.h>
#include <sys/shm.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>

#include "serve/time_outputs.h"

namespace kavo::serve {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr int64_t kStart = 1715680800;  // 2024-05-14T10:00:00Z

// The fix of second `n`, whose first sentence came 250 ms after it.
FixTime At(int n) {
  FixTime time;
  time.utc = std::chrono::system_clock::time_point(seconds(kStart + n));
  time.arrival = time.utc + milliseconds(250);
  return time;
}

std::vector<std::string> Lines(const std::ostringstream& err) {
  std::vector<std::string> lines;
  std::istringstream in(err.str());
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

template <typename T>
T Field(const char* bytes, size_t offset) {
  T value;
  std::memcpy(&value, bytes + offset, sizeof value);
  return value;
}

TEST(ChronySock, TellsEachFaultOnceAndSendsChronydsLayoutOnceTheSocketIsThere) {
  char folder[] = "/tmp/kavogps-time-XXXXXX";
  ASSERT_TRUE(mkdtemp(folder));
  const std::string path = std::string(folder) + "/refclock.sock";
  std::ostringstream err;
  const std::unique_ptr<TimeOutput> output = ChronySockOutput(path, "/dev/gps0", err);
  ASSERT_TRUE(output);
  output->Sample(At(1));  // no chronyd
  std::ofstream(path) << "a file";
  output->Sample(At(2));
  output->Sample(At(3));
  ASSERT_EQ(unlink(path.c_str()), 0);
  const int chronyd = socket(AF_UNIX, SOCK_DGRAM, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strcpy(address.sun_path, path.c_str());
  ASSERT_EQ(bind(chronyd, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  output->Sample(At(4));
  char sample[64];
  const ssize_t size = recv(chronyd, sample, sizeof sample, MSG_DONTWAIT);
  close(chronyd);
  unlink(path.c_str());
  rmdir(folder);

  // struct timeval, the offset, then pulse, leap, padding and the magic number.
  const size_t at = sizeof(timeval);
  ASSERT_EQ(size, static_cast<ssize_t>(at + sizeof(double) + 4 * sizeof(int)));
  const timeval time = Field<timeval>(sample, 0);
  EXPECT_EQ(time.tv_sec, kStart + 4);
  EXPECT_EQ(time.tv_usec, 250000);
  EXPECT_DOUBLE_EQ(Field<double>(sample, at), -0.25);  // the system clock is ahead
  EXPECT_EQ(Field<int>(sample, at + 8), 0);            // not a pulse
  EXPECT_EQ(Field<int>(sample, at + 12), 0);           // no leap second
  EXPECT_EQ(Field<int>(sample, at + 20), 0x534f434b);
  const std::vector<std::string> lines = Lines(err);
  ASSERT_EQ(lines.size(), 3u) << err.str();
  EXPECT_NE(lines[0].find("/dev/gps0: no socket at " + path), std::string::npos);
  EXPECT_NE(lines[1].find(path + " is not a socket; trying again"), std::string::npos);
  EXPECT_NE(lines[2].find("chronyd takes the samples again"), std::string::npos);
}

// The segment as the daemons read it.
struct ShmTime {
  int mode;
  int count;
  time_t clockTimeStampSec;
  int clockTimeStampUSec;
  time_t receiveTimeStampSec;
  int receiveTimeStampUSec;
  int leap;
  int precision;
  int nsamples;
  int valid;
  unsigned clockTimeStampNSec;
  unsigned receiveTimeStampNSec;
  int dummy[8];
};

TEST(NtpShm, ASegmentTooSmallIsToldOnceAndTheNextIsWrittenUnderTheHandshake) {
  const int unit = 200 + getpid() % 50;  // none a daemon here uses
  const key_t key = 0x4E545030 + unit;
  const int small = shmget(key, 8, IPC_CREAT | IPC_EXCL | 0600);
  ASSERT_GE(small, 0) << "segment " << key << " is in use";
  std::ostringstream err;
  const std::unique_ptr<TimeOutput> output = NtpShmOutput(unit, "/dev/gps0", err);
  output->Sample(At(1));
  output->Sample(At(2));
  shmctl(small, IPC_RMID, nullptr);
  output->Sample(At(3));
  const int id = shmget(key, sizeof(ShmTime), 0);
  ASSERT_GE(id, 0);
  const auto* shm = static_cast<const ShmTime*>(shmat(id, nullptr, SHM_RDONLY));
  EXPECT_EQ(shm->mode, 1);
  EXPECT_EQ(shm->valid, 1);
  EXPECT_EQ(shm->count, 2);  // even: no write under way
  EXPECT_EQ(shm->clockTimeStampSec, kStart + 3);
  EXPECT_EQ(shm->clockTimeStampUSec, 0);
  EXPECT_EQ(shm->receiveTimeStampSec, kStart + 3);
  EXPECT_EQ(shm->receiveTimeStampUSec, 250000);
  EXPECT_EQ(shm->receiveTimeStampNSec, 250000000u);
  EXPECT_EQ(shm->leap, 0);
  output->Sample(At(4));
  EXPECT_EQ(shm->count, 4);
  EXPECT_EQ(shm->clockTimeStampSec, kStart + 4);
  shmdt(shm);
  shmctl(id, IPC_RMID, nullptr);
  const std::vector<std::string> lines = Lines(err);
  ASSERT_EQ(lines.size(), 2u) << err.str();
  EXPECT_NE(lines[0].find("/dev/gps0: the NTP shared memory of unit " + std::to_string(unit)), std::string::npos);
  EXPECT_NE(lines[0].find("too small"), std::string::npos);
  EXPECT_NE(lines[1].find("writing to the NTP shared memory"), std::string::npos);
}

}  // namespace
}  // namespace kavo::serve
