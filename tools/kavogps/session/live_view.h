// How a session shows its epochs: a screen redrawn in place on a terminal,
// one line per epoch when the output goes to a file or pipe, JSON lines for
// programs, or the sentences themselves as they arrive.
#pragma once

#include <chrono>
#include <ostream>
#include <string>

#include "session/epoch_assembler.h"
#include "session/reading.h"

namespace kavo::cli {

// The screen's lines for `reading`, under `title`, without escapes. With
// `rows` above 0 the screen keeps to that many lines, the satellite list
// ending with how many more there are.
std::string RenderScreen(const Reading& reading, const std::string& title, int rows = 0);
// One line: time, position, fix, satellites, motion, precision, status.
std::string RenderLine(const Reading& reading);
// "[#######   ]" for a signal-to-noise ratio in dB-Hz.
std::string SignalBar(int32_t snr);

class ReadingView {
 public:
  virtual ~ReadingView() = default;
  virtual void Show(const EpochReport& report) = 0;
  // A sentence as the receiver sent it, before its epoch is complete.
  virtual void Sentence(const std::string&) {}
  // The driver's status, as it may change between epochs.
  virtual void Status(int32_t) {}
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
  void Show(const EpochReport& report) override;
  void Status(int32_t status) override;
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
  void Show(const EpochReport& report) override;

 private:
  std::ostream& out_;
};

// A TPV object per epoch, and a SKY object when the sky changed.
class JsonView : public ReadingView {
 public:
  JsonView(std::ostream& out, std::string device) : out_(out), device_(std::move(device)) {}
  void Show(const EpochReport& report) override;

 private:
  std::ostream& out_;
  std::string device_;
};

// The sentences as received, one per line.
class SentenceView : public ReadingView {
 public:
  explicit SentenceView(std::ostream& out) : out_(out) {}
  void Show(const EpochReport&) override {}
  void Sentence(const std::string& sentence) override { out_ << sentence << '\n' << std::flush; }

 private:
  std::ostream& out_;
};

}  // namespace kavo::cli
