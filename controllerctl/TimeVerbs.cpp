#include "controller_client/ControllerDaemonDbusHandler.h"
#include "controllerctl/Clock.h"
#include "controllerctl/Properties.h"
#include "controllerctl/Suggestions.h"
#include "controllerctl/Verb.h"

#include <algorithm>
#include <chrono>
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

/// Sets the clock to an instant, and prints what it says then when that is another one: the controller answers in the
/// same way when the clock was not set.
Answer SetSeconds(int32_t seconds)
{
    // "Local" seconds are those since 1970 as they are; others the controller would shift by the zone.
    constexpr bool local = true;
    constexpr int64_t tolerance = 2;
    const auto start = std::chrono::steady_clock::now();
    if (Client::SetTime(time_t{seconds}, local) < 0)
    {
        return Failed();
    }
    Answer clock = GetSeconds();
    if (clock.status != ExitStatus::Done)
    {
        return {.messages = {"what the clock says now is not known: " + clock.messages[0]}};
    }
    const auto passed = std::chrono::ceil<std::chrono::seconds>(std::chrono::steady_clock::now() - start).count();
    const int64_t ahead = clock.fields.at("seconds").get<int64_t>() - seconds;
    return ahead >= -tolerance && ahead <= passed + tolerance
               ? Answer{}
               : Failed(ExitStatus::Refused, "the clock was not set, it says @" + clock.text);
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
        return Misused("when: it must be now, like \"2026-11-21 14:05:00\", the same with an offset to UTC like "
                       "2026-11-21T14:05:00+01:00, or seconds since 1970 like @1795269900");
    }
    if (arguments.at("utc").get<bool>() || arguments.contains("dst"))
    {
        return Misused("--utc and --dst do not go with a time that says which instant it is");
    }
    return SetSeconds(*seconds);
}

/// What follows the last "/" of a zone's name.
std::string Bare(const std::string& name) { return name.substr(name.rfind('/') + 1); }

/// Sets the zone by its name, which the list may have in another case; the refusal of any other is the controller's.
Answer SetTimezoneByName(const std::string& given)
{
    std::vector<std::string> names;
    const bool ascii = std::all_of(given.begin(), given.end(), [](unsigned char byte) { return byte < 0x80; });
    if (ascii && Client::GetTimezoneList(names) < 0)
    {
        Answer failed = Failed();
        if (failed.status != ExitStatus::Refused)
        {
            return failed;
        }
    }
    const auto found =
        std::find_if(names.begin(), names.end(), [&](const std::string& name) { return AlikeNames(name, given); });
    const bool listed = found == names.end() || std::find(names.begin(), names.end(), given) != names.end();
    Answer set = Ordered(Client::SetTimezone(listed ? given : *found));
    if (set.status == ExitStatus::Refused)
    {
        Suggest(set, Bare(given), names);
    }
    return set.status == ExitStatus::Done ? Holds(*FindProperty("GetTimezone"), Bare(given)) : set;
}

Answer SetTimezone(const Arguments& arguments)
{
    const bool named = arguments.contains("name");
    const bool dst = arguments.at("dst").get<bool>();
    if (named == arguments.contains("offset") || (named && dst))
    {
        return Misused("give either a name, or --offset with or without --dst");
    }
    if (named)
    {
        return SetTimezoneByName(arguments.at("name").get<std::string>());
    }
    const Answer set = Ordered(Client::SetTimezone(arguments.at("offset").get<int>(), dst));
    return set.status == ExitStatus::Done ? Holds(*FindProperty("GetTimezone"), nullptr) : set;
}

Answer TimezoneFromUtc(const Arguments& arguments)
{
    std::string timezone;
    const int result = Client::GetTimezoneFromUTC(timezone, arguments.at("offset"), arguments.at("dst"));
    return result < 0 ? Failed() : Answer{.text = timezone, .fields = {{"timezone", timezone}}};
}

Answer SetDst(const Arguments& arguments)
{
    const Json& value = arguments.at("value");
    const Answer set = Ordered(Client::SetDST(value));
    return set.status == ExitStatus::Done ? Holds(*FindProperty("GetDst"), value) : set;
}

Verbs ClockVerbs()
{
    return {
        {"time", "Show or set the clock"},
        {"time get",
         "Print the time",
         {{.name = "--utc", .about = "In UTC, not in the unit's time zone", .type = Type::Flag},
          {.name = "--seconds", .about = "In seconds since 1970", .type = Type::Flag}},
         &GetTime},
        {"time set",
         "Set the clock",
         {{.name = "when",
           .about = "now, like \"2026-11-21 14:05:00\", as in RFC 3339, or seconds since 1970 like @1795269900",
           .need = Need::Required,
           .offered = [](const auto&) { return std::vector<std::string>{"now"}; }},
          {.name = "--utc", .about = "It is in UTC, not in the unit's time zone", .type = Type::Flag},
          {.name = "--dst", .about = "Daylight saving time on or off; as it is when not given", .type = Type::Boolean}},
         &SetTime},
        {"time set-gps", "Set the clock by GPS", {}, [](const Arguments&) { return Ordered(Client::SetTimeGPS()); }},
        {"dst", "Show or switch daylight saving time"},
        {"dst get", "Print whether daylight saving time is in force", {}, Reading("GetDst")},
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
    verbs.insert(
        verbs.end(),
        {{"timezone", "Show or set the time zone"},
         {"timezone get", "Print the name of the time zone", {}, Reading("GetTimezone")},
         {"timezone set",
          "Set the time zone",
          {{.name = "name", .about = "Its name in the list, in any case", .offered = Listing("GetTimezoneList")},
           offset,
           dst},
          &SetTimezone},
         {"timezone list", "Print the names of the time zones", {}, Reading("GetTimezoneList")},
         {"timezone set-gps",
          "Set the time zone by GPS",
          {},
          [](const Arguments&) { return Ordered(Client::SetTimezoneGPS()); }},
         {"timezone from-utc",
          "Print the name of the time zone of an offset",
          {{.name = "offset", .about = offset.about, .type = Type::Integer, .need = Need::Required}, dst},
          &TimezoneFromUtc}});
    return verbs;
}

} // namespace ControllerCtl
