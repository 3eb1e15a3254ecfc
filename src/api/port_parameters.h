// The caller's port parameters record and the values it may hold, checked
// the same way in both directions.
#pragma once

#include "KavoMobileGPS.h"
#include "sources/com_port_info.h"

namespace kavo::api {

// Baud rate, parity and stop bits each within their table (byte size is
// not checked).
bool ValidParams(const COMPortParams& params);
// Stores all four values (byte size as its low byte); false, with nothing
// changed, when a value is outside its table.
bool StoreParams(const COMPortParams& params, COMPortInfo* port);
// Fills all four fields; false, with nothing written, when a stored value is
// outside its table.
bool LoadParams(const COMPortInfo& port, COMPortParams* params);

}  // namespace kavo::api
