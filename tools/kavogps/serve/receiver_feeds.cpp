#include "serve/receiver_feeds.h"

#include <atomic>
#include <memory>
#include <thread>

#include "serve/source_stop.h"
#include "serve/time_outputs.h"
#include "session/command_line.h"

namespace kavo::serve {
namespace {

// One receiver: its feed, what stops it, and where its time goes.
struct ReceiverFeed {
  ReceiverFeed(FeedSink& sink, LineLog& log) : err(log), feed(sink, err) {}
  LogWriter err;
  DriverFeed feed;
  SourceStop stop;
  std::vector<std::unique_ptr<LogWriter>> timeErr;  // the outputs write on the reading thread
  std::vector<std::unique_ptr<TimeOutput>> timeOutputs;
  std::thread thread;
  int code = cli::kExitOk;
};

// Gives `receiver` the time outputs `source` asks for; false when one
// cannot be made (it said why).
bool AddTimeOutputs(const SourceSpec& source, LineLog& log, ReceiverFeed* receiver) {
  const std::string named = NamedDevice(source).path;
  const std::string device = named.empty() ? "the receiver found" : named;
  const auto add = [&](auto make) {
    receiver->timeErr.push_back(std::make_unique<LogWriter>(log));
    std::unique_ptr<TimeOutput> output = make(*receiver->timeErr.back());
    if (!output) return false;
    receiver->feed.AddTimeOutput(*output);
    receiver->timeOutputs.push_back(std::move(output));
    return true;
  };
  if (!source.chronySock.empty() &&
      !add([&](std::ostream& err) { return ChronySockOutput(source.chronySock, device, err); }))
    return false;
  return source.ntpShmUnit < 0 || add([&](std::ostream& err) { return NtpShmOutput(source.ntpShmUnit, device, err); });
}

}  // namespace

int RunReceiverFeeds(const std::vector<SourceSpec>& sources, FeedSink& sink, LineLog& log, cli::Waiter& interrupt) {
  std::vector<std::unique_ptr<ReceiverFeed>> receivers;
  for (const SourceSpec& source : sources) {
    receivers.push_back(std::make_unique<ReceiverFeed>(sink, log));
    if (!AddTimeOutputs(source, log, receivers.back().get())) return cli::kExitFailure;
  }
  std::atomic<size_t> running{receivers.size()};
  for (size_t i = 0; i < receivers.size(); ++i) {
    ReceiverFeed& receiver = *receivers[i];
    receiver.thread = std::thread([&receiver, &source = sources[i], &running, &interrupt] {
      receiver.code = receiver.feed.Run(source, receiver.stop);
      --running;
      interrupt.Wake();  // the last one to end ends the server
    });
  }
  // Each feed wakes this thread as it ends; the bound only matters were a
  // wake ever lost.
  bool interrupted = false;
  while (running > 0 && !(interrupted = interrupt.Wait(60000))) {}
  for (auto& receiver : receivers) receiver->stop.Stop();
  int code = cli::kExitOk;
  for (auto& receiver : receivers) {
    receiver->thread.join();
    if (code == cli::kExitOk) code = receiver->code;
  }
  return interrupted ? cli::kExitOk : code;
}

}  // namespace kavo::serve
