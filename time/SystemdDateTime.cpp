#include "time/SystemdDateTime.h"

#include "dbus_helper/Call.h"
#include "dbus_helper/Handles.h"
#include "dbus_helper/Log.h"

namespace
{

using DbusHelper::Endpoint;
using DbusHelper::Outcome;
using DbusHelper::Step;

constexpr Endpoint timedated{"org.freedesktop.timedate1", "/org/freedesktop/timedate1", "org.freedesktop.timedate1"};
constexpr bool relative = false;    ///< the clock is set to a time, not moved by one
constexpr bool interactive = false; ///< nobody sits here whom timedated could ask

/// How an operation appears in its lines. The signatures are spelt as GCC spells them: support searches for these.
struct Names
{
    const char* operation;
    const char* callFailed = nullptr; ///< what goes before the bus's words; null: a failed call is not logged
};

constexpr Names setTime{"int SystemdDateTime::SetTime(uint64_t)", "Cannot call method: "};
constexpr Names setTimezone{"int SystemdDateTime::SetTimezone(std::__cxx11::string)", "Failed to call method:"};
constexpr Names setNtp{"int SystemdDateTime::SetNTP(bool)"};
constexpr Names getNtp{"int SystemdDateTime::GetNTP(bool&)"};
constexpr Names getTimezone{"int SystemdDateTime::GetTimezone(std::__cxx11::string&)", "Cannot read property, error: "};

int Report(const Names& names, const Outcome& outcome)
{
    if (outcome.step == Step::Open)
    {
        Log::Error("%s: Cannot open bus", names.operation);
    }
    else if (outcome.step == Step::Read)
    {
        Log::Error("%s: sd_bus_message_read failed", names.operation);
    }
    else if (!outcome.Ok() && names.callFailed != nullptr)
    {
        Log::Error("%s: %s%s", names.operation, names.callFailed, outcome.errorText.c_str());
    }
    return outcome.result;
}

/// Runs `action` on a connection to the system bus that lives for it alone.
template <typename Action>
int Run(const Names& names, Action action)
{
    DbusHelper::BusHandle bus;
    const int opened = DbusHelper::OpenSystemBus(bus);
    return Report(names, opened < 0 ? DbusHelper::Failure(Step::Open, opened) : action(bus.get()));
}

template <typename... In>
int Call(const Names& names, const char* member, const In&... arguments)
{
    return Run(names,
               [&](sd_bus* bus) { return DbusHelper::CallOn(bus, timedated, member, std::tie(), arguments...); });
}

template <typename T>
int Get(const Names& names, const char* property, T& value)
{
    return Run(names, [&](sd_bus* bus) { return DbusHelper::GetPropertyOn(bus, timedated, property, value); });
}

} // namespace

int SystemdDateTime::SetTime(uint64_t usec)
{
    Log::Debug("%s: usec = %llu", setTime.operation, static_cast<unsigned long long>(usec));
    return Call(setTime, "SetTime", static_cast<int64_t>(usec), relative, interactive);
}

int SystemdDateTime::SetTimezone(const std::string& timezone)
{
    Log::Debug("%s: timezone = %s", setTimezone.operation, timezone.c_str());
    return Call(setTimezone, "SetTimezone", timezone, interactive);
}

int SystemdDateTime::SetNTP(bool on) { return Call(setNtp, "SetNTP", on, interactive); }
int SystemdDateTime::GetNTP(bool& on) { return Get(getNtp, "NTP", on); }
int SystemdDateTime::GetTimezone(std::string& timezone) { return Get(getTimezone, "Timezone", timezone); }
