// How a session shows readings to a person: a screen redrawn in place on a
// terminal, or one line per change when the output goes to a file or pipe.
#pragma once

#include <chrono>
#include <ostream>
#include <string>

#include "cli/reading.h"

namespace kavo::cli {

// The screen's lines for `reading`, under `title`, without escapes.
std::string RenderScreen(const Reading& reading, const std::string& title);
// One line: time, position, fix, satellites, motion, precision, status.
std::string RenderLine(const Reading& reading);
// "[#######   ]" for a signal-to-noise ratio in dB-Hz.
std::string SignalBar(int32_t snr);

class ReadingView {
 public:
  virtual ~ReadingView() = default;
  virtual void Show(const Reading& reading) = 0;
  // Time passes without a new reading; a screen may redraw.
  virtual void Tick() {}
  // The session is over: whatever is pending goes out.
  virtual void Close() {}
};

// Redraws at most ten times a second, from the top of the screen. The
// screen is cut to the terminal's height (`rows`, 0 when unknown): a
// screen taller than the terminal would scroll instead of staying in place.
class TerminalView : public ReadingView {
 public:
  TerminalView(std::ostream& out, std::string title, int (*rows)() = nullptr)
      : out_(out), title_(std::move(title)), rows_(rows) {}
  void Show(const Reading& reading) override;
  void Tick() override;
  void Close() override;

 private:
  void Draw();
  std::ostream& out_;
  std::string title_;
  int (*rows_)();
  Reading latest_;
  bool pending_ = false, started_ = false;
  std::chrono::steady_clock::time_point lastDraw_{};
};

class LineView : public ReadingView {
 public:
  explicit LineView(std::ostream& out) : out_(out) {}
  void Show(const Reading& reading) override;

 private:
  std::ostream& out_;
  std::string last_;
};

// TPV and SKY objects, each written when it differs from the last one.
class JsonView : public ReadingView {
 public:
  JsonView(std::ostream& out, std::string device) : out_(out), device_(std::move(device)) {}
  void Show(const Reading& reading) override;

 private:
  std::ostream& out_;
  std::string device_, lastTpv_, lastSky_;
};

}  // namespace kavo::cli
