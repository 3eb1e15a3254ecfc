// What the tool needs from the console it runs in; per-OS files implement
// it.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>

#include "session/waiter.h"

namespace kavo::cli {

// Whether standard output is a terminal that understands ANSI escapes
// (switching them on where the console needs it).
bool StandardOutputIsAnsiTerminal();
bool StandardErrorIsTerminal();
// The rows of the terminal standard output shows, or 0 when unknown.
int StandardOutputRows();

// Writing to a closed pipe fails instead of ending the program, which then
// stops quietly (see StandardOutputClosed).
void SurviveClosedOutput();
// Whether standard output is a pipe or socket whose reader has gone: a
// normal way to stop reading (`kavogps play --json | head`).
bool StandardOutputClosed();

// Sets an environment variable of the process, as the library reads it.
bool SetEnvironment(const char* name, const std::string& value);

// The running program's own file.
std::filesystem::path ExecutablePath();

// Catches Ctrl+C (and, where there are signals, SIGTERM and SIGPIPE) for as
// long as it lives, so that a session can stop cleanly. Create it before
// the library starts its threads, so they never take the interruption.
class InterruptWatch : public Waiter {
 public:
  InterruptWatch();
  ~InterruptWatch() override;
  InterruptWatch(const InterruptWatch&) = delete;
  InterruptWatch& operator=(const InterruptWatch&) = delete;

  // True once an interruption came.
  bool Wait(uint32_t ms) override;
  void Wake() override;

 private:
  struct State;
  State* state_;
};

}  // namespace kavo::cli
