// The calendar that the date and time records use.
#pragma once

#include <cUtil/time/calendar.h>

namespace cu::internal
{

/// Gregorian, in the local time zone. It has no state, so every thread may use it; it is never written to.
cu_Calendar* builtInCalendar();

} // namespace cu::internal
