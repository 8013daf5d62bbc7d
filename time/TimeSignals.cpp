#include "time/TimeSignals.h"

#include "dbus_helper/Handles.h"
#include "dbus_helper/Log.h"
#include "dbus_helper/Serve.h"
#include "interfaces/ControllerEndpoint.h"
#include "time/BrokenDownTime.h"
#include "time/TimezoneCatalogue.h"

#include <cerrno>

namespace ControllerDaemon
{
namespace
{

template <typename... Values>
void Emit(const char* operation, const char* member, const Values&... values)
{
    DbusHelper::BusHandle bus;
    int result = DbusHelper::OpenUserBus(bus);
    result = result < 0 ? result : DbusHelper::EmitSignal(bus.get(), controllerEndpoint, member, values...);
    if (result < 0)
    {
        Log::Info("%s: Failed to emit signal, error code: %d", operation, result);
    }
}

} // namespace

void EmitTimeChange(time_t seconds)
{
    constexpr const char* operation = "EmitTimeChange";
    const bool dst = IsDstInForce();
    const time_t moment = seconds == -1 ? std::time(nullptr) : seconds; // now is when the zone is known
    constexpr bool local = true;
    const auto time = BreakDown(moment, local, dst);
    if (!time.has_value())
    {
        Log::Info("%s: Failed to emit signal, error code: %d", operation, -EOVERFLOW);
        return;
    }
    Emit(operation, "TimeChanged", time->year, time->month, time->day, time->hour, time->minute, time->second,
         time->dst);
}

void EmitTimezoneChange(const std::string& zone) { Emit("EmitTimezoneChange", "TimezoneChanged", zone); }

} // namespace ControllerDaemon
