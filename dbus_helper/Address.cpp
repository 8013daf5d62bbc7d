#include "dbus_helper/Address.h"

#include <cctype>

std::string DbusHelper::EscapedForAddress(std::string_view text)
{
    constexpr std::string_view digits = "0123456789abcdef";
    std::string escaped;
    for (const char character : text)
    {
        const auto byte = static_cast<unsigned char>(character);
        if (std::isalnum(byte) != 0 || std::string_view("-_/.").find(character) != std::string_view::npos)
        {
            escaped += character;
        }
        else
        {
            escaped += {'%', digits[byte / 16], digits[byte % 16]};
        }
    }
    return escaped;
}
