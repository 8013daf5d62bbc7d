#include "time/ClockOperations.h"
#include "time/GpsFix.h"
#include "time/SystemdDateTime.h"
#include "time/TimeManager.h"
#include "time/TimezoneCatalogue.h"

#include <tuple>

namespace ControllerDaemon
{
namespace
{

using DbusHelper::FileNames;
using DbusHelper::MethodCall;
using DbusHelper::PropertyRead;

constexpr const char* cannotSetNow = "Cannot set time now";
constexpr const char* cannotSetRightNow = "Cannot set time right now"; // only when the source is GPS
constexpr const char* localUnread = "Failed to get 'local' parameter CODE: ";
constexpr const char* offsetUnread = "sd_bus_message_read failed CODE:";
constexpr const char* noFix = "No GPS Fix";
constexpr const char* timezoneRefused = "Failed to set Timezone via systemd-datetimed";

} // namespace

int TimeManager::GetTime(const LocalTimeCall& call)
{
    bool local = false;
    const int result = call.Read(local);
    if (result < 0)
    {
        return call.RefuseWithCode(localUnread, result);
    }
    const bool dst = IsDstInForce();
    const time_t now = std::time(nullptr); // when the zone is known, which may take timedated long
    const auto time = BreakDown(now, local, dst).value_or(BrokenDownTime{});
    return call.Answer(time.year, time.month, time.day, time.hour, time.minute, time.second, time.dst);
}

int TimeManager::GetTimeSecs(const MethodCall<std::tuple<int32_t, bool>(bool)>& call)
{
    bool local = false;
    const int result = call.Read(local);
    if (result < 0)
    {
        return call.RefuseWithCode(localUnread, result);
    }
    const bool dst = IsDstInForce();
    const time_t now = std::time(nullptr); // as above
    return call.Answer(ToWireSeconds(local ? now : FromLocalFields(now)), dst);
}

int TimeManager::SetTime(const SetTimeCall& call)
{
    if (!CanSetTimeNow())
    {
        return call.Refuse(cannotSetNow);
    }
    BrokenDownTime time;
    bool local = false;
    if (call.Read(time.year, time.month, time.day, time.hour, time.minute, time.second, time.dst, local) < 0)
    {
        return call.Refuse("Failed to read dbus message");
    }
    if (ChangeClock(time, local) < 0)
    {
        return call.Refuse("Failed to set time via systemd-datetimed");
    }
    return call.Answer();
}

int TimeManager::SetTimeSecs(const MethodCall<void(int32_t, bool)>& call)
{
    if (!CanSetTimeNow())
    {
        return call.Refuse(cannotSetNow);
    }
    int32_t seconds = 0;
    bool local = false;
    const int result = call.Read(seconds, local);
    if (result < 0)
    {
        return call.RefuseWithCode("Failed to get parameter CODE: ", result);
    }
    ChangeClock(local ? seconds : FromUtcFields(seconds));
    return call.Answer();
}

int TimeManager::SetTimeGPS(const MethodCall<void()>& call)
{
    if (!CanSetTimeNow())
    {
        return call.Refuse(cannotSetRightNow);
    }
    const auto fix = ReadGpsFix();
    if (!fix.has_value())
    {
        return call.Refuse(noFix);
    }
    ChangeClock(WholeSeconds(fix->time));
    return call.Answer();
}

int TimeManager::SetTimezone(const MethodCall<void(std::string)>& call)
{
    std::string requested;
    int result = call.Read(requested);
    if (result < 0)
    {
        return call.RefuseWithCode("Failed to read parameter 'timezone' CODE:", result);
    }
    if (!CanSetTimeNow())
    {
        return call.Refuse(cannotSetNow);
    }
    const bool isFull = requested.find(standardPrefix) != std::string::npos;
    const std::string zone = isFull ? requested : GetTimezonePrefix() + requested;
    if (!IsTimezoneInstalled(zone))
    {
        return call.Refuse((requested + " is not installed in the list of CCU timezones").c_str());
    }
    result = ChangeTimezone(zone);
    if (result < 0)
    {
        return call.RefuseWithCode("Failed to set timezone via systemd-timedated CODE:", result);
    }
    return call.Answer();
}

int TimeManager::SetTimezoneGPS(const MethodCall<void()>& call)
{
    if (!CanSetTimeNow())
    {
        return call.Refuse(cannotSetRightNow);
    }
    const auto fix = ReadGpsFix();
    if (!fix.has_value())
    {
        return call.Refuse(noFix);
    }
    if (ChangeTimezone(GetNearestTimezone(fix->latitude, fix->longitude)) < 0)
    {
        return call.Refuse(timezoneRefused);
    }
    return call.Answer();
}

int TimeManager::SetTimezoneUTC(const MethodCall<void(int32_t, bool)>& call)
{
    int32_t offsetSeconds = 0;
    bool dst = false;
    const int result = call.Read(offsetSeconds, dst);
    if (result < 0)
    {
        return call.RefuseWithCode(offsetUnread, result);
    }
    if (ChangeTimezone(ControllerDaemon::GetTimezoneFromUTC(offsetSeconds, dst)) < 0)
    {
        return call.Refuse(timezoneRefused);
    }
    return call.Answer();
}

int TimeManager::GetTimezoneFromUTC(const MethodCall<std::string(int32_t, bool)>& call)
{
    int32_t offsetSeconds = 0;
    bool dst = false;
    const int result = call.Read(offsetSeconds, dst);
    return result < 0 ? call.RefuseWithCode(offsetUnread, result)
                      : call.Answer(ControllerDaemon::GetTimezoneFromUTC(offsetSeconds, dst));
}

int TimeManager::SetDst(const MethodCall<void(bool)>& call)
{
    if (!CanSetTimeNow())
    {
        return call.Refuse(cannotSetNow);
    }
    std::string zone;
    if (SystemdDateTime::GetTimezone(zone) < 0)
    {
        return call.Refuse("Cannot get timezone from systemd-datetimed");
    }
    bool dst = false;
    int result = call.Read(dst);
    if (result < 0)
    {
        return call.Refuse("Failed to read dbus message");
    }
    result = dst == IsDst(zone) ? 0 : ChangeTimezoneForm(zone, dst);
    if (result < 0)
    {
        return call.RefuseWithCode("Failed to set new timezone via systemd-datetimed CODE:", result);
    }
    return call.Answer();
}

int TimeManager::GetDst(const PropertyRead<bool>& read)
{
    std::string zone;
    const int32_t result = SystemdDateTime::GetTimezone(zone);
    return result < 0 ? read.RefuseWithCode("Failed to get dst from systemd-timedated CODE:", result)
                      : read.Answer(IsDst(zone));
}

int TimeManager::GetTimezone(const PropertyRead<std::string>& read)
{
    std::string zone;
    const int32_t result = SystemdDateTime::GetTimezone(zone);
    return result < 0 ? read.RefuseWithCode("Failed to get timezone from systemd-timedated CODE:", result)
                      : read.Answer(std::string(BareName(zone)));
}

int TimeManager::GetTimezoneList(const PropertyRead<FileNames>& read)
{
    const int result = read.Answer({state.installedZones});
    return result < 0 ? read.Refuse("Failed to attach timezone list to message") : result;
}

int TimeManager::GetTimeSourceAvailable(const PropertyRead<int32_t>& read)
{
    return read.Answer(CanSetTimeNow() ? 1 : 0);
}

} // namespace ControllerDaemon
