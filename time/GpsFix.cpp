#include "time/GpsFix.h"

#include <gps.h>

#include <cmath>

namespace ControllerDaemon
{
namespace
{

/// A position by GPS alone, whose name is another in other versions of libgps.
constexpr int plainFix = 1;

bool HasFix(const gps_fix_t& fix)
{
    return fix.status == plainFix && (fix.mode == MODE_2D || fix.mode == MODE_3D) && !std::isnan(fix.latitude) &&
           !std::isnan(fix.longitude);
}

} // namespace

std::optional<GpsFix> ReadGpsFix()
{
    // Zeros are no fix. They stay when gpsd happens to be writing, which gps_read does not call a failure.
    gps_data_t data{};
    if (gps_open(GPSD_SHARED_MEMORY, nullptr, &data) != 0 || gps_read(&data, nullptr, 0) < 0 || !HasFix(data.fix))
    {
        return std::nullopt;
    }
    // The handle is deliberately not closed: of libgps, gps_open and gps_read alone are used.
    constexpr double secondsPerNanosecond = 1e-9;
    const timespec& time = data.fix.time;
    return GpsFix{static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * secondsPerNanosecond,
                  data.fix.latitude, data.fix.longitude};
}

} // namespace ControllerDaemon
