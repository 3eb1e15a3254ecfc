// What a receiver gives the server: complete TPV and SKY objects, the raw
// sentences as they arrived, and the device coming and going. The data side
// (the library's driver) and the network side meet only here.
#pragma once

#include <string>

namespace kavo::serve {

// The receiver as clients see it in DEVICE objects.
struct DeviceState {
  std::string path;  // port or recording, as the user named it
  std::string driver = "NMEA0183";
  int bps = 0;            // 0: not a serial port
  std::string activated;  // when it was opened (ISO 8601); empty while gone
};

// Every call may come from any thread, the library's reading thread among
// them, and returns at once: whatever talks to a client is done elsewhere.
// `device` is the receiver's DeviceState::path.
class FeedSink {
 public:
  virtual ~FeedSink() = default;
  // One epoch's TPV and, when the sky changed, its SKY (else empty): sent
  // together, so that a client gets them in one write.
  virtual void Epoch(const std::string& device, std::string tpv, std::string sky) = 0;
  // Whether anyone reads the raw sentences: when not, they are not handed over.
  virtual bool WantsNmea() const = 0;
  virtual void Nmea(const std::string& device, std::string sentence) = 0;  // without its line end
  virtual void Device(DeviceState state) = 0;
};

}  // namespace kavo::serve
