#include "nmea/receiver_state_store.h"

namespace kavo::nmea {

int ReceiverStateStore::Reset() {
  const CriticalSectionLock::Guard guard(lock_);
  state_.Reset();
  framer_.ResetSky();
  return 1;
}

void ReceiverStateStore::Clear() {
  const CriticalSectionLock::Guard guard(lock_);
  framer_.Clear();
}

int ReceiverStateStore::ProcessChunk(WideView chunk) {
  const CriticalSectionLock::Guard guard(lock_);
  return framer_.Process(chunk, state_);
}

}  // namespace kavo::nmea
