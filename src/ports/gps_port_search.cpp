#include "ports/gps_port_search.h"

#include "log/logger.h"
#include "nmea/receiver_options.h"
#include "platform/registry.h"
#include "ports/com_port_collection.h"
#include "ports/port_probe.h"
#include "ports/registry_key.h"

namespace kavo {
namespace {

constexpr char16_t kIntermediateDriverKey[] =
    u"HKEY_LOCAL_MACHINE\\System\\CurrentControlSet\\GPS Intermediate Driver\\Multiplexer";

}  // namespace

int GpsPortSearch::FindGpsPort(int32_t reserved, COMPortInfo* result, int* found, CIMExceptionImpl* error) {
  LogScope scope(u"Searching for GPS Port");
  COMPortInfo working;
  int intermediateFound = 0;
  int portFound = 0;
  const int checked = CheckIntermediatePort(&intermediateFound, &working, error);
  if (checked && intermediateFound && PortHasGpsData(&working)) {
    *result = working;
    portFound = 1;
  }
  if (!portFound) ScanPorts(reserved, &portFound, result);
  // The intermediate driver's port is relied on even when it stayed silent
  // during its probe: the driver may only start the receiver on demand.
  if (!portFound && checked && intermediateFound) {
    *result = COMPortInfo(working.Name, COMPortInfo::kDefaultBaudRate, 0, 8, 0);
    portFound = 1;
  }
  *found = portFound;
  return 1;
}

int GpsPortSearch::CheckIntermediatePort(int* found, COMPortInfo* port, CIMExceptionImpl*) {
  LogScope scope(u"Checking intermediate GPS port");
  *found = 0;
  RegistryKey key;
  if (!key.Open(kIntermediateDriverKey, platform::registry::kKeyRead)) return 1;
  char16_t name[COMPortInfo::kMaxName] = {};
  uint32_t length = COMPortInfo::kMaxName;
  if (!key.QueryString(u"DriverInterface", name, &length)) return 1;
  *port = COMPortInfo(name, COMPortInfo::kDefaultBaudRate, 0, 8, 0);
  *found = 1;
  Logger::Instance().Format(u"Intermediate GPS port found: %s\n", name);
  return 1;
}

int GpsPortSearch::PortHasGpsData(COMPortInfo* port) {
  LogScope scope(u"Checking if COM port has GPS data");
  Ref<SharedEvent> dataFound(new SharedEvent);
  Ref<PortProbe> probe(new PortProbe(*port, dataFound, nmea::LoadReceiverOptions()));
  platform::Thread& thread = probe->StartThread();
  // A probe still running after the wait is left to end by itself; it holds
  // its own references, and the search moves on.
  platform::WaitForThreadOrEvent(thread, dataFound->Get(), kProbeWaitMs);
  if (probe->Found()) {
    *port = probe->Record();
    Logger::Instance().Format(u"GPS data was found on: %s\n", port->Name);
    return 1;
  }
  Logger::Instance().Format(u"GPS data was NOT found on: %s\n", port->Name);
  return 0;
}

void GpsPortSearch::ScanPorts(int32_t reserved, int* found, COMPortInfo* result) {
  LogScope scope(u"Scaning ports");
  Ref<COMPortCollection> ports = COMPortCollection::Create(reserved);
  *found = 0;
  CIMExceptionImpl error;
  COMPortInfo working;
  const uint32_t count = ports->GetCount();
  for (uint32_t index = 0; index < count; ++index) {
    working.Reset();
    CheckOrRaise(ports->GetPort(index, &working, &error), &error);
    if (PortHasGpsData(&working)) {
      *result = working;
      *found = 1;
      return;
    }
  }
}

}  // namespace kavo
