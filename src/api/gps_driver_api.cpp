// The GPSDriver_ functions: create a driver on a port or a recording, run
// it, and read what it decoded.
#include <new>

#include "KavoMobileGPS.h"
#include "api/frames.h"
#include "api/handles.h"
#include "driver/driver_factory.h"

namespace {

using kavo::api::AccessorFrame;
using kavo::api::CreatingFrame;
using kavo::api::OperationFrame;

using kavo::api::FromCaller;
using kavo::api::HandOut;

kavo::GpsDriver* Driver(GPSDriverHandle handle) { return handle->driver.get(); }

}  // namespace

extern "C" {

KAVOGPS_API GPSDriverHandle GPSDriver_CreateFromCOMPort(COMPortInfoHandle port, GPSStatusCallback onStatus,
                                                        GPSDataCallback onData, GPSSentenceCallback onSentence) {
  return CreatingFrame<GPSDriverHandle>(port != nullptr, [&](kavo::CIMExceptionImpl&) {
    return HandOut(
        kavo::CreateDriverFromPort(*kavo::api::PortInfo(port), kavo::DriverCallbacks(onStatus, onData, onSentence)));
  });
}

KAVOGPS_API GPSDriverHandle GPSDriver_CreateFromFile(const KavoChar* path, int32_t intervalMs, uint8_t repeat,
                                                     GPSStatusCallback onStatus, GPSDataCallback onData,
                                                     GPSSentenceCallback onSentence) {
  return CreatingFrame<GPSDriverHandle>(path != nullptr && intervalMs > 0, [&](kavo::CIMExceptionImpl&) {
    return HandOut(kavo::CreateDriverFromFile(FromCaller(path), static_cast<uint32_t>(intervalMs), repeat != 0,
                                              kavo::DriverCallbacks(onStatus, onData, onSentence)));
  });
}

KAVOGPS_API void GPSDriver_Release(GPSDriverHandle driver) {
  AccessorFrame<int>(driver != nullptr, 0, [&] {
    driver->driver->Detach();
    delete driver;
    return 0;
  });
}

KAVOGPS_API int32_t GPSDriver_Start(GPSDriverHandle driver) {
  return OperationFrame(driver != nullptr, [&](kavo::CIMExceptionImpl* error) { return Driver(driver)->Start(error); });
}

KAVOGPS_API int32_t GPSDriver_Stop(GPSDriverHandle driver) {
  // Stop reports no code of its own: a failure is the general one, which
  // reads as "not supported".
  return OperationFrame(driver != nullptr, [&](kavo::CIMExceptionImpl*) { return Driver(driver)->Stop(); });
}

KAVOGPS_API int32_t GPSDriver_GetLocation(GPSDriverHandle driver, GPSLocation* location) {
  return OperationFrame(driver != nullptr && location != nullptr,
                        [&](kavo::CIMExceptionImpl* error) { return Driver(driver)->GetLocation(location, error); });
}

KAVOGPS_API GPSSatellitesStateHandle GPSDriver_GetSatellitesInfo(GPSDriverHandle driver) {
  return CreatingFrame<GPSSatellitesStateHandle>(driver != nullptr, [&](kavo::CIMExceptionImpl& error) {
    kavo::OwningHolder<GPSSatellitesStateObject> snapshot(new GPSSatellitesStateObject{});
    snapshot->TimeType = GPS_TIME_LOCAL_CLOCK;
    kavo::CheckOrRaise(Driver(driver)->GetSatellitesInfo(snapshot.get(), &error), &error);
    return snapshot.Detach();
  });
}

KAVOGPS_API int32_t GPSDriver_GetStatus(GPSDriverHandle driver) {
  return AccessorFrame<int32_t>(driver != nullptr, GPS_STATUS_PARSE_ERROR, [&] { return Driver(driver)->GetStatus(); });
}

KAVOGPS_API int32_t GPSDriver_SetTimeoutInterval(GPSDriverHandle driver, int32_t intervalMs) {
  return OperationFrame(driver != nullptr && intervalMs >= 0, [&](kavo::CIMExceptionImpl* error) {
    return Driver(driver)->SetTimeoutInterval(static_cast<uint32_t>(intervalMs), error);
  });
}

KAVOGPS_API int32_t GPSDriver_GetTimeoutInterval(GPSDriverHandle driver) {
  return AccessorFrame<int32_t>(driver != nullptr, -1,
                                [&] { return static_cast<int32_t>(Driver(driver)->GetTimeoutInterval()); });
}

}  // extern "C"
