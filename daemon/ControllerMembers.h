#pragma once

#include <systemd/sd-bus.h>

#include <cstdint>
#include <span>

namespace ControllerDaemon
{

/// One member of "com.tavilon.common.Controller1.Control". Argument names are separated by blanks, in the order of the
/// signature.
struct Member
{
    enum class Kind : uint8_t
    {
        Method,
        Property,
        ReadOnlyProperty,
        Signal,
    };

    Kind kind;
    const char* name;
    const char* signature;
    const char* argumentNames = "";
    const char* result = "";
    const char* resultNames = "";
    uint64_t flags = 0;
    sd_bus_message_handler_t handler = nullptr;
    sd_bus_property_get_t getter = nullptr;
    sd_bus_property_set_t setter = nullptr;
};

/// The whole interface, in registration order: the one place that says what clients can reach.
[[nodiscard]] std::span<const Member> ControllerMembers();

} // namespace ControllerDaemon
