#include "controllerctl/Clock.h"

#include "controller_client/ControllerDaemonDbusHandler.h"
#include "controllerctl/Values.h"

#include <array>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <limits>
#include <regex>

namespace ControllerCtl
{
namespace
{

using Controllerd::LocalDateTime;

bool IsOnTheClock(const LocalDateTime& fields)
{
    const std::chrono::year_month_day day{std::chrono::year(fields.year), std::chrono::month(fields.month),
                                          std::chrono::day(fields.day)};
    return day.ok() && fields.hour < 24 && fields.minute < 60 && fields.second <= 60;
}

/// Seconds since 1970 of fields in UTC.
int64_t SecondsOf(const LocalDateTime& utc)
{
    using namespace std::chrono;
    const sys_days day = year_month_day{year(utc.year), month(utc.month), std::chrono::day(utc.day)};
    return (day + hours(utc.hour) + minutes(utc.minute) + seconds(utc.second)).time_since_epoch() / seconds(1);
}

/// Seconds since 1970, unless the controller has no room for them.
Moment Instant(int64_t seconds)
{
    const bool fits = seconds >= std::numeric_limits<int32_t>::min() && seconds <= std::numeric_limits<int32_t>::max();
    return fits ? Moment(static_cast<int32_t>(seconds)) : Moment();
}

std::string DateAndTime(const LocalDateTime& time)
{
    std::array<char, 80> text{};
    std::snprintf(text.data(), text.size(), "%04d-%02d-%02d %02d:%02d:%02d", time.year, time.month, time.day, time.hour,
                  time.minute, time.second);
    return text.data();
}

} // namespace

Moment ParseMoment(const std::string& text)
{
    if (text == "now")
    {
        return Instant(std::time(nullptr));
    }
    if (text.starts_with('@'))
    {
        const auto seconds = Parse(Type::Integer, text.substr(1));
        return seconds ? Moment(seconds->get<int32_t>()) : Moment();
    }
    static const std::regex shape(R"((\d{4})-(\d\d)-(\d\d)[ Tt](\d\d):(\d\d)(?::(\d\d)(?:\.\d+)?)?)"
                                  R"((?:([Zz])|([+-])(\d\d):(\d\d))?)");
    std::smatch match;
    if (!std::regex_match(text, match, shape))
    {
        return {};
    }
    const auto number = [&match](size_t index) { return match[index].matched ? std::stoi(match[index]) : 0; };
    const LocalDateTime fields{.year = number(1),
                               .month = number(2),
                               .day = number(3),
                               .hour = number(4),
                               .minute = number(5),
                               .second = number(6)};
    if (!IsOnTheClock(fields) || number(9) > 23 || number(10) > 59)
    {
        return {};
    }
    const int offset = (number(9) * 60 + number(10)) * 60;
    const bool instant = match[7].matched || match[8].matched;
    return instant ? Instant(SecondsOf(fields) - (match[8] == "-" ? -offset : offset)) : Moment(fields);
}

Answer ReadClock(bool local)
{
    LocalDateTime time;
    if (Controllerd::ControllerDaemonDbusHandler::GetTime(time, local) < 0)
    {
        return Failed();
    }
    return {.text = DateAndTime(time),
            .fields = {{"year", time.year},
                       {"month", time.month},
                       {"day", time.day},
                       {"hour", time.hour},
                       {"minute", time.minute},
                       {"second", time.second},
                       {"dst", time.dst},
                       {"local", local}}};
}

} // namespace ControllerCtl
