#include "KavoMobileGPS.h"
#include "platform/platform.h"

extern "C" KAVOGPS_API uint32_t KavoMobileGPS_GetLastError(void) { return kavo::platform::GetLastError(); }
