// pty_peer: plays a GPS receiver on a pseudo-terminal for a Windows test
// program under Wine: `WINEPREFIX=<booted prefix> pty_peer -- <wine> <program.exe>`.
// It links $WINEPREFIX/dosdevices/comN (the first free N of 1 to 9) to the
// pseudo-terminal and runs the program with KAVOGPS_PTY_PEER set to a
// loopback TCP port, where it answers "OK[ value]" or "ERR reason" to:
//   NEW              a fresh pseudo-terminal behind the COM name -> OK COMN
//   SETTINGS         the line settings Wine set -> OK <speed> <stop bits>
//   SEND <hex>       writes the bytes to the program
//   RECV <max> <ms>  what the program wrote -> OK <hex>
// Its exit status is the program's. Linux only.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/wait.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sstream>

#include "hex.h"
#include "pty_receiver.h"

namespace {

using kavo::test::PtyReceiver;

std::string g_link;  // dosdevices/comN, removed at exit
std::string g_comName;
PtyReceiver g_receiver;
pid_t g_holder = -1;

void Fail(const std::string& what) {
  std::fprintf(stderr, "pty_peer: %s: %s\n", what.c_str(), std::strerror(errno));
  if (!g_link.empty()) unlink(g_link.c_str());
  std::exit(2);
}

void HangUp() {
  g_receiver.HangUp();
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

// Opens a fresh pseudo-terminal and points the COM link at it. Commands
// come one at a time, so the program is not opening the link meanwhile.
void NewTerminal(const std::string& dosdevices) {
  HangUp();
  std::string name;
  int slave = -1;
  if (!g_receiver.Open(&name, &slave)) Fail("openpty");
  g_holder = HoldAsControllingTerminal(slave);
  close(slave);  // the program opens it by name
  if (!g_link.empty()) {
    if (unlink(g_link.c_str()) != 0 || symlink(name.c_str(), g_link.c_str()) != 0) Fail("relinking " + g_link);
    return;
  }
  for (int n = 1; n <= 9; ++n) {
    g_link = dosdevices + "/com" + std::to_string(n);
    g_comName = "COM" + std::to_string(n);
    if (symlink(name.c_str(), g_link.c_str()) == 0) return;
    if (errno != EEXIST) break;
  }
  g_link.clear();
  Fail("no free COM name among com1..com9 in " + dosdevices);
}

std::string Answer(const std::string& line, const std::string& dosdevices) {
  std::istringstream in(line);
  std::string command, argument;
  in >> command;
  if (command == "NEW") {
    NewTerminal(dosdevices);
    return "OK " + g_comName;
  }
  if (command == "SETTINGS") {
    const std::string settings = g_receiver.Settings();
    return settings.empty() ? "ERR no terminal" : "OK " + settings;
  }
  if (command == "SEND")
    return in >> argument && g_receiver.Send(kavo::test::Unhex(argument)) ? "OK" : "ERR write failed";
  if (command == "RECV") {
    size_t max = 0;
    int waitMs = 0;
    in >> max >> waitMs;
    return "OK " + kavo::test::Hex(g_receiver.Receive(max, waitMs));
  }
  return "ERR unknown command";
}

}  // namespace

int main(int argc, char** argv) {
  const char* prefix = std::getenv("WINEPREFIX");
  if (argc < 3 || std::strcmp(argv[1], "--") != 0 || !prefix) {
    std::fprintf(stderr, "usage: WINEPREFIX=<booted prefix> pty_peer -- <wine> <program.exe> [arguments...]\n");
    return 2;
  }
  const std::string dosdevices = std::string(prefix) + "/dosdevices";
  if (access(dosdevices.c_str(), W_OK) != 0) Fail(dosdevices + " (boot the prefix with wineboot -i first)");

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
    execvp(argv[2], argv + 2);
    std::fprintf(stderr, "pty_peer: cannot run %s: %s\n", argv[2], std::strerror(errno));
    _exit(127);
  }

  int client = -1;
  std::string pending;
  int status = 0;
  while (waitpid(child, &status, WNOHANG) != child) {
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
    for (size_t end; (end = pending.find('\n')) != std::string::npos;) {
      const std::string answer = Answer(pending.substr(0, end), dosdevices) + "\n";
      pending.erase(0, end + 1);
      if (write(client, answer.data(), answer.size()) < 0) break;
    }
  }
  if (client >= 0) close(client);
  close(listener);
  HangUp();
  unlink(g_link.c_str());
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}
