#include "controller_client/ControllerCalls.h"

#include "controller_client/ControllerTimeout.h"
#include "dbus_helper/Log.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <utility>

namespace Controllerd
{

using DbusHelper::Step;
using std::chrono::duration_cast;
using std::chrono::microseconds;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

namespace
{

thread_local ControllerFailure last;
thread_local int limitMilliseconds = ControllerTimeout::none;

/// The time that is left, at least the shortest that the bus library takes for a time.
uint64_t Left(steady_clock::time_point deadline)
{
    const auto left = duration_cast<microseconds>(deadline - steady_clock::now()).count();
    return static_cast<uint64_t>(std::max<decltype(left)>(left, 1));
}

/// Waits until the bus has taken the connection in, which the bus library does without regard to time-outs of calls.
int WaitUntilReady(sd_bus* bus, steady_clock::time_point deadline)
{
    int result = 0;
    while ((result = sd_bus_is_ready(bus)) == 0)
    {
        result = sd_bus_process(bus, nullptr);
        if (result == 0 && steady_clock::now() >= deadline)
        {
            return -ETIMEDOUT;
        }
        result = result == 0 ? sd_bus_wait(bus, Left(deadline)) : result;
        if (result < 0 && result != -EINTR)
        {
            return result;
        }
    }
    return result;
}

ControllerFailure::Kind KindOf(const DbusHelper::Outcome& outcome)
{
    using Kind = ControllerFailure::Kind;
    if (outcome.Ok())
    {
        return Kind::None;
    }
    if (outcome.step == Step::Open)
    {
        return Kind::Unreachable;
    }
    if (outcome.step == Step::Write || (outcome.step == Step::Create && outcome.result == -EINVAL))
    {
        return Kind::Invalid;
    }
    switch (-outcome.result)
    {
    case EHOSTUNREACH:
    case ECONNRESET:
    case ENOTCONN:
    case EPIPE:
        return Kind::Unreachable;
    case ETIMEDOUT:
        return Kind::Silent;
    default: // sd-bus checks the type of a property while it fetches it
        return outcome.step == Step::Read || outcome.result == -ENXIO ? Kind::Unreadable : Kind::Refused;
    }
}

} // namespace

ControllerFailure ControllerFailure::Last() { return last; }

ControllerTimeout::ControllerTimeout(int milliseconds) noexcept
    : before_(std::exchange(limitMilliseconds, milliseconds < 0 ? none : milliseconds))
{}
ControllerTimeout::~ControllerTimeout() { limitMilliseconds = before_; }

CallConnection::CallConnection()
{
    if (limitMilliseconds == ControllerTimeout::none)
    {
        return;
    }
    const auto deadline = steady_clock::now() + milliseconds(limitMilliseconds);
    int result = DbusHelper::OpenUserBus(bus_);
    if (result < 0)
    {
        outcome_ = DbusHelper::Failure(Step::Open, result);
        return;
    }
    result = WaitUntilReady(bus_.get(), deadline);
    result = result < 0 ? result : sd_bus_set_method_call_timeout(bus_.get(), Left(deadline));
    if (result < 0)
    {
        outcome_ = DbusHelper::Failure(Step::Call, result);
        sd_bus_close_unref(bus_.release()); // not flushed: there is nobody to wait for
    }
}

void Remember(ControllerFailure failure) { last = std::move(failure); }

void Remember(const DbusHelper::Outcome& outcome)
{
    last.kind = KindOf(outcome);
    last.message = outcome.errorText;
}

int Report(const Names& names, const DbusHelper::Outcome& outcome)
{
    Remember(outcome);
    if (outcome.step == Step::Open)
    {
        Log::Error("%s: Cannot open bus", names.signature);
    }
    else if (outcome.step == Step::Read)
    {
        Log::Error("%s: sd_bus_message_read failed", names.signature);
    }
    else if (!outcome.Ok() && names.call.empty())
    {
        Log::Error("%s: Failed to call method:%s\n", names.signature, outcome.errorText.c_str());
    }
    else if (!outcome.Ok())
    {
        Log::Error("Controllerd: ControllerDaemonDbusHandler::%s: Failed to call method:%s\n", names.call.c_str(),
                   outcome.errorText.c_str());
    }
    return outcome.result;
}

int ReportProperty(const char* signature, const char* access, const DbusHelper::Outcome& outcome)
{
    Remember(outcome);
    if (!outcome.Ok())
    {
        Log::Error("%s: %s%sfailed %s", signature, access, *access == '\0' ? "" : " ", outcome.errorText.c_str());
    }
    return outcome.result;
}

} // namespace Controllerd
