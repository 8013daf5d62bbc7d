#pragma once

#include <cstdint>
#include <span>
#include <string_view>

namespace ControllerDaemon
{

/// What is known of a zone of the unit.
struct TimezoneRecord
{
    std::string_view country; ///< country or region, may be empty
    double latitude = 0;      ///< degrees, north positive
    double longitude = 0;     ///< degrees, east positive
    int32_t offset = 0;       ///< standard time's offset from UTC in seconds, east positive
};

struct TimezoneEntry
{
    std::string_view name; ///< short name, as "New_York"
    TimezoneRecord record;
};

/// All zones of the unit, a curated set of 70, ordered by name. The system's own database has many more.
[[nodiscard]] std::span<const TimezoneEntry> TimezoneTable();

} // namespace ControllerDaemon
