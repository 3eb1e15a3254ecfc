// Which serial port carries a GPS receiver, and at which speed: the GPS
// intermediate driver's port first, then every listed port in turn.
#pragma once

#include <cstdint>

#include "sources/com_port_info.h"
#include "support/error.h"

namespace kavo {

class GpsPortSearch {
 public:
  static constexpr uint32_t kProbeWaitMs = 15000;

  // Fills `result` and sets `found` to 1 when a port answered (or the
  // intermediate driver names one); 0 otherwise. Returns 1 unless an error
  // was raised, which passes on (the port list could not be built, say).
  static int FindGpsPort(int32_t reserved, COMPortInfo* result, int* found, CIMExceptionImpl* error);

  // The intermediate driver's port, if it names one. Always succeeds.
  static int CheckIntermediatePort(int* found, COMPortInfo* port, CIMExceptionImpl* error);
  // 1 when NMEA was heard on the port within the wait; `port` then carries
  // the speed that worked.
  static int PortHasGpsData(COMPortInfo* port);
  static void ScanPorts(int32_t reserved, int* found, COMPortInfo* result);
};

}  // namespace kavo
