#include "controllerctl/Patience.h"

#include "controllerctl/Values.h"

#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <limits>
#include <string>

namespace ControllerCtl
{
namespace
{

using std::chrono::milliseconds;
using std::chrono::steady_clock;
using Seconds = std::chrono::duration<double>;

/// The time-out of calls by the environment. For a text that it does not understand the bus library has its own.
Seconds TimeoutOfCalls()
{
    constexpr Seconds initial{25};
    const char* text = std::getenv("SYSTEMD_BUS_TIMEOUT");
    const auto given = text == nullptr ? std::nullopt : ParseSeconds(text);
    return given.value_or(0) > 0 ? Seconds(*given) : initial;
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

void EndAfter(milliseconds time)
{
    std::signal(SIGALRM, [](int) { _exit(0); });
    const auto whole = std::chrono::duration_cast<std::chrono::seconds>(time);
    const std::chrono::microseconds rest = time - whole;
    const itimerval once{.it_interval = {}, .it_value = {.tv_sec = whole.count(), .tv_usec = rest.count()}};
    setitimer(ITIMER_REAL, &once, nullptr);
}

} // namespace ControllerCtl
