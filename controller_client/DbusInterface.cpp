#include "controller_client/DbusInterface.h"

#include "dbus_helper/Log.h"

namespace ControllerDaemon
{

DbusInterface::DbusInterface(uint32_t owner) : owner_(owner)
{
    if (DbusHelper::OpenUserBus(bus_) < 0)
    {
        Log::Error("failed to open user bus");
    }
}

DbusInterface::~DbusInterface() = default;

int32_t DbusInterface::Hook() { return 0; }

} // namespace ControllerDaemon
