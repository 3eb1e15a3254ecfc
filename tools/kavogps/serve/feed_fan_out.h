// One feed, several outputs: the TCP server and whatever else publishes a
// receiver's reports. Each output decides on its own whether it wants the
// raw sentences.
#pragma once

#include <vector>

#include "serve/feed.h"

namespace kavo::serve {

class FeedFanOut : public FeedSink {
 public:
  // Outputs are added before the feed starts and outlive it.
  void Add(FeedSink& output) { outputs_.push_back(&output); }

  void Epoch(const std::string& device, std::string tpv, std::string sky) override {
    for (FeedSink* output : outputs_) output->Epoch(device, tpv, sky);
  }
  bool WantsNmea() const override {
    for (const FeedSink* output : outputs_)
      if (output->WantsNmea()) return true;
    return false;
  }
  void Nmea(const std::string& device, std::string sentence) override {
    for (FeedSink* output : outputs_)
      if (output->WantsNmea()) output->Nmea(device, sentence);
  }
  void Device(DeviceState state) override {
    for (FeedSink* output : outputs_) output->Device(state);
  }

 private:
  std::vector<FeedSink*> outputs_;
};

}  // namespace kavo::serve
