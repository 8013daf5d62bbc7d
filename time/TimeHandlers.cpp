#include "clients/SystemdDateTime.h"
#include "dbus_helper/Codec.h"
#include "dbus_helper/FileNames.h"
#include "dbus_helper/PropertyReply.h"
#include "time/ClockOperations.h"
#include "time/GpsFix.h"
#include "time/TimeManager.h"
#include "time/TimezoneCatalogue.h"

#include <tuple>

namespace ControllerDaemon
{
namespace
{

using DbusHelper::Refuse;
using DbusHelper::ReplyEmpty;
using DbusHelper::Sequence;

constexpr const char* cannotSetNow = "Cannot set time now";
constexpr const char* cannotSetRightNow = "Cannot set time right now"; // only when the source is GPS
constexpr const char* noFix = "No GPS Fix";
constexpr const char* timezoneRefused = "Failed to set Timezone via systemd-datetimed";

} // namespace

int TimeManager::GetTime(sd_bus_message* message, void* /*userData*/, sd_bus_error* error) noexcept
{
    std::tuple<bool> local;
    const int result = Sequence<bool>::Read(message, local);
    if (result < 0)
    {
        return sd_bus_error_setf(error, SD_BUS_ERROR_FAILED, "Failed to get 'local' parameter CODE: %d", result);
    }
    const auto time = BreakDown(std::time(nullptr), std::get<0>(local), IsDstInForce()).value_or(BrokenDownTime{});
    return sd_bus_reply_method_return(message, "iiiiiib", time.year, time.month, time.day, time.hour, time.minute,
                                      time.second, time.dst ? 1 : 0);
}

int TimeManager::GetTimeSecs(sd_bus_message* message, void* /*userData*/, sd_bus_error* error) noexcept
{
    std::tuple<bool> local;
    const int result = Sequence<bool>::Read(message, local);
    if (result < 0)
    {
        return sd_bus_error_setf(error, SD_BUS_ERROR_FAILED, "Failed to get 'local' parameter CODE: %d", result);
    }
    const time_t now = std::time(nullptr);
    return sd_bus_reply_method_return(message, "ib", ToWireSeconds(std::get<0>(local) ? now : FromLocalFields(now)),
                                      IsDstInForce() ? 1 : 0);
}

int TimeManager::SetTime(sd_bus_message* message, void* /*userData*/, sd_bus_error* error) noexcept
{
    if (!CanSetTimeNow())
    {
        return Refuse(error, cannotSetNow);
    }
    BrokenDownTime time;
    bool local = false;
    auto arguments = std::tie(time.year, time.month, time.day, time.hour, time.minute, time.second, time.dst, local);
    using Fields = Sequence<int32_t, int32_t, int32_t, int32_t, int32_t, int32_t, bool, bool>;
    if (Fields::Read(message, arguments) < 0)
    {
        return Refuse(error, "Failed to read dbus message");
    }
    if (ChangeClock(time, local) < 0)
    {
        return Refuse(error, "Failed to set time via systemd-datetimed");
    }
    return ReplyEmpty(message);
}

int TimeManager::SetTimeSecs(sd_bus_message* message, void* /*userData*/, sd_bus_error* error) noexcept
{
    if (!CanSetTimeNow())
    {
        return Refuse(error, cannotSetNow);
    }
    std::tuple<int32_t, bool> arguments;
    const int result = Sequence<int32_t, bool>::Read(message, arguments);
    if (result < 0)
    {
        return sd_bus_error_setf(error, SD_BUS_ERROR_FAILED, "Failed to get parameter CODE: %d", result);
    }
    const auto [seconds, local] = arguments;
    ChangeClock(local ? seconds : FromUtcFields(seconds));
    return ReplyEmpty(message);
}

int TimeManager::SetTimeGPS(sd_bus_message* message, void* /*userData*/, sd_bus_error* error) noexcept
{
    if (!CanSetTimeNow())
    {
        return Refuse(error, cannotSetRightNow);
    }
    const auto fix = ReadGpsFix();
    if (!fix.has_value())
    {
        return Refuse(error, noFix);
    }
    ChangeClock(WholeSeconds(fix->time));
    return ReplyEmpty(message);
}

int TimeManager::SetTimezone(sd_bus_message* message, void* /*userData*/, sd_bus_error* error) noexcept
{
    std::tuple<std::string> arguments;
    int result = Sequence<std::string>::Read(message, arguments);
    if (result < 0)
    {
        return sd_bus_error_setf(error, SD_BUS_ERROR_FAILED, "Failed to read parameter 'timezone' CODE:%d", result);
    }
    if (!CanSetTimeNow())
    {
        return Refuse(error, cannotSetNow);
    }
    const std::string& requested = std::get<0>(arguments);
    const bool isFull = requested.find(standardPrefix) != std::string::npos;
    const std::string zone = isFull ? requested : GetTimezonePrefix() + requested;
    if (!IsTimezoneInstalled(zone))
    {
        return sd_bus_error_setf(error, SD_BUS_ERROR_FAILED, "%s is not installed in the list of CCU timezones",
                                 requested.c_str());
    }
    result = ChangeTimezone(zone);
    if (result < 0)
    {
        return sd_bus_error_setf(error, SD_BUS_ERROR_FAILED, "Failed to set timezone via systemd-timedated CODE:%d",
                                 result);
    }
    return ReplyEmpty(message);
}

int TimeManager::SetTimezoneGPS(sd_bus_message* message, void* /*userData*/, sd_bus_error* error) noexcept
{
    if (!CanSetTimeNow())
    {
        return Refuse(error, cannotSetRightNow);
    }
    const auto fix = ReadGpsFix();
    if (!fix.has_value())
    {
        return Refuse(error, noFix);
    }
    if (ChangeTimezone(GetNearestTimezone(fix->latitude, fix->longitude)) < 0)
    {
        return Refuse(error, timezoneRefused);
    }
    return ReplyEmpty(message);
}

int TimeManager::SetTimezoneUTC(sd_bus_message* message, void* /*userData*/, sd_bus_error* error) noexcept
{
    std::tuple<int32_t, bool> arguments;
    const int result = Sequence<int32_t, bool>::Read(message, arguments);
    if (result < 0)
    {
        return sd_bus_error_setf(error, SD_BUS_ERROR_FAILED, "sd_bus_message_read failed CODE:%d", result);
    }
    if (ChangeTimezone(std::apply(&ControllerDaemon::GetTimezoneFromUTC, arguments)) < 0)
    {
        return Refuse(error, timezoneRefused);
    }
    return ReplyEmpty(message);
}

int TimeManager::GetTimezoneFromUTC(sd_bus_message* message, void* /*userData*/, sd_bus_error* error) noexcept
{
    std::tuple<int32_t, bool> arguments;
    const int result = Sequence<int32_t, bool>::Read(message, arguments);
    if (result < 0)
    {
        return sd_bus_error_setf(error, SD_BUS_ERROR_FAILED, "sd_bus_message_read failed CODE:%d", result);
    }
    const std::string zone = std::apply(&ControllerDaemon::GetTimezoneFromUTC, arguments);
    return sd_bus_reply_method_return(message, "s", zone.c_str());
}

int TimeManager::SetDst(sd_bus_message* message, void* /*userData*/, sd_bus_error* error) noexcept
{
    if (!CanSetTimeNow())
    {
        return Refuse(error, cannotSetNow);
    }
    std::string zone;
    if (SystemdDateTime::GetTimezone(zone) < 0)
    {
        return Refuse(error, "Cannot get timezone from systemd-datetimed");
    }
    std::tuple<bool> arguments;
    int result = Sequence<bool>::Read(message, arguments);
    if (result < 0)
    {
        return Refuse(error, "Failed to read dbus message");
    }
    const bool dst = std::get<0>(arguments);
    result = dst == IsDst(zone) ? 0 : ChangeTimezoneForm(zone, dst);
    if (result < 0)
    {
        return sd_bus_error_setf(error, SD_BUS_ERROR_FAILED, "Failed to set new timezone via systemd-datetimed CODE:%d",
                                 result);
    }
    return ReplyEmpty(message);
}

int TimeManager::GetDst(sd_bus* /*bus*/, const char* /*path*/, const char* /*interface*/, const char* /*property*/,
                        sd_bus_message* reply, void* /*userData*/, sd_bus_error* error) noexcept
{
    std::string zone;
    const int32_t result = SystemdDateTime::GetTimezone(zone);
    if (result < 0)
    {
        return sd_bus_error_setf(error, SD_BUS_ERROR_FAILED, "Failed to get dst from systemd-timedated CODE:%d",
                                 result);
    }
    return DbusHelper::Codec<bool>::Append(reply, IsDst(zone));
}

int TimeManager::GetTimezone(sd_bus* /*bus*/, const char* /*path*/, const char* /*interface*/, const char* /*property*/,
                             sd_bus_message* reply, void* /*userData*/, sd_bus_error* error) noexcept
{
    std::string zone;
    const int32_t result = SystemdDateTime::GetTimezone(zone);
    if (result < 0)
    {
        return sd_bus_error_setf(error, SD_BUS_ERROR_FAILED, "Failed to get timezone from systemd-timedated CODE:%d",
                                 result);
    }
    return DbusHelper::Codec<std::string>::Append(reply, std::string(BareName(zone)));
}

int TimeManager::GetTimezoneList(sd_bus* /*bus*/, const char* /*path*/, const char* /*interface*/,
                                 const char* /*property*/, sd_bus_message* reply, void* /*userData*/,
                                 sd_bus_error* error) noexcept
{
    const int result = DbusHelper::AppendFileNames(reply, InstalledZones());
    return result < 0 ? Refuse(error, "Failed to attach timezone list to message") : result;
}

int TimeManager::GetTimeSourceAvailable(sd_bus* /*bus*/, const char* /*path*/, const char* /*interface*/,
                                        const char* /*property*/, sd_bus_message* reply, void* /*userData*/,
                                        sd_bus_error* /*error*/) noexcept
{
    return DbusHelper::Codec<int32_t>::Append(reply, CanSetTimeNow() ? 1 : 0);
}

} // namespace ControllerDaemon
