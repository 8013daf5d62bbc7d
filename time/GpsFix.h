#pragma once

#include <optional>

namespace ControllerDaemon
{

/// Where and when the unit is, as told by its GPS receiver.
struct GpsFix
{
    double time = 0;      ///< seconds since the epoch
    double latitude = 0;  ///< degrees, north positive
    double longitude = 0; ///< degrees, east positive
};

/// Asks gpsd for the fix that it has, through the shared memory that it exports; nothing is waited for. Nothing without
/// gpsd or its export, and without a plain 2D or 3D fix that has a position: differential GPS (DGPS, RTK) and dead
/// reckoning are none. The age of a fix is not looked at. Can be called from any thread. Each call leaves an attachment
/// of the segment and a little memory behind; see docs/gps.md.
[[nodiscard]] std::optional<GpsFix> ReadGpsFix();

} // namespace ControllerDaemon
