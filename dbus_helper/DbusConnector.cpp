#include "dbus_helper/DbusConnector.h"

#include <cerrno>

namespace DbusHelper
{
namespace
{

/// sd-bus itself tells of the end of a connection, on the connection. The loop ends with it, since nothing that its
/// owner has agreed with the bus, names or subscriptions, can be had back on it.
int EndLoopWhenLost(sd_bus_message* message, void* event, sd_bus_error* /*error*/)
{
    if (sd_bus_message_is_signal(message, "org.freedesktop.DBus.Local", "Disconnected") > 0)
    {
        sd_event_exit(static_cast<sd_event*>(event), -ENOTCONN);
    }
    return 0;
}

} // namespace

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
    result = result < 0 ? result : sd_bus_add_filter(bus.get(), nullptr, &EndLoopWhenLost, event_);
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
