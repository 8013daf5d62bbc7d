#include "controller_client/ControllerCalls.h"

#include "controller_client/ControllerFailure.h"
#include "dbus_helper/Log.h"

#include <cerrno>

namespace Controllerd
{

using DbusHelper::Step;

namespace
{

thread_local ControllerFailure last;

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
