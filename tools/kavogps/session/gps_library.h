// The KavoMobileGPS library as the tool uses it: only through its public
// header, with owners for its handles and conversions for its UTF-16 text.
#pragma once

#include <memory>
#include <string>

#include "KavoMobileGPS.h"

namespace kavo::cli {

struct DriverRelease {
  void operator()(GPSDriverObject* driver) const { GPSDriver_Release(driver); }
};
struct SatellitesRelease {
  void operator()(GPSSatellitesStateObject* state) const { GPSSatellitesState_Release(state); }
};
struct PortInfoRelease {
  void operator()(COMPortInfoObject* port) const { COMPortInfo_Release(port); }
};
struct PortCollectionRelease {
  void operator()(COMPortCollectionObject* ports) const { COMPortCollection_Release(ports); }
};

using DriverPtr = std::unique_ptr<GPSDriverObject, DriverRelease>;
using SatellitesPtr = std::unique_ptr<GPSSatellitesStateObject, SatellitesRelease>;
using PortInfoPtr = std::unique_ptr<COMPortInfoObject, PortInfoRelease>;
using PortCollectionPtr = std::unique_ptr<COMPortCollectionObject, PortCollectionRelease>;

using LibraryText = std::basic_string<KavoChar>;

// Text from the command line (the system's narrow encoding) as the library
// takes it, and the library's text as UTF-8 for output.
LibraryText ToLibraryText(const std::string& text);
std::string FromLibraryText(const KavoChar* text);
// The same into `out`, reusing its storage: for text that comes often.
void AssignLibraryText(const KavoChar* text, std::string* out);

}  // namespace kavo::cli
