#include "controllerctl/Clock.h"

#include "controller_client/ControllerDaemonDbusHandler.h"
#include "controllerctl/Values.h"

#include <array>
#include <chrono>
#include <cstdio>
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

std::string Text(const LocalDateTime& time)
{
    std::array<char, 80> text{};
    std::snprintf(text.data(), text.size(), "%04d-%02d-%02d %02d:%02d:%02d", time.year, time.month, time.day, time.hour,
                  time.minute, time.second);
    return text.data();
}

} // namespace

Moment ParseMoment(const std::string& text)
{
    if (text.starts_with('@'))
    {
        const auto seconds = Parse(Type::Integer, text.substr(1));
        return seconds ? Moment(seconds->get<int32_t>()) : Moment();
    }
    static const std::regex shape(R"((\d{4})-(\d\d)-(\d\d)[ T](\d\d):(\d\d)(?::(\d\d))?)");
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
    return IsOnTheClock(fields) ? Moment(fields) : Moment();
}

Answer ReadClock(bool local)
{
    LocalDateTime time;
    if (Controllerd::ControllerDaemonDbusHandler::GetTime(time, local) < 0)
    {
        return Failed();
    }
    return {.text = Text(time),
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
