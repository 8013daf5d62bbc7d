#pragma once

#include "dbus_helper/Handles.h"

#include <string>

/// Connects to the user bus of another unit. The platform's library brings this function on the units; where it does
/// not, the one that is built here takes its place. Returns negative errno-style on failure; the connection is made in
/// the background, so an unreachable unit fails the first call on it.
///
/// A "tcp:" address is opened as it stands, with its host replaced by the IP, and without authentication, since sd-bus
/// has none for the network. Any other address is one on the other unit's side: it is reached with ssh to the IP, which
/// must let us in without asking, and systemd-stdio-bridge there.
// NOLINTNEXTLINE(readability-identifier-naming): the platform's name
extern "C" int sd_bus_open_user_remote(sd_bus** bus, const char* ip, const char* address);

namespace Halvexd
{

/// True when the text is an IPv4 or IPv6 literal, and nothing else.
[[nodiscard]] bool IsIpLiteral(const std::string& text);

/// True when the text is one well-formed D-Bus address, of a kind that connects: one that would run a program is none.
[[nodiscard]] bool IsBusAddress(const std::string& text);

/// Opens the remote bus once IP and address have been found to be what they should: they come over the bus, and any
/// process of the unit can set them. Negative errno-style on failure, -EINVAL when they are not.
[[nodiscard]] int OpenRemoteBus(DbusHelper::BusHandle& bus, const std::string& ip, const std::string& address);

} // namespace Halvexd
