#include "controller_client/ControllerDaemonDbusHandler.h"
#include "controllerctl/Clock.h"
#include "controllerctl/Properties.h"
#include "controllerctl/Verb.h"

#include <variant>

namespace ControllerCtl
{
namespace
{

using Client = Controllerd::ControllerDaemonDbusHandler;
using Need = Parameter::Need;

Answer Misused(const std::string& message) { return Failed(ExitStatus::Usage, message); }

Answer GetSeconds()
{
    time_t seconds = 0;
    bool dst = false;
    constexpr bool local = true;
    if (Client::GetTime(seconds, dst, local) < 0)
    {
        return Failed();
    }
    return {.text = std::to_string(seconds), .fields = {{"seconds", seconds}, {"dst", dst}}};
}

Answer GetTime(const Arguments& arguments)
{
    const bool utc = arguments.at("utc");
    if (!arguments.at("seconds").get<bool>())
    {
        return ReadClock(!utc);
    }
    return utc ? Misused("--utc does not go with --seconds") : GetSeconds();
}

/// Sets the clock from fields. Their flag decides in which of its two forms the zone is put in force, so unless it is
/// given it is the one in force.
Answer SetFields(Controllerd::LocalDateTime fields, const Arguments& arguments)
{
    const auto dst = arguments.find("dst");
    if (dst == arguments.end() && Client::GetDST(fields.dst) < 0)
    {
        return Failed();
    }
    fields.dst = dst == arguments.end() ? fields.dst : dst->get<bool>();
    return Ordered(Client::SetTime(fields, !arguments.at("utc").get<bool>()));
}

Answer SetTime(const Arguments& arguments)
{
    const auto moment = ParseMoment(arguments.at("when").get<std::string>());
    if (const auto* fields = std::get_if<Controllerd::LocalDateTime>(&moment))
    {
        return SetFields(*fields, arguments);
    }
    const auto* seconds = std::get_if<int32_t>(&moment);
    if (seconds == nullptr)
    {
        return Misused("when: it must be like \"2026-11-21 14:05:00\", or seconds since 1970 like @1795269900");
    }
    if (arguments.at("utc").get<bool>() || arguments.contains("dst"))
    {
        return Misused("--utc and --dst do not go with seconds since 1970");
    }
    // "Local" seconds are those since 1970 as they are; others the controller would shift by the zone.
    constexpr bool local = true;
    return Ordered(Client::SetTime(time_t{*seconds}, local));
}

Answer SetTimezone(const Arguments& arguments)
{
    const bool named = arguments.contains("name");
    const bool dst = arguments.at("dst").get<bool>();
    if (named == arguments.contains("offset") || (named && dst))
    {
        return Misused("give either a name, or --offset with or without --dst");
    }
    return Ordered(named ? Client::SetTimezone(arguments.at("name").get<std::string>())
                         : Client::SetTimezone(arguments.at("offset").get<int>(), dst));
}

Answer TimezoneFromUtc(const Arguments& arguments)
{
    std::string timezone;
    const int result = Client::GetTimezoneFromUTC(timezone, arguments.at("offset"), arguments.at("dst"));
    return result < 0 ? Failed() : Answer{.text = timezone, .fields = {{"timezone", timezone}}};
}

Answer SetDst(const Arguments& arguments) { return Ordered(Client::SetDST(arguments.at("value"))); }

Verbs ClockVerbs()
{
    return {
        {"time", "Tell or set the clock"},
        {"time get",
         "Tell the time",
         {{.name = "--utc", .about = "In UTC, not in the unit's time zone", .type = Type::Flag},
          {.name = "--seconds", .about = "In seconds since 1970", .type = Type::Flag}},
         &GetTime},
        {"time set",
         "Set the clock",
         {{.name = "when",
           .about = "Like \"2026-11-21 14:05:00\", or seconds like @1795269900",
           .need = Need::Required},
          {.name = "--utc", .about = "It is in UTC, not in the unit's time zone", .type = Type::Flag},
          {.name = "--dst", .about = "Daylight saving time on or off; as it is when not given", .type = Type::Boolean}},
         &SetTime},
        {"time set-gps", "Set the clock by GPS", {}, [](const Arguments&) { return Ordered(Client::SetTimeGPS()); }},
        {"dst", "Tell or switch daylight saving time"},
        {"dst get", "Tell whether daylight saving time is in force", {}, Reading("GetDst")},
        {"dst set",
         "Switch daylight saving time",
         {{.name = "value", .about = "on or off", .type = Type::Boolean, .need = Need::Required}},
         &SetDst},
    };
}

} // namespace

Verbs TimeVerbs()
{
    const Parameter offset{.name = "--offset", .about = "Seconds to UTC, east is positive", .type = Type::Integer};
    const Parameter dst{.name = "--dst", .about = "With daylight saving time", .type = Type::Flag};
    Verbs verbs = ClockVerbs();
    verbs.insert(verbs.end(),
                 {{"timezone", "Tell or set the time zone"},
                  {"timezone get", "Tell the name of the time zone", {}, Reading("GetTimezone")},
                  {"timezone set",
                   "Set the time zone",
                   {{.name = "name", .about = "Its name in the list"}, offset, dst},
                   &SetTimezone},
                  {"timezone list", "Tell the names of the time zones", {}, Reading("GetTimezoneList")},
                  {"timezone set-gps",
                   "Set the time zone by GPS",
                   {},
                   [](const Arguments&) { return Ordered(Client::SetTimezoneGPS()); }},
                  {"timezone from-utc",
                   "Tell the name of the time zone of an offset",
                   {{.name = "offset", .about = offset.about, .type = Type::Integer, .need = Need::Required}, dst},
                   &TimezoneFromUtc}});
    return verbs;
}

} // namespace ControllerCtl
