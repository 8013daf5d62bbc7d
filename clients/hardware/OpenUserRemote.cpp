#include "clients/hardware/OpenUserRemote.h"

#include "clients/hardware/RemoteBus.h"
#include "dbus_helper/Address.h"

#include <algorithm>
#include <string_view>

namespace
{

using DbusHelper::EscapedForAddress;

constexpr std::string_view tcp = "tcp:";

/// The address without its host, and with the IP in its place.
std::string TcpAddress(std::string_view ip, std::string_view address)
{
    std::string result = "tcp:host=" + EscapedForAddress(ip);
    for (std::string_view rest = address.substr(tcp.size()); !rest.empty();)
    {
        const std::string_view item = rest.substr(0, rest.find(','));
        rest.remove_prefix(std::min(item.size() + 1, rest.size()));
        if (!item.starts_with("host="))
        {
            result.append(",").append(item);
        }
    }
    return result;
}

/// The other unit's shell gets the last argument, so the address goes in quotes; it holds none itself.
std::string SshAddress(std::string_view ip, std::string_view address)
{
    const std::string bridge = "--bus-path='" + std::string(address) + "'";
    return "unixexec:path=ssh,argv1=-xT,argv2=-oBatchMode%3dyes,argv3=--,argv4=" + EscapedForAddress(ip) +
           ",argv5=systemd-stdio-bridge,argv6=" + EscapedForAddress(bridge);
}

int Start(sd_bus* bus, const std::string& address)
{
    const bool anonymous = address.starts_with(tcp); // the network carries no credentials
    int result = sd_bus_set_address(bus, address.c_str());
    result = result < 0 ? result : sd_bus_set_bus_client(bus, 1);
    result = result < 0 ? result : sd_bus_set_anonymous(bus, anonymous ? 1 : 0);
    return result < 0 ? result : sd_bus_start(bus);
}

} // namespace

std::string Halvexd::RemoteBusAddress(std::string_view ip, std::string_view address)
{
    return address.starts_with(tcp) ? TcpAddress(ip, address) : SshAddress(ip, address);
}

extern "C" int sd_bus_open_user_remote(sd_bus** bus, const char* ip, const char* address)
{
    sd_bus* made = nullptr;
    int result = sd_bus_new(&made);
    DbusHelper::BusHandle handle(made);
    result = result < 0 ? result : Start(made, Halvexd::RemoteBusAddress(ip, address));
    if (result >= 0)
    {
        *bus = handle.release();
    }
    return result;
}
