#include "controller_client/ControllerCalls.h"
#include "controller_client/ControllerDaemonDbusHandler.h"
#include "dbus_helper/Log.h"

#include <cerrno>
#include <cstdint>
#include <utility>

namespace Controllerd
{

using Handler = ControllerDaemonDbusHandler;

namespace
{

using DbusHelper::Outcome;
using DbusHelper::Step;

/// The fields of a time, constant or not, in the order in which they travel.
template <typename Time>
auto Fields(Time& time)
{
    return std::tie(time.year, time.month, time.day, time.hour, time.minute, time.second, time.dst);
}

/// Reading the time has a line of its own for a reply that cannot be read.
int ReportTime(const char* signature, const Outcome& outcome)
{
    if (outcome.step != Step::Read)
    {
        return Report({signature, "GetTime"}, outcome);
    }
    Remember(outcome);
    Log::Error("Controllerd: ControllerDaemonDbusHandler::GetTime: Failed to read reply CODE: %d\n", outcome.result);
    return outcome.result;
}

} // namespace

int Handler::SetTime(LocalDateTime dateTime, bool local)
{
    const Names names{overloadText<int(LocalDateTime, bool), "SetTime">, "SetTime"};
    const auto ask = [&](const auto&... field) { return Call(names, "SetTime", std::tie(), field..., local); };
    return std::apply(ask, Fields(dateTime));
}

int Handler::SetTime(time_t seconds, bool local)
{
    const Names names{overloadText<int(time_t, bool), "SetTime">, "SetTime"}; // deliberately not "SetTimeSecs"
    if (!std::in_range<int32_t>(seconds))
    {
        return Report(names, DbusHelper::Failure(Step::Write, -ERANGE));
    }
    return Call(names, "SetTimeSecs", std::tie(), static_cast<int32_t>(seconds), local);
}

int Handler::SetTimeGPS() { return Call({textOf<&Handler::SetTimeGPS>, "SetTimeGPS"}, "SetTimeGPS", std::tie()); }

int Handler::GetTime(LocalDateTime& dateTime, bool local)
{
    return ReportTime(overloadText<int(LocalDateTime&, bool), "GetTime">,
                      SilentCall("GetTime", Fields(dateTime), local));
}

// The lines deliberately name "GetTime", not "GetTimeSecs", and tell an unreadable reply twice.
int Handler::GetTime(time_t& seconds, bool& dst, bool local)
{
    int32_t answer = 0;
    const Outcome outcome = SilentCall("GetTimeSecs", std::tie(answer, dst), local);
    const int result = ReportTime(overloadText<int(time_t&, bool&, bool), "GetTime">, outcome);
    if (outcome.step == Step::Read)
    {
        Log::Error("Controllerd: ControllerDaemonDbusHandler::GetTime: Failed to read reply\n");
    }
    if (!outcome.Ok())
    {
        return result;
    }
    seconds = answer;
    Log::Debug("Controllerd: ControllerDaemonDbusHandler::GetTime: Reply: time: %lu  dst:%d\n",
               static_cast<unsigned long>(seconds), static_cast<int>(dst));
    return result;
}

int Handler::SetDST(bool dst) { return Call({textOf<&Handler::SetDST>, "SetDST"}, "SetDst", std::tie(), dst); }

// A property, although its name begins with a verb; so are the next getters'.
int Handler::GetDST(bool& dst)
{
    return Get(textOf<&Handler::GetDST>, "sdbus_utils::GetProperty CONTROLLER_DAEMON_PROP_GET_DST", "GetDst", dst);
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): programs are built against this type
int Handler::SetTimezone(std::string timezone)
{
    return Call({overloadText<int(std::string), "SetTimezone">, "SetTimezone"}, "SetTimezone", std::tie(), timezone);
}

int Handler::SetTimezone(int offsetSeconds, bool dst)
{
    return Call({overloadText<int(int, bool), "SetTimezone">}, "SetTimezoneUTC", std::tie(), offsetSeconds, dst);
}

int Handler::SetTimezoneGPS() { return Call({textOf<&Handler::SetTimezoneGPS>}, "SetTimezoneGPS", std::tie()); }

int Handler::GetTimezone(std::string& timezone)
{
    return Get(textOf<&Handler::GetTimezone>, "", "GetTimezone", timezone);
}
int Handler::GetTimezoneList(std::vector<std::string>& timezones)
{
    return Get(textOf<&Handler::GetTimezoneList>, "", "GetTimezoneList", timezones);
}
int Handler::GetTimeSourceAvailable(int& source)
{
    return Get(textOf<&Handler::GetTimeSourceAvailable>, "", "GetTimeSourceAvailable", source);
}

int Handler::GetTimezoneFromUTC(std::string& timezone, int offsetSeconds, bool dst)
{
    constexpr const char* signature = textOf<&Handler::GetTimezoneFromUTC>;
    const Outcome outcome = SilentCall("GetTimezoneFromUTC", std::tie(timezone), offsetSeconds, dst);
    if (outcome.step == Step::Open || outcome.step == Step::Read || outcome.Ok())
    {
        return Report({signature}, outcome);
    }
    Remember(outcome);
    // Deliberately with a blank and without a newline, unlike its neighbours.
    Log::Error("%s: Failed to call method: %s", signature, outcome.errorText.c_str());
    return outcome.result;
}

} // namespace Controllerd

#if __SIZEOF_LONG__ == 4

// Where time_t has two lengths, programs may have been built with the other one: they ask for functions of these names.
// Nothing is lost, since seconds travel in 32 bits.
static_assert(sizeof(time_t) > sizeof(long));

CONTROLLER_CLIENT_API int SetShortTime(long seconds,
                                       bool local) __asm__("_ZN11Controllerd27ControllerDaemonDbusHandler7SetTimeElb");
int SetShortTime(long seconds, bool local)
{
    return Controllerd::ControllerDaemonDbusHandler::SetTime(time_t{seconds}, local);
}

CONTROLLER_CLIENT_API int
GetShortTime(long& seconds, bool& dst,
             bool local) __asm__("_ZN11Controllerd27ControllerDaemonDbusHandler7GetTimeERlRbb");
int GetShortTime(long& seconds, bool& dst, bool local)
{
    time_t answer = seconds;
    const int result = Controllerd::ControllerDaemonDbusHandler::GetTime(answer, dst, local);
    seconds = static_cast<long>(answer);
    return result;
}

#endif
