#include "controllerctl/Patience.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <limits>
#include <map>
#include <sstream>

namespace ControllerCtl
{
namespace
{

using std::chrono::milliseconds;
using std::chrono::steady_clock;
using Seconds = std::chrono::duration<double>;

/// Seconds in a unit of the bus library; no value for a word that is none.
std::optional<double> SecondsIn(const std::string& unit)
{
    static const std::map<std::string, double> units = {{"", 1},        {"s", 1},     {"sec", 1},     {"second", 1},
                                                        {"seconds", 1}, {"ms", 1e-3}, {"msec", 1e-3}, {"us", 1e-6},
                                                        {"usec", 1e-6}, {"m", 60},    {"min", 60},    {"minute", 60},
                                                        {"h", 3600},    {"hr", 3600}, {"hour", 3600}};
    const auto found = units.find(unit);
    return found == units.end() ? std::nullopt : std::optional(found->second);
}

/// The bus library's time-out for a text like "500ms", "2", "1.5s" or "1min 30s"; no value when it would not take it.
std::optional<Seconds> ParseTimeout(const std::string& text)
{
    std::istringstream stream(text);
    Seconds sum{};
    double number = 0;
    while (stream >> number)
    {
        std::string unit;
        stream >> std::ws;
        while (std::isalpha(stream.peek()) != 0)
        {
            unit += static_cast<char>(stream.get());
        }
        const std::optional<double> seconds = SecondsIn(unit);
        if (!seconds)
        {
            return std::nullopt;
        }
        sum += Seconds(number * *seconds);
    }
    return stream.eof() && sum > Seconds::zero() ? std::optional(sum) : std::nullopt;
}

/// The time-out of calls by the environment. For a text that it does not understand the bus library has its own.
Seconds TimeoutOfCalls()
{
    constexpr Seconds initial{25};
    const char* text = std::getenv("SYSTEMD_BUS_TIMEOUT");
    return text == nullptr ? initial : ParseTimeout(text).value_or(initial);
}

} // namespace

Patience::Patience(double seconds)
{
    constexpr double longest = std::numeric_limits<int>::max() / 1000.0;
    deadline_ = steady_clock::now() + milliseconds(static_cast<int>(std::min(seconds, longest) * 1000));
}

int Patience::Left() const
{
    if (!deadline_)
    {
        return -1;
    }
    const auto left = std::chrono::ceil<milliseconds>(*deadline_ - steady_clock::now()).count();
    return static_cast<int>(std::max<decltype(left)>(left, 0));
}

void Patience::LimitCalls() const
{
    constexpr int least = 1000;
    const int limit = std::max(Left(), least);
    if (deadline_ && milliseconds(limit) < TimeoutOfCalls())
    {
        setenv("SYSTEMD_BUS_TIMEOUT", (std::to_string(limit) + "ms").c_str(), 1);
    }
}

} // namespace ControllerCtl
