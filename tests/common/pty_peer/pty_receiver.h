// The receiver's side of a pseudo-terminal: its master, whose termios are
// the slave's, so it sees the line settings the library made. Shared by the
// native tests and the pty_peer helper. POSIX only.
#pragma once

#include <poll.h>
#include <pty.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <string>

namespace kavo::test {

class PtyReceiver {
 public:
  ~PtyReceiver() { HangUp(); }

  // A fresh pseudo-terminal; false when none can be made. The slave is
  // closed (the library opens it by its path) unless `slave` is to keep it.
  bool Open(std::string* path, int* slave = nullptr) {
    HangUp();
    char name[128] = {};
    int opened = -1;
    if (openpty(&master_, &opened, name, nullptr, nullptr) != 0) return false;
    *path = name;
    if (slave)
      *slave = opened;
    else
      close(opened);
    return true;
  }

  // "<speed> <stop bits>"; "" when closed. Linux keeps only these of a
  // pseudo-terminal's line: it has no parity and always 8 data bits.
  std::string Settings() const {
    termios tio{};
    if (master_ < 0 || tcgetattr(master_, &tio) != 0) return "";
    const speed_t speeds[] = {B1200, B2400, B4800, B9600, B19200, B38400, B57600, B115200};
    const unsigned rates[] = {1200, 2400, 4800, 9600, 19200, 38400, 57600, 115200};
    unsigned rate = 0;
    for (size_t i = 0; i < sizeof rates / sizeof rates[0]; ++i)
      if (cfgetospeed(&tio) == speeds[i]) rate = rates[i];
    return std::to_string(rate) + ((tio.c_cflag & CSTOPB) ? " 2" : " 1");
  }

  bool Send(const std::string& bytes) {
    for (size_t done = 0; done < bytes.size();) {
      const ssize_t n = master_ < 0 ? -1 : write(master_, bytes.data() + done, bytes.size() - done);
      if (n <= 0) return false;
      done += static_cast<size_t>(n);
    }
    return true;
  }

  // What the library wrote, up to `max` bytes, waiting at most `waitMs` for each part.
  std::string Receive(size_t max, int waitMs) {
    std::string got;
    char chunk[4096];
    while (master_ >= 0 && got.size() < max) {
      pollfd p{master_, POLLIN, 0};
      if (poll(&p, 1, waitMs) <= 0) break;
      const ssize_t n = read(master_, chunk, std::min(sizeof chunk, max - got.size()));
      if (n <= 0) break;
      got.append(chunk, static_cast<size_t>(n));
    }
    return got;
  }

  void HangUp() {
    if (master_ >= 0) close(master_);
    master_ = -1;
  }

  int Master() const { return master_; }

 private:
  int master_ = -1;
};

}  // namespace kavo::test
