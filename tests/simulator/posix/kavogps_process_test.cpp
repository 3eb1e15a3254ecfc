// The kavogps program run as a user runs it: exit codes, files, signals.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <iterator>

#include "common/temp_dir.h"
#include "nmea_check.h"
#include "posix/pty_reader.h"

namespace kavo::test {
namespace {

struct Process {
  pid_t pid = -1;
  int out = -1, err = -1;  // read ends of its standard output and error
};

Process Spawn(const std::vector<std::string>& args) {
  int out[2], err[2];
  if (pipe(out) != 0 || pipe(err) != 0) return {};
  const pid_t pid = fork();
  if (pid == 0) {
    dup2(out[1], 1);
    dup2(err[1], 2);
    close(out[0]), close(out[1]), close(err[0]), close(err[1]);
    std::vector<char*> argv{const_cast<char*>(KAVOGPS_TOOL)};
    for (const std::string& a : args) argv.push_back(const_cast<char*>(a.c_str()));
    argv.push_back(nullptr);
    execv(KAVOGPS_TOOL, argv.data());
    _exit(127);
  }
  close(out[1]), close(err[1]);
  return {pid, out[0], err[0]};
}

std::string Drain(int fd) {
  std::string text;
  char buffer[4096];
  ssize_t n;
  while ((n = read(fd, buffer, sizeof buffer)) > 0) text.append(buffer, static_cast<size_t>(n));
  close(fd);
  return text;
}

// Runs the tool to its end: exit code, standard output, standard error.
int RunTool(const std::vector<std::string>& args, std::string* out, std::string* err) {
  Process p = Spawn(args);
  if (p.pid < 0) return -1;
  *out = Drain(p.out);
  *err = Drain(p.err);
  int status = 0;
  waitpid(p.pid, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST(KavogpsProcess, SimulateWritesARecordingAsAUserWouldAsk) {
  TempDir dir;
  const std::string file = dir.File("drive.nmea");
  std::string out, err;
  ASSERT_EQ(RunTool({"simulate", "--seed", "3", "--mode", "drive", "--duration", "20", "--proprietary",
                 "--encoding", "utf8", "--output", file},
                &out, &err),
            0)
      << err;
  EXPECT_NE(out.find("Wrote 20 epochs"), std::string::npos) << out;
  std::ifstream in(file, std::ios::binary);
  const std::string bytes{std::istreambuf_iterator<char>(in), {}};
  std::u32string text;
  std::string problem;
  ASSERT_TRUE(DecodeRecording(bytes, "utf8", &text, &problem)) << problem;

  size_t epochs = 0;
  for (size_t at = 0; (at = text.find(U"$GPRMC", at)) != std::u32string::npos; ++at) ++epochs;
  EXPECT_EQ(epochs, 20u);
  EXPECT_EQ(text.substr(text.size() - 2), U"\r\n");
}

TEST(KavogpsProcess, BadCommandLinesExitWithUsageErrorAndNoFile) {
  TempDir dir;
  const std::string file = dir.File("never.nmea");
  std::string out, err;
  EXPECT_EQ(RunTool({"simulate", "--damage", "3", "--output", file}, &out, &err), 2);
  EXPECT_NE(err.find("--damage"), std::string::npos) << err;
  EXPECT_EQ(out, "");
  EXPECT_FALSE(std::ifstream(file).good());
  // A write that fails is a failure, and a device named as the output is
  // not removed in the clean-up.
  if (access("/dev/full", W_OK) == 0) {
    EXPECT_EQ(RunTool({"simulate", "--output", "/dev/full"}, &out, &err), 1);
    EXPECT_NE(err.find("writing '/dev/full' failed"), std::string::npos) << err;
    EXPECT_EQ(access("/dev/full", F_OK), 0);
  }
  EXPECT_EQ(RunTool({"locate"}, &out, &err), 2);
  EXPECT_NE(err.find("unknown command"), std::string::npos);
  EXPECT_EQ(RunTool({"--help"}, &out, &err), 0);
  EXPECT_NE(out.find("simulate"), std::string::npos);
}

TEST(KavogpsProcess, LiveReceiverStreamsUntilSignalledThenExitsCleanly) {
  for (int signal : {SIGTERM, SIGINT}) {
    SCOPED_TRACE(signal);
    Process p = Spawn({"simulate", "--pty", "--rate", "20", "--baud", "9600"});
    ASSERT_GT(p.pid, 0);
    // The first line of its output names the port.
    std::string path;
    char c;
    while (read(p.out, &c, 1) == 1 && c != '\n') path += c;
    ASSERT_EQ(path.rfind("/dev/", 0), 0u) << path;
    {
      PtyReader reader(path, 9600);
      ASSERT_TRUE(reader.IsOpen());
      const std::string text = reader.ReadUntil(
          [](const std::string& t) { return t.find("$GPRMC") != std::string::npos; }, 10000);
      EXPECT_NE(text.find("$GPRMC"), std::string::npos);
    }
    kill(p.pid, signal);
    Drain(p.out);
    const std::string err = Drain(p.err);
    int status = 0;
    waitpid(p.pid, &status, 0);
    ASSERT_TRUE(WIFEXITED(status)) << "killed by a signal instead of stopping";
    EXPECT_EQ(WEXITSTATUS(status), 0);
    EXPECT_NE(err.find(signal == SIGINT ? "interrupted" : "terminated"), std::string::npos) << err;
  }
}

}  // namespace
}  // namespace kavo::test
