#pragma once

#include <systemd/sd-bus.h>

/// Handlers of members whose manager this build does not have. They refuse with "org.freedesktop.DBus.Error.Failed" and
/// a text that says so.
namespace ControllerDaemon::UnavailableMember
{

int Call(sd_bus_message* message, void* userData, sd_bus_error* error) noexcept;
int Get(sd_bus* bus, const char* path, const char* interface, const char* property, sd_bus_message* reply,
        void* userData, sd_bus_error* error) noexcept;
int Set(sd_bus* bus, const char* path, const char* interface, const char* property, sd_bus_message* value,
        void* userData, sd_bus_error* error) noexcept;

} // namespace ControllerDaemon::UnavailableMember
