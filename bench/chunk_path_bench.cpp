// Throughput of the chunk path: framing, dispatch, the parsers and the
// store, fed in chunks of 1024 characters as the reading thread delivers
// them.
//
//   bench_chunk_path [--smoke] [--talkers LIST] [--checksums MODE] [recording.nmea]
//
// Without a file it plays a recording the simulator makes in memory: a
// receiver driving at one epoch a second, sending GGA, GSA, GSV, RMC and
// VTG, so that no large file lives in the repository. The receiver options
// are the library's defaults unless given.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>

#include "log/logger.h"
#include "nmea/receiver_state_store.h"
#include "sim/simulator.h"
#include "support/wide_string.h"

namespace {

constexpr size_t kChunk = 1024;

// Counts the log lines of rejected sentences instead of printing them: a
// damaged recording would flood the terminal.
class CountingSink : public kavo::LogSink {
 public:
  int WriteText(const char16_t*) override { return ++lines_, 1; }
  int Flush() override { return 1; }
  size_t Lines() const { return lines_; }

 private:
  size_t lines_ = 0;
};

// About `bytes` of a simulated drive, CR LF line ends; the same every run.
std::string SimulatedRecording(size_t bytes) {
  kavo::sim::SimulatorOptions options;
  options.seed = 12345;
  options.mode = kavo::sim::Mode::kDrive;
  kavo::sim::Simulator simulator(options);
  std::string text;
  text.reserve(bytes + 4096);
  while (text.size() < bytes) text += simulator.Next().Text();
  return text;
}

struct Pass {
  double seconds = 0;
  size_t lines = 0;
  size_t recognised = 0;
};

Pass Play(const std::u16string& text, int repeats, const kavo::nmea::ReceiverOptions& options) {
  kavo::nmea::ReceiverStateStore store(options);
  store.Reset();
  Pass pass;
  const auto start = std::chrono::steady_clock::now();
  for (int r = 0; r < repeats; ++r) {
    for (size_t at = 0; at < text.size(); at += kChunk) {
      store.ProcessChunk(std::u16string_view(text).substr(at, kChunk));
      pass.recognised += store.RecognisedSentences().Count();
    }
  }
  pass.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  pass.lines = static_cast<size_t>(std::count(text.begin(), text.end(), u'\n')) * repeats;
  return pass;
}

// The characters a recording holds, as the file playback reads them: a
// byte-order mark says UTF-16 or UTF-8; without one, byte for byte, as on a
// single-byte code page. (Widening a UTF-16 file byte for byte would time a
// stream of NULs in which no sentence is found.)
std::u16string Decode(const std::string& bytes) {
  const auto byte = [&](size_t i) { return static_cast<unsigned char>(bytes[i]); };
  const bool little = bytes.size() >= 2 && byte(0) == 0xFF && byte(1) == 0xFE;
  if (little || (bytes.size() >= 2 && byte(0) == 0xFE && byte(1) == 0xFF)) {
    std::u16string text;
    for (size_t i = 2; i + 1 < bytes.size(); i += 2)
      text += static_cast<char16_t>(little ? byte(i) | byte(i + 1) << 8 : byte(i) << 8 | byte(i + 1));
    return text;
  }
  if (bytes.compare(0, 3, "\xEF\xBB\xBF") == 0) return kavo::FromUtf8(std::string_view(bytes).substr(3));
  std::u16string text(bytes.size(), u'\0');
  std::transform(bytes.begin(), bytes.end(), text.begin(),
                 [](char c) { return static_cast<char16_t>(static_cast<unsigned char>(c)); });
  return text;
}

}  // namespace

int main(int argc, char** argv) {
  bool smoke = false;
  const char* path = nullptr;
  kavo::nmea::ReceiverOptions options;
  for (int i = 1; i < argc; ++i) {
    const bool hasValue = i + 1 < argc;
    if (std::strcmp(argv[i], "--smoke") == 0)
      smoke = true;
    else if (hasValue && std::strcmp(argv[i], "--talkers") == 0 && options.SetTalkers(argv[i + 1]))
      ++i;
    else if (hasValue && std::strcmp(argv[i], "--checksums") == 0 && options.SetChecksums(argv[i + 1]))
      ++i;
    else if (argv[i][0] == '-')
      return std::fprintf(stderr, "usage: %s [--smoke] [--talkers LIST] [--checksums MODE] [recording.nmea]\n",
                          argv[0]),
             2;
    else
      path = argv[i];
  }

  std::string bytes;
  if (path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) return std::fprintf(stderr, "cannot open %s\n", path), 1;
    bytes.assign(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
  } else {
    bytes = SimulatedRecording(smoke ? (1u << 20) : (32u << 20));
  }
  if (bytes.empty()) return std::fprintf(stderr, "the recording is empty\n"), 1;
  const std::u16string text = Decode(bytes);

  kavo::Ref<CountingSink> log(new CountingSink);
  kavo::Logger::Instance().SetSink(kavo::Ref<kavo::LogSink>(log.get()));

  // Repeat a small recording so that every pass lasts long enough to time.
  const int repeats = std::max<int>(1, static_cast<int>((smoke ? (1u << 20) : (32u << 20)) / bytes.size()));
  Play(text, 1, options);  // warm-up: buffers grown, pages touched
  Pass best;
  for (int i = 0; i < (smoke ? 1 : 5); ++i) {
    const Pass pass = Play(text, repeats, options);
    if (best.seconds == 0 || pass.seconds < best.seconds) best = pass;
  }
  if (best.recognised == 0) std::fprintf(stderr, "warning: no sentence was recognised\n");

  const double megabytes = static_cast<double>(bytes.size()) * repeats / 1e6;
  std::printf("recording: %s, %zu bytes x %d\n", path ? path : "generated", bytes.size(), repeats);
  std::printf("lines: %zu, recognised sentences: %zu, best of %d passes: %.3f s\n", best.lines, best.recognised,
              smoke ? 1 : 5, best.seconds);
  std::printf("log lines of rejected sentences, all passes: %zu\n", log->Lines());
  std::printf("sentences per second: %.0f\n", best.lines / best.seconds);
  std::printf("megabytes per second: %.1f\n", megabytes / best.seconds);
  return 0;
}
