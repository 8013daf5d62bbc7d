#include "dbus_helper/Handles.h"

namespace DbusHelper
{

int OpenUserBus(BusHandle& bus)
{
    sd_bus* opened = nullptr;
    const int result = sd_bus_open_user(&opened);
    bus.reset(opened);
    return result;
}

int OpenSystemBus(BusHandle& bus)
{
    sd_bus* opened = nullptr;
    const int result = sd_bus_open_system(&opened);
    bus.reset(opened);
    return result;
}

} // namespace DbusHelper
