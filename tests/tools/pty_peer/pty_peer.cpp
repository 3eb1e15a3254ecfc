// pty_peer: plays a GPS receiver on a pseudo-terminal for a Windows test
// program running under Wine.
//
//   pty_peer -- <wine> <program.exe> [arguments...]
//
// It links $WINEPREFIX/dosdevices/comN (the first free N of 1 to 9) to the
// pseudo-terminal, so that the program opens "COMN" as a serial port, then
// runs the command with KAVOGPS_PTY_PEER set to a loopback TCP port on which
// it answers one-line commands, each with "OK[ value]" or "ERR reason":
//   NEW              a fresh pseudo-terminal behind the COM name -> OK COMN
//   SETTINGS         the line settings Wine set -> OK <speed> <N|O|E|M|S> <bits> <stop bits>
//   SEND <hex>       writes the bytes to the program
//   RECV <max> <ms>  what the program wrote -> OK <hex>
//   HANGUP           closes the receiver's side
// Its exit status is the program's. Linux only.
#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <pty.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sstream>
#include <string>
#include <vector>

namespace {

std::string g_link;  // dosdevices/comN, removed at exit
int g_master = -1;
pid_t g_holder = -1;
std::string g_comName;

void Fail(const std::string& what) {
  std::fprintf(stderr, "pty_peer: %s: %s\n", what.c_str(), std::strerror(errno));
  if (!g_link.empty()) unlink(g_link.c_str());
  std::exit(2);
}

std::string WinePrefix() {
  if (const char* prefix = std::getenv("WINEPREFIX")) return prefix;
  const char* home = std::getenv("HOME");
  return std::string(home ? home : "/root") + "/.wine";
}

bool IsDirectory(const std::string& path) {
  struct stat info {};
  return stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

int RunAndWait(std::vector<std::string> args) {
  std::vector<char*> argv;
  for (std::string& a : args) argv.push_back(a.data());
  argv.push_back(nullptr);
  const pid_t child = fork();
  if (child < 0) Fail("fork");
  if (child == 0) {
    execvp(argv[0], argv.data());
    std::fprintf(stderr, "pty_peer: cannot run %s: %s\n", argv[0], std::strerror(errno));
    _exit(127);
  }
  int status = 0;
  while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

void CloseTerminal() {
  if (g_master >= 0) close(g_master);
  g_master = -1;
  if (g_holder > 0) {
    kill(g_holder, SIGKILL);
    waitpid(g_holder, nullptr, 0);
  }
  g_holder = -1;
}

// The wineserver opens devices for its clients and, being a session leader
// without a terminal, would take the pseudo-terminal as its controlling
// terminal and receive SIGHUP at every hang-up. A process of ours holds it
// as its own controlling terminal instead.
pid_t HoldAsControllingTerminal(int slave) {
  int ready[2];
  if (pipe(ready) != 0) Fail("pipe");
  const pid_t holder = fork();
  if (holder < 0) Fail("fork");
  if (holder == 0) {
    signal(SIGHUP, SIG_IGN);
    const char held = setsid() >= 0 && ioctl(slave, TIOCSCTTY, 0) == 0 ? 'y' : 'n';
    if (write(ready[1], &held, 1) != 1 || held != 'y') _exit(1);
    for (;;) pause();
  }
  close(ready[1]);
  char held = 0;
  if (read(ready[0], &held, 1) != 1 || held != 'y') Fail("holding the terminal");
  close(ready[0]);
  return holder;
}

// Opens a fresh pseudo-terminal and points the COM link at it.
void NewTerminal(const std::string& dosdevices) {
  CloseTerminal();
  int slave = -1;
  char name[128] = {};
  if (openpty(&g_master, &slave, name, nullptr, nullptr) != 0) Fail("openpty");
  g_holder = HoldAsControllingTerminal(slave);
  close(slave);  // the program opens it by name
  if (g_link.empty()) {
    for (int n = 1; n <= 9 && g_link.empty(); ++n) {
      const std::string link = dosdevices + "/com" + std::to_string(n);
      if (symlink(name, link.c_str()) == 0) {
        g_link = link;
        g_comName = "COM" + std::to_string(n);
      } else if (errno != EEXIST) {
        Fail("symlink " + link);
      }
    }
    if (g_link.empty()) Fail("no free COM name among com1..com9 in " + dosdevices);
    return;
  }
  const std::string temporary = g_link + ".new";
  unlink(temporary.c_str());
  if (symlink(name, temporary.c_str()) != 0 || rename(temporary.c_str(), g_link.c_str()) != 0)
    Fail("relinking " + g_link);
}

std::string Hex(const std::string& bytes) {
  static const char digits[] = "0123456789abcdef";
  std::string out;
  for (unsigned char b : bytes) {
    out += digits[b >> 4];
    out += digits[b & 15];
  }
  return out;
}

std::string Settings() {
  termios tio {};
  if (g_master < 0 || tcgetattr(g_master, &tio) != 0) return "ERR no terminal";
  const speed_t speeds[] = {B1200, B2400, B4800, B9600, B19200, B38400, B57600, B115200};
  const unsigned rates[] = {1200, 2400, 4800, 9600, 19200, 38400, 57600, 115200};
  unsigned rate = 0;
  for (size_t i = 0; i < sizeof rates / sizeof rates[0]; ++i)
    if (cfgetospeed(&tio) == speeds[i]) rate = rates[i];
  const tcflag_t size = tio.c_cflag & CSIZE;
  const int bits = size == CS5 ? 5 : size == CS6 ? 6 : size == CS7 ? 7 : 8;
  char parity = 'N';
  if (tio.c_cflag & PARENB) {
    if (tio.c_cflag & CMSPAR) parity = (tio.c_cflag & PARODD) ? 'M' : 'S';
    else parity = (tio.c_cflag & PARODD) ? 'O' : 'E';
  }
  std::ostringstream out;
  out << "OK " << rate << ' ' << parity << ' ' << bits << ' ' << ((tio.c_cflag & CSTOPB) ? 2 : 1);
  return out.str();
}

std::string Send(const std::string& hex) {
  std::string bytes;
  for (size_t i = 0; i + 1 < hex.size(); i += 2) bytes += static_cast<char>(std::stoi(hex.substr(i, 2), nullptr, 16));
  size_t done = 0;
  while (done < bytes.size()) {
    const ssize_t n = write(g_master, bytes.data() + done, bytes.size() - done);
    if (n <= 0) return "ERR write failed";
    done += static_cast<size_t>(n);
  }
  return "OK";
}

std::string Receive(size_t max, int waitMs) {
  std::string got;
  char chunk[4096];
  while (g_master >= 0 && got.size() < max) {
    pollfd p{g_master, POLLIN, 0};
    if (poll(&p, 1, waitMs) <= 0) break;
    const ssize_t n = read(g_master, chunk, std::min(sizeof chunk, max - got.size()));
    if (n <= 0) break;
    got.append(chunk, static_cast<size_t>(n));
  }
  return "OK " + Hex(got);
}

std::string Answer(const std::string& line, const std::string& dosdevices) {
  std::istringstream in(line);
  std::string command;
  in >> command;
  if (command == "NEW") {
    NewTerminal(dosdevices);
    return "OK " + g_comName;
  }
  if (command == "SETTINGS") return Settings();
  if (command == "SEND") {
    std::string hex;
    in >> hex;
    return g_master < 0 ? "ERR no terminal" : Send(hex);
  }
  if (command == "RECV") {
    size_t max = 0;
    int waitMs = 0;
    in >> max >> waitMs;
    return Receive(max, waitMs);
  }
  if (command == "HANGUP") {
    CloseTerminal();
    return "OK";
  }
  return "ERR unknown command";
}

}  // namespace

int main(int argc, char** argv) {
  int first = 1;
  if (first < argc && std::strcmp(argv[first], "--") == 0) ++first;
  if (first + 1 >= argc) {
    std::fprintf(stderr, "usage: pty_peer -- <wine> <program.exe> [arguments...]\n");
    return 2;
  }
  const std::string wine = argv[first];
  const std::string dosdevices = WinePrefix() + "/dosdevices";
  if (!IsDirectory(dosdevices) && RunAndWait({wine, "wineboot", "-i"}) != 0) Fail("wineboot");
  if (!IsDirectory(dosdevices)) Fail("no " + dosdevices);

  const int listener = socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t length = sizeof address;
  if (listener < 0 || bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
      listen(listener, 4) != 0 || getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length) != 0)
    Fail("listening on the loopback");
  setenv("KAVOGPS_PTY_PEER", std::to_string(ntohs(address.sin_port)).c_str(), 1);
  NewTerminal(dosdevices);

  const pid_t child = fork();
  if (child < 0) Fail("fork");
  if (child == 0) {
    close(listener);
    execvp(argv[first], argv + first);
    std::fprintf(stderr, "pty_peer: cannot run %s: %s\n", argv[first], std::strerror(errno));
    _exit(127);
  }

  int client = -1;
  std::string pending;
  int status = 0;
  for (;;) {
    const pid_t done = waitpid(child, &status, WNOHANG);
    if (done == child) break;
    pollfd p{client >= 0 ? client : listener, POLLIN, 0};
    if (poll(&p, 1, 200) <= 0) continue;
    if (client < 0) {
      client = accept(listener, nullptr, nullptr);
      continue;
    }
    char chunk[8192];
    const ssize_t n = read(client, chunk, sizeof chunk);
    if (n <= 0) {
      close(client);
      client = -1;
      continue;
    }
    pending.append(chunk, static_cast<size_t>(n));
    size_t end;
    while ((end = pending.find('\n')) != std::string::npos) {
      const std::string answer = Answer(pending.substr(0, end), dosdevices) + "\n";
      pending.erase(0, end + 1);
      if (write(client, answer.data(), answer.size()) < 0) break;
    }
  }
  if (client >= 0) close(client);
  close(listener);
  CloseTerminal();
  unlink(g_link.c_str());
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}
