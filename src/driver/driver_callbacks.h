// The application's callbacks of one driver, in either form the header
// offers: the contract's three without a context, or the three of
// KavoMobileGPS_Callbacks with one. A missing callback is skipped.
#pragma once

#include <cstdint>

#include "KavoMobileGPS.h"

namespace kavo {

class DriverCallbacks {
 public:
  DriverCallbacks() = default;
  DriverCallbacks(GPSStatusCallback onStatus, GPSDataCallback onData, GPSSentenceCallback onSentence)
      : onStatus_(onStatus), onData_(onData), onSentence_(onSentence) {}
  // Copies the table: the caller's may go once the driver is made.
  DriverCallbacks(const KavoMobileGPS_Callbacks* callbacks, void* context)
      : withContext_(callbacks ? *callbacks : KavoMobileGPS_Callbacks{}), context_(context) {}

  void Status(int32_t status) const {
    if (onStatus_) onStatus_();
    if (withContext_.onStatus) withContext_.onStatus(context_, status);
  }
  void Data(uint32_t mask, const GPSLocation& location) const {
    if (onData_) onData_(mask);
    if (withContext_.onData) withContext_.onData(context_, mask, &location);
  }
  // The library's text is UTF-16 in char16_t; the caller's is KavoChar,
  // the same 16-bit units under the platform's name for them.
  void Sentence(const char16_t* text) const {
    const auto* callerText = reinterpret_cast<const KavoChar*>(text);
    if (onSentence_) onSentence_(callerText);
    if (withContext_.onSentence) withContext_.onSentence(context_, callerText);
  }

 private:
  GPSStatusCallback onStatus_ = nullptr;
  GPSDataCallback onData_ = nullptr;
  GPSSentenceCallback onSentence_ = nullptr;
  KavoMobileGPS_Callbacks withContext_{};
  void* context_ = nullptr;
};

}  // namespace kavo
