#include "controllerctl/Place.h"

#include "dbus_helper/Address.h"

#include <unistd.h>

#include <cstdlib>
#include <string_view>

namespace ControllerCtl
{
namespace
{

using DbusHelper::EscapedForAddress;
using Words = std::vector<std::string>;

constexpr const char* busOfUser = "DBUS_SESSION_BUS_ADDRESS";
constexpr const char* busOfSystem = "DBUS_SYSTEM_BUS_ADDRESS";

/// The address of a bus that a program passes on over its input and output.
std::string Through(const Words& command)
{
    std::string address = "unixexec:path=" + EscapedForAddress(command.front());
    for (size_t index = 1; index < command.size(); ++index)
    {
        address += ",argv" + std::to_string(index) + "=" + EscapedForAddress(command[index]);
    }
    return address;
}

/// What passes on the bus of "USER@CONTAINER". Only the manager of the system gets into a session of another user, as a
/// service that has logged in, where the bus is.
Words BridgeTo(const std::string& machine)
{
    const size_t at = machine.find('@');
    const std::string container = machine.substr(at + 1);
    return {"systemd-run",
            "-M" + (container.empty() ? ".host" : container),
            "-PGq",
            "--wait",
            "-pUser=" + machine.substr(0, at),
            "-pPAMName=login",
            "systemd-stdio-bridge",
            "-punix:path=${XDG_RUNTIME_DIR}/bus"};
}

/// "HOST:PORT" in its parts; the host's name may be a number of IPv6 in brackets.
void AddHost(Words& command, const std::string& host)
{
    const size_t colon = host.rfind(':');
    const bool port = colon != std::string::npos && (host.find(':') == colon || host[colon - 1] == ']');
    std::string name = host.substr(0, port ? colon : std::string::npos);
    if (port)
    {
        command.insert(command.end(), {"-p", host.substr(colon + 1)});
    }
    if (const size_t bracket = name.find('['); bracket != std::string::npos && name.ends_with(']'))
    {
        name = name.substr(0, bracket) + name.substr(bracket + 1, name.size() - bracket - 2);
    }
    command.insert(command.end(), {"--", name});
}

/// What has another computer run a command, whose words its shell gets.
Words Over(const std::string& host, const Words& command)
{
    Words over{"ssh", "-xT"};
    AddHost(over, host);
    for (const std::string& word : command)
    {
        over.push_back(word.find('$') == std::string::npos ? word : "'" + word + "'");
    }
    return over;
}

bool IsWord(std::string_view text)
{
    constexpr std::string_view strange = " '\"\\$`;&|<>()*?!#~\t\n";
    return !text.starts_with('-') && text.find_first_of(strange) == std::string_view::npos;
}

} // namespace

std::string Place::Complaint() const
{
    const size_t at = machine.find('@');
    if (!machine.empty() && (at == 0 || at == std::string::npos || !IsWord(machine)))
    {
        return "--machine: it must be USER@ or USER@CONTAINER";
    }
    if (!host.empty() && (!IsWord(host) || host.ends_with(':') || host.ends_with('@')))
    {
        return "--host: it must be [USER@]HOST[:PORT]";
    }
    return !address.empty() && (!machine.empty() || !host.empty()) ? "--address does not go with --machine and --host"
                                                                   : "";
}

bool Place::IsHere() const { return host.empty() && address.empty() && (machine.empty() || machine.ends_with('@')); }

bool Place::IsElsewhere() const { return !host.empty() || (!machine.empty() && !machine.ends_with('@')); }

void Place::Choose() const
{
    if (!host.empty())
    {
        const Words user = machine.empty() ? Words{"systemd-stdio-bridge", "--user"} : BridgeTo(machine);
        setenv(busOfUser, Through(Over(host, user)).c_str(), 1);
        setenv(busOfSystem, Through(Over(host, {"systemd-stdio-bridge"})).c_str(), 1);
    }
    else if (!machine.empty())
    {
        setenv(busOfUser, Through(BridgeTo(machine)).c_str(), 1);
    }
    else if (!address.empty())
    {
        setenv(busOfUser, address.c_str(), 1);
    }
}

std::string Advice(const Place& place)
{
    if (!place.IsDefault() || std::getenv(busOfUser) != nullptr)
    {
        return "";
    }
    const std::string other = geteuid() == 0 ? "as root add" : "become root and add";
    return "the controller is on the bus of the unit's own user, mostly \"ccu\": " + other +
           " --machine ccu@ to reach it, or from another computer --host ccu@UNIT";
}

} // namespace ControllerCtl
