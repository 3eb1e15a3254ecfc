// COMPortInfo_FindGPSCOMPort: the port a GPS receiver talks on, and its speed.
#include "KavoMobileGPS.h"
#include "api/frames.h"
#include "api/handles.h"
#include "ports/gps_port_search.h"

extern "C" KAVOGPS_API COMPortInfoHandle COMPortInfo_FindGPSCOMPort(int32_t reserved) {
  return kavo::api::CreatingFrame<COMPortInfoHandle>(reserved >= 1, [&](kavo::CIMExceptionImpl& error) {
    kavo::OwningHolder<COMPortInfoObject> port(new COMPortInfoObject);
    int found = 0;
    kavo::CheckOrRaise(kavo::GpsPortSearch::FindGpsPort(reserved, port.get(), &found, &error), &error);
    kavo::CheckOrRaise(found, kavo::kErrPortNotFound);
    return port.Detach();
  });
}
