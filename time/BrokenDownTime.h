#pragma once

#include <cstdint>
#include <ctime>
#include <optional>

namespace ControllerDaemon
{

/// A moment as clients read and set it, "iiiiiib" on the bus.
struct BrokenDownTime
{
    int32_t year = 0;  ///< in full, as 2026
    int32_t month = 0; ///< 1 to 12
    int32_t day = 0;   ///< of the month
    int32_t hour = 0;
    int32_t minute = 0;
    int32_t second = 0;
    bool dst = false; ///< daylight saving is part of the unit's zone
};

/// The fields of a moment, in the unit's local time or in UTC, with the flag as given. Nothing for a moment whose year
/// no calendar of the C library holds. Local time is that of /etc/localtime as it is now. Loop thread only.
[[nodiscard]] std::optional<BrokenDownTime> BreakDown(time_t seconds, bool local, bool dst);

/// Seconds since the epoch of the fields, read as local time with the flag as the daylight saving flag, or as UTC.
/// Fields beyond their ranges carry over, as month 13 into the next year. Nothing when the moment cannot be expressed.
/// Loop thread only.
[[nodiscard]] std::optional<time_t> ToSeconds(const BrokenDownTime& fields, bool local);

/// What seconds since the epoch become on the bus, where they travel as "i": those of a moment that does not fit stay
/// at the last that does, 2038-01-19 03:14:07 UTC, or at the first.
[[nodiscard]] int32_t ToWireSeconds(time_t seconds);

/// The whole seconds of a time, at the ends of what can be expressed when it lies beyond; 0 for what is no number.
[[nodiscard]] int64_t WholeSeconds(double seconds);

/// The moment whose local standard time reads as the given moment's UTC does. Loop thread only.
[[nodiscard]] time_t FromUtcFields(time_t seconds);

/// The given moment by way of its local fields, which is the moment itself. Loop thread only.
[[nodiscard]] time_t FromLocalFields(time_t seconds);

} // namespace ControllerDaemon
