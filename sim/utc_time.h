// Calendar time in UTC, as receivers report it.
#pragma once

#include "civil_calendar.h"

namespace kavo::sim {

using UtcTime = calendar::CivilTime;
using calendar::AddMilliseconds;
using calendar::IsValid;

}  // namespace kavo::sim
