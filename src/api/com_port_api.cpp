// The COMPortInfo_ and COMPortCollection_ functions: port descriptions the
// caller makes and changes, and the list of the device's ports.
#include "KavoMobileGPS.h"
#include "api/frames.h"
#include "api/handles.h"
#include "api/port_parameters.h"

namespace {

using kavo::api::AccessorFrame;
using kavo::api::CreatingFrame;

const char16_t* FromCaller(const KavoChar* text) { return reinterpret_cast<const char16_t*>(text); }

// Create completes "COM1" to "COM1:"; a name of the full 20 characters has
// no room for the colon and stays as it is.
void CompleteName(COMPortInfoObject* port) {
  const size_t length = kavo::WideLength(port->Name);
  if (length == 0 || length == kavo::COMPortInfo::kMaxName || port->Name[length - 1] == u':') return;
  port->Name[length] = u':';
  port->Name[length + 1] = 0;
}

}  // namespace

extern "C" {

KAVOGPS_API COMPortInfoHandle COMPortInfo_Create(const KavoChar* name, const COMPortParams* params) {
  return CreatingFrame<COMPortInfoHandle>(name != nullptr && params != nullptr, [&](kavo::CIMExceptionImpl&) {
    kavo::CheckOrRaise(kavo::api::ValidParams(*params), kavo::kErrInvalidParameter);
    kavo::OwningHolder<COMPortInfoObject> port(new COMPortInfoObject);
    port->SetName(FromCaller(name));
    kavo::api::StoreParams(*params, port.get());
    CompleteName(port.get());
    return port.Detach();
  });
}

KAVOGPS_API void COMPortInfo_Release(COMPortInfoHandle port) {
  AccessorFrame<int>(port != nullptr, 0, [&] {
    delete port;
    return 0;
  });
}

KAVOGPS_API const KavoChar* COMPortInfo_GetName(COMPortInfoHandle port) {
  return AccessorFrame<const KavoChar*>(port != nullptr, nullptr,
                                        [&] { return reinterpret_cast<const KavoChar*>(port->Name); });
}

KAVOGPS_API uint8_t COMPortInfo_SetName(COMPortInfoHandle port, const KavoChar* name) {
  // Stored exactly as given (cut to 20 characters): no colon is added here.
  return AccessorFrame<uint8_t>(port != nullptr && name != nullptr, 0, [&] {
    port->SetName(FromCaller(name));
    return uint8_t{1};
  });
}

KAVOGPS_API uint8_t COMPortInfo_GetParams(COMPortInfoHandle port, COMPortParams* params) {
  // A stored value outside the tables is refused like a bad argument.
  const bool filled = port != nullptr && params != nullptr && kavo::api::LoadParams(*port, params);
  return AccessorFrame<uint8_t>(filled, 0, [] { return uint8_t{1}; });
}

KAVOGPS_API uint8_t COMPortInfo_SetParams(COMPortInfoHandle port, const COMPortParams* params) {
  const bool stored = port != nullptr && params != nullptr && kavo::api::StoreParams(*params, port);
  return AccessorFrame<uint8_t>(stored, 0, [] { return uint8_t{1}; });
}

KAVOGPS_API COMPortCollectionHandle COMPortCollection_Create(int32_t reserved) {
  return CreatingFrame<COMPortCollectionHandle>(reserved >= 1, [&](kavo::CIMExceptionImpl&) {
    kavo::OwningHolder<COMPortCollectionObject> holder(new COMPortCollectionObject);
    holder->ports = kavo::COMPortCollection::Create(reserved);
    return holder.Detach();
  });
}

KAVOGPS_API void COMPortCollection_Release(COMPortCollectionHandle ports) {
  AccessorFrame<int>(ports != nullptr, 0, [&] {
    delete ports;
    return 0;
  });
}

KAVOGPS_API int32_t COMPortCollection_GetCount(COMPortCollectionHandle ports) {
  return AccessorFrame<int32_t>(ports != nullptr, 0, [&] { return static_cast<int32_t>(ports->ports->GetCount()); });
}

KAVOGPS_API COMPortInfoHandle COMPortCollection_GetPort(COMPortCollectionHandle ports, int32_t index, uint8_t* busy) {
  const bool listed = ports != nullptr && index >= 0 && static_cast<uint32_t>(index) < ports->ports->GetCount();
  return CreatingFrame<COMPortInfoHandle>(listed && busy != nullptr, [&](kavo::CIMExceptionImpl& error) {
    kavo::OwningHolder<COMPortInfoObject> port(new COMPortInfoObject);
    uint8_t inUse = 0;
    kavo::CheckOrRaise(ports->ports->ObtainPort(static_cast<uint32_t>(index), port.get(), &inUse, &error), &error);
    *busy = inUse;
    return port.Detach();
  });
}

}  // extern "C"
