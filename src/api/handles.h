// What the opaque handles of the public header point to.
#pragma once

#include "KavoMobileGPS.h"
#include "driver/gps_driver.h"
#include "ports/com_port_collection.h"
#include "sources/com_port_info.h"
#include "support/ref_counted.h"

// The handle types are declared, never defined, in the public header; the
// library defines them here as the objects behind the handles.
struct GPSDriverObject {
  kavo::Ref<kavo::GpsDriver> driver;
};

// A satellites snapshot is the record itself.
struct GPSSatellitesStateObject : GPSSatellites {};

// A port handle is the port description itself.
struct COMPortInfoObject : kavo::COMPortInfo {
  using COMPortInfo::COMPortInfo;
};

// A collection handle is a small holder of one reference to the collection.
struct COMPortCollectionObject {
  kavo::Ref<kavo::COMPortCollection> ports;
};

namespace kavo::api {

// The handle's holder takes the driver's first reference.
inline GPSDriverHandle HandOut(Ref<GpsDriver> driver) {
  OwningHolder<GPSDriverObject> holder(new GPSDriverObject);
  holder->driver = std::move(driver);
  return holder.Detach();
}

inline const char16_t* FromCaller(const KavoChar* text) { return reinterpret_cast<const char16_t*>(text); }

inline GPSSatellites* Snapshot(GPSSatellitesStateHandle state) { return state; }
inline COMPortInfo* PortInfo(COMPortInfoHandle port) { return port; }

}  // namespace kavo::api
