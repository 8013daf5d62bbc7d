#include "time/BrokenDownTime.h"

#include <algorithm>
#include <cmath>
#include <limits>

// Not the _r forms, which do not notice that timedated has re-pointed /etc/localtime while the daemon runs.

namespace ControllerDaemon
{
namespace
{

constexpr int32_t firstYear = 1900; // of struct tm
constexpr int32_t firstMonth = 1;

} // namespace

std::optional<BrokenDownTime> BreakDown(time_t seconds, bool local, bool dst)
{
    const std::tm* time = local ? std::localtime(&seconds) : std::gmtime(&seconds);
    BrokenDownTime fields;
    if (time == nullptr || __builtin_add_overflow(time->tm_year, firstYear, &fields.year))
    {
        return std::nullopt;
    }
    fields.month = time->tm_mon + firstMonth;
    fields.day = time->tm_mday;
    fields.hour = time->tm_hour;
    fields.minute = time->tm_min;
    fields.second = time->tm_sec;
    fields.dst = dst;
    return fields;
}

std::optional<time_t> ToSeconds(const BrokenDownTime& fields, bool local)
{
    constexpr int untouched = 7; // no day of the week: telling a failure from the second before the epoch
    std::tm time{};
    if (__builtin_sub_overflow(fields.year, firstYear, &time.tm_year) ||
        __builtin_sub_overflow(fields.month, firstMonth, &time.tm_mon))
    {
        return std::nullopt;
    }
    time.tm_mday = fields.day;
    time.tm_hour = fields.hour;
    time.tm_min = fields.minute;
    time.tm_sec = fields.second;
    time.tm_isdst = fields.dst ? 1 : 0;
    time.tm_wday = untouched;
    const time_t seconds = local ? std::mktime(&time) : timegm(&time);
    return time.tm_wday == untouched ? std::nullopt : std::optional(seconds);
}

int32_t ToWireSeconds(time_t seconds)
{
    return static_cast<int32_t>(
        std::clamp<time_t>(seconds, std::numeric_limits<int32_t>::min(), std::numeric_limits<int32_t>::max()));
}

int64_t WholeSeconds(double seconds)
{
    constexpr double beyond = 9223372036854775808.0; // 2^63: the first that does not fit
    if (std::isnan(seconds))
    {
        return 0;
    }
    if (std::abs(seconds) >= beyond)
    {
        return seconds > 0 ? std::numeric_limits<int64_t>::max() : std::numeric_limits<int64_t>::min();
    }
    return static_cast<int64_t>(seconds);
}

time_t FromUtcFields(time_t seconds)
{
    std::tm* fields = std::gmtime(&seconds);
    return fields == nullptr ? seconds : std::mktime(fields);
}

time_t FromLocalFields(time_t seconds)
{
    std::tm* fields = std::localtime(&seconds);
    return fields == nullptr ? seconds : std::mktime(fields);
}

} // namespace ControllerDaemon
