#include "dbus_helper/Call.h"

#include "dbus_helper/Handles.h"

#include <cstring>

namespace DbusHelper
{
namespace
{

constexpr const char* propertiesInterface = "org.freedesktop.DBus.Properties";

/// The connection an operation runs on: the caller's, or one of its own for as long as it runs.
struct Connection
{
    explicit Connection(sd_bus* given) : result(given != nullptr ? 0 : OpenUserBus(own)), bus(given ? given : own.get())
    {}

    BusHandle own;
    int result;
    sd_bus* bus;
};

Outcome Send(sd_bus* bus, sd_bus_message* message, Body reply)
{
    BusError error;
    sd_bus_message* raw = nullptr;
    int result = sd_bus_call(bus, message, 0, error.Get(), &raw);
    const MessageHandle answer(raw);
    if (result < 0)
    {
        return Failure(Step::Call, result, error.Message());
    }
    if (reply.transfer == nullptr)
    {
        return {Step::Done, result, {}};
    }
    result = reply.transfer(raw, reply.values);
    return result < 0 ? Failure(Step::Read, result) : Outcome{Step::Done, result, {}};
}

int AppendVariant(sd_bus_message* message, const char* signature, Body value)
{
    return AppendContainer(message, 'v', signature, [&] { return value.transfer(message, value.values); });
}

} // namespace

Outcome Failure(Step step, int result, const char* message)
{
    return {step, result, message != nullptr ? message : std::strerror(-result)};
}

Outcome Invoke(sd_bus* bus, const Endpoint& endpoint, const char* member, Body arguments, Body reply)
{
    const Connection connection(bus);
    if (connection.result < 0)
    {
        return Failure(Step::Open, connection.result);
    }
    sd_bus_message* raw = nullptr;
    int result = sd_bus_message_new_method_call(connection.bus, &raw, endpoint.service, endpoint.path,
                                                endpoint.interface, member);
    const MessageHandle message(raw);
    if (result < 0)
    {
        return Failure(Step::Create, result);
    }
    result = arguments.transfer(raw, arguments.values);
    return result < 0 ? Failure(Step::Write, result) : Send(connection.bus, raw, reply);
}

Outcome ReadProperty(sd_bus* bus, const Endpoint& endpoint, const char* property, const char* signature, Body value)
{
    const Connection connection(bus);
    if (connection.result < 0)
    {
        return Failure(Step::Open, connection.result);
    }
    BusError error;
    sd_bus_message* raw = nullptr;
    int result = sd_bus_get_property(connection.bus, endpoint.service, endpoint.path, endpoint.interface, property,
                                     error.Get(), &raw, signature);
    const MessageHandle reply(raw);
    if (result < 0)
    {
        return Failure(Step::Call, result, error.Message());
    }
    result = value.transfer(raw, value.values);
    return result < 0 ? Failure(Step::Read, result) : Outcome{Step::Done, result, {}};
}

Outcome WriteProperty(sd_bus* bus, const Endpoint& endpoint, const char* property, const char* signature, Body value)
{
    const Connection connection(bus);
    if (connection.result < 0)
    {
        return Failure(Step::Open, connection.result);
    }
    sd_bus_message* raw = nullptr;
    int result = sd_bus_message_new_method_call(connection.bus, &raw, endpoint.service, endpoint.path,
                                                propertiesInterface, "Set");
    const MessageHandle message(raw);
    if (result < 0)
    {
        return Failure(Step::Create, result);
    }
    result = sd_bus_message_append(raw, "ss", endpoint.interface, property);
    result = result < 0 ? result : AppendVariant(raw, signature, value);
    return result < 0 ? Failure(Step::Write, result) : Send(connection.bus, raw, {});
}

} // namespace DbusHelper
