#include "controller_client/ControllerCalls.h"

#include "dbus_helper/Log.h"

namespace Controllerd
{

using DbusHelper::Step;

int Report(const Names& names, const DbusHelper::Outcome& outcome)
{
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

int ReportProperty(const char* signature, const char* access, int result, const std::string& errorText)
{
    if (result < 0)
    {
        Log::Error("%s: %s%sfailed %s", signature, access, *access == '\0' ? "" : " ", errorText.c_str());
    }
    return result;
}

} // namespace Controllerd
