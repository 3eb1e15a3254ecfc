// The playback control of a serial port: the port flows from the moment it
// is opened, so there is nothing to pause or resume.
#pragma once

#include "sources/data_source.h"

namespace kavo {

class NullPlaybackControl : public PlaybackControl {
 public:
  int Pause() override { return 1; }
  int Resume(CIMExceptionImpl*) override { return 1; }
};

}  // namespace kavo
