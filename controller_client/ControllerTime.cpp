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
    const Names names{signatureText<int(LocalDateTime, bool), "SetTime">.c_str(), "SetTime"};
    const auto ask = [&](const auto&... field) { return Ask(names, "SetTime", std::tie(), field..., local); };
    return std::apply(ask, Fields(dateTime));
}

int Handler::SetTime(time_t seconds, bool local)
{
    const Names names{signatureText<int(time_t, bool), "SetTime">.c_str(), "SetTime"}; // deliberately not "SetTimeSecs"
    if (!std::in_range<int32_t>(seconds))
    {
        return Report(names, DbusHelper::Failure(Step::Write, -ERANGE));
    }
    return Ask(names, "SetTimeSecs", std::tie(), static_cast<int32_t>(seconds), local);
}

int Handler::SetTimeGPS() { return Ask({SIGNATURE_OF(SetTimeGPS), "SetTimeGPS"}, "SetTimeGPS", std::tie()); }

int Handler::GetTime(LocalDateTime& dateTime, bool local)
{
    return ReportTime(signatureText<int(LocalDateTime&, bool), "GetTime">.c_str(),
                      Call("GetTime", Fields(dateTime), local));
}

// The lines deliberately name "GetTime", not "GetTimeSecs", and tell an unreadable reply twice.
int Handler::GetTime(time_t& seconds, bool& dst, bool local)
{
    int32_t answer = 0;
    const Outcome outcome = Call("GetTimeSecs", std::tie(answer, dst), local);
    const int result = ReportTime(signatureText<int(time_t&, bool&, bool), "GetTime">.c_str(), outcome);
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

int Handler::SetDST(bool dst) { return Ask({SIGNATURE_OF(SetDST), "SetDST"}, "SetDst", std::tie(), dst); }

// A property, although its name begins with a verb; so are the next getters'.
int Handler::GetDST(bool& dst)
{
    return Get(SIGNATURE_OF(GetDST), "sdbus_utils::GetProperty CONTROLLER_DAEMON_PROP_GET_DST", "GetDst", dst);
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): programs are built against this type
int Handler::SetTimezone(std::string timezone)
{
    return Ask({signatureText<int(std::string), "SetTimezone">.c_str(), "SetTimezone"}, "SetTimezone", std::tie(),
               timezone);
}

int Handler::SetTimezone(int offsetSeconds, bool dst)
{
    return Ask({signatureText<int(int, bool), "SetTimezone">.c_str()}, "SetTimezoneUTC", std::tie(), offsetSeconds,
               dst);
}

int Handler::SetTimezoneGPS() { return Ask({SIGNATURE_OF(SetTimezoneGPS)}, "SetTimezoneGPS", std::tie()); }

int Handler::GetTimezone(std::string& timezone) { return Get(SIGNATURE_OF(GetTimezone), "", "GetTimezone", timezone); }
int Handler::GetTimezoneList(std::vector<std::string>& timezones)
{
    return Get(SIGNATURE_OF(GetTimezoneList), "", "GetTimezoneList", timezones);
}
int Handler::GetTimeSourceAvailable(int& source)
{
    return Get(SIGNATURE_OF(GetTimeSourceAvailable), "", "GetTimeSourceAvailable", source);
}

int Handler::GetTimezoneFromUTC(std::string& timezone, int offsetSeconds, bool dst)
{
    constexpr const char* signature = SIGNATURE_OF(GetTimezoneFromUTC);
    const Outcome outcome = Call("GetTimezoneFromUTC", std::tie(timezone), offsetSeconds, dst);
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
