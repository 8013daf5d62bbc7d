#pragma once

#include "time/TimezoneTable.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace ControllerDaemon
{

/// Where the unit's image keeps its zone files; the same zones with daylight saving applied lie in its folder "DST".
inline constexpr const char* timezoneDirectory = "/usr/share/zoneinfo/CCU/";

/// A full zone name is a prefix and a zone's name; it is what timedated takes and gives.
inline constexpr const char* standardPrefix = "CCU/";
inline constexpr const char* dstPrefix = "CCU/DST/";

/// Whether daylight saving is part of the zone: nothing else on the unit says so. True for a name with "DST" anywhere.
[[nodiscard]] bool IsDst(std::string_view zone);

/// Whether daylight saving is part of the zone in force, read from timedated; false when it cannot be read. Blocks on
/// timedated.
[[nodiscard]] bool IsDstInForce();

/// The prefix of zones with daylight saving, or of those without.
[[nodiscard]] const char* PrefixFor(bool dst);

/// The text after the last "/", the whole name without one.
[[nodiscard]] std::string_view BareName(std::string_view zone);

/// The prefix of the zone in force, read from timedated; "CCU/" when it cannot be read. Blocks on timedated.
[[nodiscard]] std::string GetTimezonePrefix();

/// Whether the full name's last part is "UTC" or part of a zone's name; so a name that ends in "/" counts. Logs the
/// name.
[[nodiscard]] bool IsTimezoneInstalled(const std::string& fullName);

/// The zone nearest to a position in degrees, the first by name of several, behind the prefix of the zone in force.
/// Blocks on timedated.
[[nodiscard]] std::string GetNearestTimezone(double latitude, double longitude);

/// The zone whose offset from UTC, an hour more with `dst`, comes nearest to `offset` in seconds; the first by name of
/// several. The prefix is that of the zone in force, whatever `dst` says. Blocks on timedated.
[[nodiscard]] std::string GetTimezoneFromUTC(int32_t offset, bool dst);

/// The names of the zone files found in timezoneDirectory, "UTC" among them when its file is there, in ascending order,
/// and logs them. Folders, as that of the daylight saving forms, hidden files and dangling links are left out. Empty
/// when the folder cannot be read, which is logged.
[[nodiscard]] std::vector<std::string> ListInstalledTimezones();

} // namespace ControllerDaemon
