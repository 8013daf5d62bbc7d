#include "time/ClockOperations.h"

#include "clients/sync/SyncDaemonDbusHandler.h"
#include "clients/video/VideoDaemonDbusHandler.h"
#include "dbus_helper/Log.h"
#include "time/SystemdDateTime.h"
#include "time/TimeSignals.h"
#include "time/TimezoneCatalogue.h"

#include <cerrno>
#include <tuple>
#include <vector>

namespace ControllerDaemon
{
namespace
{

/// The same zone in its other form.
std::string Reform(const std::string& zone, bool dst) { return std::string(PrefixFor(dst)).append(BareName(zone)); }

int32_t OutOfRange()
{
    Log::Error("The time to be set is beyond what the clock can hold");
    return -ERANGE;
}

/// Sets the clock. Negative when timedated refuses, or when the microseconds do not fit the order that it takes.
int32_t SetClock(int64_t seconds)
{
    constexpr int64_t usecPerSecond = 1'000'000;
    int64_t usec = 0;
    if (__builtin_mul_overflow(seconds, usecPerSecond, &usec))
    {
        return OutOfRange();
    }
    return SystemdDateTime::SetTime(static_cast<uint64_t>(usec));
}

/// Brings the zone in force to the wanted form. `changed` is the new zone, empty when the form held already.
int32_t FollowDst(bool dst, std::string& changed)
{
    std::string zone;
    const int32_t result = SystemdDateTime::GetTimezone(zone);
    if (dst == IsDst(zone))
    {
        return 0;
    }
    if (result < 0)
    {
        return result; // a zone that is not known has no other form
    }
    changed = Reform(zone, dst);
    return SystemdDateTime::SetTimezone(changed);
}

} // namespace

bool CanSetTimeNow()
{
    constexpr int32_t active = 1;
    std::vector<std::string> captures;
    std::ignore = Videod::VideoDaemonDbusHandler::GetCaptures(active, captures);
    if (!captures.empty())
    {
        return false;
    }
    bool syncing = false;
    std::ignore = Syncd::SyncDaemonDbusHandler::HasActiveSyncs(syncing);
    return !syncing;
}

int32_t ChangeTimezone(const std::string& zone)
{
    const int32_t result = SystemdDateTime::SetTimezone(zone);
    if (result >= 0)
    {
        EmitTimezoneChange(zone);
        EmitTimeChange(-1);
    }
    return result;
}

int32_t ChangeTimezoneForm(const std::string& zone, bool dst) { return ChangeTimezone(Reform(zone, dst)); }

int32_t ChangeClock(int64_t seconds)
{
    const int32_t result = SetClock(seconds);
    if (result >= 0)
    {
        EmitTimeChange(seconds);
    }
    return result;
}

int32_t ChangeClock(const BrokenDownTime& fields, bool local)
{
    std::string zone;
    int32_t result = FollowDst(fields.dst, zone);
    if (result < 0)
    {
        return result;
    }
    const auto seconds = ToSeconds(fields, local); // after the zone: local time is the new one's
    result = seconds.has_value() ? SetClock(*seconds) : OutOfRange();
    if (result < 0)
    {
        return result;
    }
    if (!zone.empty())
    {
        EmitTimezoneChange(zone);
    }
    EmitTimeChange(*seconds);
    return result;
}

} // namespace ControllerDaemon
