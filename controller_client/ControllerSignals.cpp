#include "controller_client/ControllerSignals.h"

#include "controller_client/ControllerCalls.h"
#include "dbus_helper/Handles.h"
#include "dbus_helper/Log.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <deque>

namespace Controllerd
{

using std::chrono::duration_cast;
using std::chrono::microseconds;
using std::chrono::milliseconds;
using std::chrono::steady_clock;
using Events = std::deque<ControllerEvent>;

struct ControllerSignals::Listener
{
    Events events; // outlives the connection, whose handlers fill it
    DbusHelper::BusHandle bus;
};

namespace
{

template <typename Wire, typename T>
int ReadAs(sd_bus_message* message, T& field)
{
    Wire value{};
    const int result = DbusHelper::Codec<Wire>::Read(message, value);
    field = value;
    return result;
}

/// Reads the next value of the message, whatever it is. 0 at the end of the message or of the container.
int ReadValue(sd_bus_message* message, ControllerValue& value)
{
    using Kind = ControllerValue::Kind;
    char type = 0;
    const char* contents = nullptr;
    const int result = sd_bus_message_peek_type(message, &type, &contents);
    if (result <= 0)
    {
        return result;
    }
    const std::string whole = type + std::string(contents != nullptr ? contents : "");
    const auto as = [&value](Kind kind, int read) {
        value.kind = kind;
        return read < 0 ? read : 1;
    };
    if (whole == "b")
    {
        return as(Kind::Boolean, ReadAs<bool>(message, value.boolean));
    }
    if (whole == "i")
    {
        return as(Kind::Integer, ReadAs<int32_t>(message, value.integer));
    }
    if (whole == "d")
    {
        return as(Kind::Real, ReadAs<double>(message, value.real));
    }
    if (whole == "s")
    {
        return as(Kind::Text, ReadAs<std::string>(message, value.text));
    }
    if (whole == "as")
    {
        return as(Kind::List, ReadAs<std::vector<std::string>>(message, value.list));
    }
    return as(Kind::Other, sd_bus_message_skip(message, nullptr));
}

/// Enters the variant that is next, reads its value and leaves it.
int ReadVariant(sd_bus_message* message, ControllerValue& value)
{
    const char* contents = nullptr;
    int result = sd_bus_message_peek_type(message, nullptr, &contents);
    result = result < 0 ? result : sd_bus_message_enter_container(message, SD_BUS_TYPE_VARIANT, contents);
    result = result < 0 ? result : ReadValue(message, value);
    return result < 0 ? result : sd_bus_message_exit_container(message);
}

int OnSignal(sd_bus_message* message, void* events, sd_bus_error* /*error*/)
{
    ControllerEvent event;
    event.name = sd_bus_message_get_member(message);
    int result = 1;
    while (result > 0)
    {
        ControllerValue value;
        result = ReadValue(message, value);
        if (result > 0)
        {
            event.arguments.push_back(std::move(value));
        }
    }
    static_cast<Events*>(events)->push_back(std::move(event));
    return 0;
}

int ReadChanged(sd_bus_message* message, Events& events)
{
    int result = sd_bus_message_enter_container(message, SD_BUS_TYPE_ARRAY, "{sv}");
    while (result >= 0 && (result = sd_bus_message_enter_container(message, SD_BUS_TYPE_DICT_ENTRY, "sv")) > 0)
    {
        ControllerEvent event{.kind = ControllerEvent::Kind::PropertyChanged, .name = {}, .arguments = {{}}};
        result = ReadAs<std::string>(message, event.name);
        result = result < 0 ? result : ReadVariant(message, event.arguments.front());
        result = result < 0 ? result : sd_bus_message_exit_container(message);
        if (result >= 0)
        {
            events.push_back(std::move(event));
        }
    }
    return result < 0 ? result : sd_bus_message_exit_container(message);
}

int OnPropertiesChanged(sd_bus_message* message, void* userData, sd_bus_error* /*error*/)
{
    Events& events = *static_cast<Events*>(userData);
    std::vector<std::string> invalidated;
    const bool good = sd_bus_message_skip(message, "s") >= 0 && ReadChanged(message, events) >= 0;
    if (!good || ReadAs<std::vector<std::string>>(message, invalidated) < 0)
    {
        return 0;
    }
    for (std::string& name : invalidated)
    {
        events.push_back({.kind = ControllerEvent::Kind::PropertyChanged, .name = std::move(name), .arguments = {}});
    }
    return 0;
}

int OnOwnerChanged(sd_bus_message* message, void* events, sd_bus_error* /*error*/)
{
    const char* owner = nullptr;
    if (sd_bus_message_skip(message, "ss") >= 0 && sd_bus_message_read(message, "s", &owner) > 0)
    {
        const auto kind = *owner == '\0' ? ControllerEvent::Kind::Stopped : ControllerEvent::Kind::Started;
        static_cast<Events*>(events)->push_back({.kind = kind, .name = {}, .arguments = {}});
    }
    return 0;
}

/// Subscribes to all that the controller tells. By path and interface: clock and zone are told from a connection that
/// does not own the controller's name, and the owner changes when it is started anew.
int Subscribe(sd_bus* bus, Events& events)
{
    const std::string object = std::string("type='signal',path='") + controllerEndpoint.path + "',interface='";
    const std::string signals = object + controllerEndpoint.interface + "'";
    const std::string changes = object + "org.freedesktop.DBus.Properties',member='PropertiesChanged',arg0='" +
                                controllerEndpoint.interface + "'";
    const std::string owner = "type='signal',sender='org.freedesktop.DBus',path='/org/freedesktop/DBus',"
                              "interface='org.freedesktop.DBus',member='NameOwnerChanged',arg0='" +
                              std::string(controllerEndpoint.service) + "'";
    int result = sd_bus_add_match(bus, nullptr, signals.c_str(), &OnSignal, &events);
    result = result < 0 ? result : sd_bus_add_match(bus, nullptr, changes.c_str(), &OnPropertiesChanged, &events);
    return result < 0 ? result : sd_bus_add_match(bus, nullptr, owner.c_str(), &OnOwnerChanged, &events);
}

} // namespace

ControllerSignals::ControllerSignals() = default;
ControllerSignals::~ControllerSignals() = default;

int ControllerSignals::Open()
{
    auto listener = std::make_unique<Listener>();
    int result = DbusHelper::OpenUserBus(listener->bus);
    result = result < 0 ? result : Subscribe(listener->bus.get(), listener->events);
    if (result < 0)
    {
        Log::Error("int Controllerd::ControllerSignals::Open(): Cannot listen to the controller: %s",
                   DbusHelper::Failure(DbusHelper::Step::Open, result).errorText.c_str());
        return result;
    }
    listener_ = std::move(listener);
    return 0;
}

int ControllerSignals::Next(ControllerEvent& event, int timeoutMilliseconds)
{
    if (listener_ == nullptr)
    {
        return -ENOTCONN;
    }
    const auto deadline = steady_clock::now() + milliseconds(timeoutMilliseconds);
    while (listener_->events.empty())
    {
        int result = sd_bus_process(listener_->bus.get(), nullptr);
        if (result > 0)
        {
            continue;
        }
        const auto left = duration_cast<microseconds>(deadline - steady_clock::now()).count();
        if (result == 0 && timeoutMilliseconds >= 0 && left <= 0)
        {
            return 0;
        }
        const uint64_t patience = timeoutMilliseconds < 0 ? UINT64_MAX : static_cast<uint64_t>(left);
        result = result < 0 ? result : sd_bus_wait(listener_->bus.get(), patience);
        if (result < 0 && result != -EINTR)
        {
            Log::Error(
                "int Controllerd::ControllerSignals::Next(Controllerd::ControllerEvent&, int): The bus is gone: %s",
                DbusHelper::Failure(DbusHelper::Step::Call, result).errorText.c_str());
            return result;
        }
    }
    event = std::move(listener_->events.front());
    listener_->events.pop_front();
    return 1;
}

} // namespace Controllerd
