// The KavoMobileGPS_ driver functions: drivers whose callbacks carry the
// application's context, the status they announce and the location their
// mask describes. Otherwise they are the drivers of the GPSDriver_ ones.
#include "KavoMobileGPS.h"
#include "api/frames.h"
#include "api/handles.h"
#include "driver/driver_factory.h"

using kavo::api::CreatingFrame;

extern "C" {

KAVOGPS_API GPSDriverHandle KavoMobileGPS_CreateDriverFromFile(const KavoChar* path, uint32_t msPerLine, uint8_t repeat,
                                                               const KavoMobileGPS_Callbacks* callbacks,
                                                               void* context) {
  return CreatingFrame<GPSDriverHandle>(path != nullptr && msPerLine > 0, [&](kavo::CIMExceptionImpl&) {
    return kavo::api::HandOut(kavo::CreateDriverFromFile(kavo::api::FromCaller(path), msPerLine, repeat != 0,
                                                         kavo::DriverCallbacks(callbacks, context)));
  });
}

KAVOGPS_API GPSDriverHandle KavoMobileGPS_CreateDriverFromCOMPort(COMPortInfoHandle port,
                                                                  const KavoMobileGPS_Callbacks* callbacks,
                                                                  void* context) {
  return CreatingFrame<GPSDriverHandle>(port != nullptr, [&](kavo::CIMExceptionImpl&) {
    return kavo::api::HandOut(
        kavo::CreateDriverFromPort(*kavo::api::PortInfo(port), kavo::DriverCallbacks(callbacks, context)));
  });
}

}  // extern "C"
