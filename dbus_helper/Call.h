#pragma once

#include "dbus_helper/Codec.h"
#include "dbus_helper/Endpoint.h"
#include "dbus_helper/Outcome.h"

#include <systemd/sd-bus.h>

#include <tuple>

namespace DbusHelper
{

/// How the untyped core is told to write or read a body: instantiated once a signature, not once an operation.
struct Body
{
    int (*transfer)(sd_bus_message* message, void* values) = nullptr; ///< negative on failure
    void* values = nullptr;
};

/// The untyped core of every call: opens a user-bus connection of its own unless `bus` is given, calls, reads, and
/// releases everything it took. Blocks until the peer answers or the bus library's time-out passes.
[[nodiscard]] Outcome Invoke(sd_bus* bus, const Endpoint& endpoint, const char* member, Body arguments, Body reply);

/// The untyped core of property access, on the same terms. `signature` is the property's D-Bus type.
[[nodiscard]] Outcome ReadProperty(sd_bus* bus, const Endpoint& endpoint, const char* property, const char* signature,
                                   Body value);
[[nodiscard]] Outcome WriteProperty(sd_bus* bus, const Endpoint& endpoint, const char* property, const char* signature,
                                    Body value);

template <typename... Types>
int TransferIn(sd_bus_message* message, void* values)
{
    return Sequence<Types...>::Append(message, *static_cast<const std::tuple<const Types&...>*>(values));
}

template <typename... Types>
int TransferOut(sd_bus_message* message, void* values)
{
    return Sequence<Types...>::Read(message, *static_cast<std::tuple<Types...>*>(values));
}

/// Calls `member` on `bus` (null: a user-bus connection for this call alone) and reads the reply into `reply`, a tie of
/// references that is left untouched unless the whole reply was read. An empty tie leaves the reply's body unread.
template <typename... Out, typename... In>
[[nodiscard]] Outcome CallOn(sd_bus* bus, const Endpoint& endpoint, const char* member, std::tuple<Out&...> reply,
                             const In&... arguments)
{
    std::tuple<const In&...> in(arguments...);
    std::tuple<Out...> out;
    const Body reader = sizeof...(Out) == 0 ? Body{} : Body{&TransferOut<Out...>, &out};
    Outcome outcome = Invoke(bus, endpoint, member, {&TransferIn<In...>, &in}, reader);
    if (outcome.Ok())
    {
        reply = std::move(out);
    }
    return outcome;
}

/// The same on a user-bus connection that lives for this call alone.
template <typename... Out, typename... In>
[[nodiscard]] Outcome Call(const Endpoint& endpoint, const char* member, std::tuple<Out&...> reply,
                           const In&... arguments)
{
    return CallOn(nullptr, endpoint, member, reply, arguments...);
}

/// Reads one property; `value` is left untouched on failure.
template <typename T>
[[nodiscard]] Outcome GetPropertyOn(sd_bus* bus, const Endpoint& endpoint, const char* property, T& value)
{
    std::tuple<T> read;
    Outcome outcome = ReadProperty(bus, endpoint, property, Codec<T>::signature.c_str(), {&TransferOut<T>, &read});
    if (outcome.Ok())
    {
        value = std::move(std::get<0>(read));
    }
    return outcome;
}

/// Writes one property.
template <typename T>
[[nodiscard]] Outcome SetPropertyOn(sd_bus* bus, const Endpoint& endpoint, const char* property, const T& value)
{
    std::tuple<const T&> written(value);
    return WriteProperty(bus, endpoint, property, Codec<T>::signature.c_str(), {&TransferIn<T>, &written});
}

} // namespace DbusHelper
