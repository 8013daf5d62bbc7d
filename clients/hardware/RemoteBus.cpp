#include "clients/hardware/RemoteBus.h"

#include <arpa/inet.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <string_view>

namespace Halvexd
{
namespace
{

bool IsAlphanumeric(char character) { return std::isalnum(static_cast<unsigned char>(character)) != 0; }

bool IsName(std::string_view text)
{
    return !text.empty() && std::all_of(text.begin(), text.end(), [](char character) {
        return IsAlphanumeric(character) || character == '-' || character == '_';
    });
}

/// What D-Bus lets stand in a value as it is, and escaped bytes.
bool IsValue(std::string_view text)
{
    constexpr std::string_view allowed = "-_/.\\*";
    const auto isHexadecimal = [](char character) { return std::isxdigit(static_cast<unsigned char>(character)) != 0; };
    for (size_t i = 0; i < text.size(); ++i)
    {
        if (text[i] == '%')
        {
            if (i + 2 >= text.size() || !isHexadecimal(text[i + 1]) || !isHexadecimal(text[i + 2]))
            {
                return false;
            }
            i += 2;
        }
        else if (!IsAlphanumeric(text[i]) && allowed.find(text[i]) == std::string_view::npos)
        {
            return false;
        }
    }
    return !text.empty();
}

bool IsKeyAndValue(std::string_view text)
{
    const size_t equals = text.find('=');
    return equals != std::string_view::npos && IsName(text.substr(0, equals)) && IsValue(text.substr(equals + 1));
}

} // namespace

bool IsIpLiteral(const std::string& text)
{
    std::array<unsigned char, sizeof(in6_addr)> binary{};
    const auto isLiteral = [&](int family) { return inet_pton(family, text.c_str(), binary.data()) == 1; };
    return text.find('\0') == std::string::npos && (isLiteral(AF_INET) || isLiteral(AF_INET6));
}

bool IsBusAddress(const std::string& text)
{
    const std::string_view address = text;
    const size_t colon = address.find(':');
    const std::string_view kind = address.substr(0, colon);
    if (colon == std::string_view::npos || !IsName(kind) || kind == "unixexec")
    {
        return false;
    }
    size_t start = colon + 1;
    for (size_t comma = 0; comma != std::string_view::npos; start = comma + 1)
    {
        comma = address.find(',', start);
        if (!IsKeyAndValue(address.substr(start, comma - start)))
        {
            return false;
        }
    }
    return true;
}

int OpenRemoteBus(DbusHelper::BusHandle& bus, const std::string& ip, const std::string& address)
{
    if (!IsIpLiteral(ip) || !IsBusAddress(address))
    {
        return -EINVAL;
    }
    sd_bus* opened = nullptr;
    const int result = sd_bus_open_user_remote(&opened, ip.c_str(), address.c_str());
    bus.reset(opened);
    return result;
}

} // namespace Halvexd
