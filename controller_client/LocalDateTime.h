#pragma once

#include <cstdint>

namespace Controllerd
{

/// A broken-down time of the unit, as "GetTime" answers and "SetTime" takes it.
struct LocalDateTime
{
    int32_t year = 0;   ///< in full, as in 2026
    int32_t month = 0;  ///< 1 to 12
    int32_t day = 0;    ///< of the month, 1 to 31
    int32_t hour = 0;   ///< 0 to 23
    int32_t minute = 0; ///< 0 to 59
    int32_t second = 0; ///< 0 to 60
    bool dst = false;   ///< whether the unit's time zone is one of daylight saving time
};

} // namespace Controllerd
