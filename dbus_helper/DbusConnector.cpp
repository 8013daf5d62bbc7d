#include "dbus_helper/DbusConnector.h"

#include <cerrno>

namespace DbusHelper
{

DbusConnector::DbusConnector(sd_event* event, BusKind kind) : event_(event), kind_(kind) {}

DbusConnector::~DbusConnector() { DbusConnector::Disconnect(); }

int32_t DbusConnector::Connect()
{
    if (bus_ != nullptr)
    {
        return 0;
    }
    if (event_ == nullptr)
    {
        return -EINVAL; // sd-bus would take the thread's default loop instead
    }
    BusHandle bus;
    int result = kind_ == BusKind::System ? OpenSystemBus(bus) : OpenUserBus(bus);
    result = result < 0 ? result : sd_bus_attach_event(bus.get(), event_, SD_EVENT_PRIORITY_NORMAL);
    if (result < 0)
    {
        return result;
    }
    bus_ = std::move(bus);
    return 0;
}

void DbusConnector::Disconnect()
{
    if (bus_ == nullptr)
    {
        return;
    }
    sd_bus_detach_event(bus_.get());
    bus_.reset();
}

} // namespace DbusHelper
