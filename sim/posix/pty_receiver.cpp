#include "sim/posix/pty_receiver.h"

#include <dirent.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/inotify.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <initializer_list>
#include <stdexcept>
#include <system_error>

namespace kavo::sim {
namespace {

// Time a reader gets after opening the port to set its speed before the
// next epoch is judged against the port's settings.
constexpr std::chrono::milliseconds kSettleTime(20);

struct Speed {
  uint32_t baud;
  speed_t code;
};

constexpr Speed kSpeeds[] = {
    {0, B0},       {300, B300},     {600, B600},     {1200, B1200},   {2400, B2400},     {4800, B4800},
    {9600, B9600}, {19200, B19200}, {38400, B38400}, {57600, B57600}, {115200, B115200}, {230400, B230400},
};

// The baud rate of a speed code; UINT32_MAX for one outside the table.
uint32_t BaudOf(speed_t code) {
  for (const Speed& s : kSpeeds)
    if (s.code == code) return s.baud;
  return UINT32_MAX;
}

speed_t CodeOf(uint32_t baud) {
  for (const Speed& s : kSpeeds)
    if (s.baud == baud) return s.code;
  return B0;
}

// Closes what was opened so far and reports the error that stopped Start.
[[noreturn]] void Fail(const char* what, std::initializer_list<int> fds) {
  const int error = errno;
  for (int fd : fds)
    if (fd >= 0) close(fd);
  throw std::system_error(error, std::generic_category(), what);
}

}  // namespace

bool PtyReceiver::IsSupportedBaud(uint32_t baud) { return baud != 0 && CodeOf(baud) != B0; }

PtyReceiver::PtyReceiver(PtyReceiverOptions options)
    : options_(std::move(options)),
      baud_(options_.baudRate),
      silent_(options_.silent),
      garbage_(options_.simulation.seed, 0x6A7B) {
  const std::string problem = ValidateOptions(options_.simulation);
  if (!problem.empty()) throw std::invalid_argument(problem);
  if (!IsSupportedBaud(options_.baudRate)) throw std::invalid_argument("unsupported baud rate");
}

PtyReceiver::~PtyReceiver() { Stop(); }

void PtyReceiver::SetBaudRate(uint32_t baud) {
  if (!IsSupportedBaud(baud)) throw std::invalid_argument("unsupported baud rate");
  baud_ = baud;
}

std::string PtyReceiver::DevicePath() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return devicePath_;
}

PtyReceiver::Counters PtyReceiver::Snapshot() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return counters_;
}

void PtyReceiver::Start() {
  if (Running()) return;
  const int master = posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
  if (master < 0) Fail("posix_openpt", {});
  char name[128] = {};
  if (grantpt(master) != 0 || unlockpt(master) != 0 || ptsname_r(master, name, sizeof name) != 0)
    Fail("pseudo-terminal setup", {master});
  const int slave = open(name, O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
  if (slave < 0) Fail(name, {master});
  // A raw line at the receiver's own speed until a reader sets another.
  termios settings{};
  tcgetattr(slave, &settings);
  cfmakeraw(&settings);
  settings.c_cflag |= CLOCAL | CREAD;
  cfsetispeed(&settings, CodeOf(baud_));
  cfsetospeed(&settings, CodeOf(baud_));
  tcsetattr(slave, TCSANOW, &settings);
  // Watched only now, so the receiver's own open does not count as a reader.
  const int watch = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
  if (watch < 0 || inotify_add_watch(watch, name, IN_OPEN | IN_CLOSE) < 0) Fail("inotify", {master, slave, watch});
  int wake[2];
  if (pipe2(wake, O_CLOEXEC | O_NONBLOCK) != 0) Fail("pipe", {master, slave, watch});

  std::lock_guard<std::mutex> lock(mutex_);
  master_ = master;
  slave_ = slave;
  watch_ = watch;
  wake_[0] = wake[0];
  wake_[1] = wake[1];
  devicePath_ = name;
  counters_ = Counters{};
  thread_ = std::thread(&PtyReceiver::Run, this);
}

void PtyReceiver::Stop() {
  if (thread_.joinable()) {
    const char stop = 1;
    while (write(wake_[1], &stop, 1) < 0 && errno == EINTR) {}
    thread_.join();
  }
  CloseAll();
}

void PtyReceiver::CloseAll() {
  std::lock_guard<std::mutex> lock(mutex_);
  for (int* fd : {&watch_, &slave_, &master_, &wake_[0], &wake_[1]}) {
    if (*fd >= 0) close(*fd);
    *fd = -1;
  }
}

void PtyReceiver::Run() {
  Simulator simulator(options_.simulation);
  const auto interval = std::chrono::milliseconds(options_.realWaitMs ? options_.realWaitMs(simulator.IntervalMs())
                                                                      : simulator.IntervalMs());
  auto due = Clock::now();
  for (;;) {
    if (!WaitUntil(due)) return;
    const Epoch epoch = simulator.Next();
    if (options_.onEpoch) options_.onEpoch(epoch);
    SendEpoch(epoch.Text());

    // A receiver that fell behind carries on from now rather than catching up.
    due += interval;
    if (due < Clock::now() - interval) due = Clock::now();
  }
}

bool PtyReceiver::WaitUntil(Clock::time_point due) {
  for (;;) {
    const auto until = std::max(due, settleUntil_);
    const auto now = Clock::now();
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(until - now).count();
    pollfd events[2] = {{wake_[0], POLLIN, 0}, {watch_, POLLIN, 0}};
    if (poll(events, 2, left > 0 ? static_cast<int>(left) : 0) < 0 && errno != EINTR) return false;
    if (events[0].revents != 0) return false;
    if (events[1].revents != 0) HandlePortEvents();
    if (left <= 0 && Clock::now() >= std::max(due, settleUntil_)) return true;
  }
}

int PtyReceiver::CountReaders() const {
  // Every descriptor on the device in every process we may look into,
  // less the one this receiver keeps.
  int count = -1;
  DIR* processes = opendir("/proc");
  if (!processes) return 1;  // cannot tell: keep sending
  while (const dirent* process = readdir(processes)) {
    if (process->d_name[0] < '0' || process->d_name[0] > '9') continue;
    const std::string fdDir = std::string("/proc/") + process->d_name + "/fd";
    DIR* fds = opendir(fdDir.c_str());
    if (!fds) continue;
    while (const dirent* fd = readdir(fds)) {
      char target[256];
      const std::string link = fdDir + "/" + fd->d_name;
      const ssize_t n = readlink(link.c_str(), target, sizeof target - 1);
      if (n > 0 && devicePath_.compare(0, std::string::npos, target, static_cast<size_t>(n)) == 0) ++count;
    }
    closedir(fds);
  }
  closedir(processes);
  return std::max(count, 0);
}

void PtyReceiver::HandlePortEvents() {
  alignas(inotify_event) char buffer[1024];
  ssize_t n;
  bool opened = false;
  bool closedOrLost = false;
  while ((n = read(watch_, buffer, sizeof buffer)) > 0) {
    for (const char* at = buffer; at < buffer + n;) {
      const auto* event = reinterpret_cast<const inotify_event*>(at);
      if (event->mask & IN_OPEN) {
        opened = true;
        settleUntil_ = Clock::now() + kSettleTime;
      }
      closedOrLost |= (event->mask & (IN_CLOSE | IN_Q_OVERFLOW)) != 0;
      at += sizeof(inotify_event) + event->len;
    }
  }
  if (!opened && !closedOrLost) return;
  // What one reader left, or what came while the port was changing hands,
  // belongs to nobody.
  DiscardUnread();
  // The kernel merges identical events queued back to back (opens from
  // several threads, say) and drops them when its queue overflows, so the
  // events only say that readers came or went; after a close the readers
  // are counted where the system keeps them. An open is announced before
  // its descriptor shows there, so a count of none after one is too early.
  int readers = closedOrLost ? CountReaders() : -1;
  if (opened && readers == 0) readers = 1;
  std::lock_guard<std::mutex> lock(mutex_);
  counters_.readers = readers >= 0 ? readers : std::max(counters_.readers, 0) + 1;
}

void PtyReceiver::DiscardUnread() {
  // Flushed even when nothing is counted yet: bytes still on their way from
  // the master side are not counted, but would reach the next reader.
  int unread = 0;
  const bool counted = ioctl(slave_, FIONREAD, &unread) == 0 && unread > 0;
  tcflush(slave_, TCIFLUSH);
  if (!counted) return;
  std::lock_guard<std::mutex> lock(mutex_);
  counters_.discardedBytes += static_cast<uint64_t>(unread);
}

void PtyReceiver::SendEpoch(const std::string& text) {
  // What readers wrote to the receiver goes nowhere.
  char sink[512];
  while (read(master_, sink, sizeof sink) > 0) {}

  termios line{};
  const bool known = tcgetattr(master_, &line) == 0;
  const speed_t code = cfgetispeed(&line) != B0 ? cfgetispeed(&line) : cfgetospeed(&line);
  const uint32_t lineBaud = known ? BaudOf(code) : UINT32_MAX;
  const uint32_t baud = baud_;
  bool heard = false;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    ++counters_.epochs;
    counters_.lineBaud = lineBaud == UINT32_MAX ? 0 : lineBaud;
    heard = counters_.readers > 0;
  }
  if (silent_ || !heard || lineBaud == 0) return;

  std::string bytes = text;
  if (lineBaud != baud) {
    // Heard at the wrong speed, every byte breaks into noise: more bytes
    // when the port is faster than the receiver, fewer when slower.
    const double ratio = lineBaud == UINT32_MAX ? 1.0 : static_cast<double>(lineBaud) / baud;
    const double wanted = static_cast<double>(text.size()) * (ratio > 4.0 ? 4.0 : ratio);
    bytes.assign(wanted < 1.0 ? 1 : static_cast<size_t>(wanted), '\0');
    for (char& c : bytes) {
      do c = static_cast<char>(garbage_.Next() & 0xFF);
      while (c == '$');
    }
  }
  const uint64_t written = WriteToLine(bytes);
  std::lock_guard<std::mutex> lock(mutex_);
  (lineBaud == baud ? counters_.nmeaBytes : counters_.garbageBytes) += written;
  counters_.droppedBytes += bytes.size() - written;
}

uint64_t PtyReceiver::WriteToLine(const std::string& bytes) {
  size_t done = 0;
  while (done < bytes.size()) {
    const ssize_t n = write(master_, bytes.data() + done, bytes.size() - done);
    if (n > 0) {
      done += static_cast<size_t>(n);
    } else if (n < 0 && errno == EINTR) {
      continue;
    } else {
      break;  // full (EAGAIN) or gone: the rest is lost, as on a real line
    }
  }
  return done;
}

}  // namespace kavo::sim
