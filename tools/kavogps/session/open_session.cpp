#include "session/open_session.h"

namespace kavo::cli {

bool OpenSession(const SessionSource& source, bool viewsOnCallbackThread, OpenedSession* opened, uint32_t* error) {
  const bool recording = source.port == nullptr;
  SessionOptions options = recording ? PlaybackOptions(source.intervalMs, source.repeat) : SessionOptions{};
  options.viewsOnCallbackThread = viewsOnCallbackThread;
  if (!opened->callbacks.Claim()) {
    *error = KAVOGPS_ERROR_NOT_SUPPORTED;
    return false;
  }
  const SessionCallbacks& calls = opened->callbacks;
  opened->driver.reset(recording
                           ? GPSDriver_CreateFromFile(ToLibraryText(source.recording).c_str(),
                                                      static_cast<int32_t>(source.intervalMs), source.repeat ? 1 : 0,
                                                      calls.Status(), calls.Data(), calls.Sentence())
                           : GPSDriver_CreateFromCOMPort(source.port, calls.Status(), calls.Data(), calls.Sentence()));
  if (!opened->driver) {
    *error = KavoMobileGPS_GetLastError();
    return false;
  }
  if (recording) GPSDriver_SetTimeoutInterval(opened->driver.get(), static_cast<int32_t>(options.endTimeoutMs));
  opened->session = std::make_unique<DriverSession>(opened->driver.get(), opened->callbacks, options);
  return true;
}

}  // namespace kavo::cli
