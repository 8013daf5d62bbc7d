#include "dbus_helper/Utf8.h"

#include <cstddef>
#include <cstdint>

namespace DbusHelper
{
namespace
{

/// A character of several bytes: what its first byte says, and the smallest code point that needs that many.
struct Form
{
    uint8_t mask;
    uint8_t lead;
    size_t followers;
    uint32_t smallest;
};

constexpr Form forms[] = {
    {0x80, 0x00, 0, 0x1}, {0xE0, 0xC0, 1, 0x80}, {0xF0, 0xE0, 2, 0x800}, {0xF8, 0xF0, 3, 0x10000}};

constexpr bool IsScalar(uint32_t point)
{
    return point <= 0x10FFFF && (point < 0xD800 || point > 0xDFFF); // the surrogates are no characters
}

/// Length of the character that the text begins with, 0 when it begins with none.
size_t FirstCharacter(std::string_view text)
{
    const auto first = static_cast<uint8_t>(text.front());
    for (const Form& form : forms)
    {
        if ((first & form.mask) != form.lead || text.size() <= form.followers)
        {
            continue;
        }
        uint32_t point = first & static_cast<uint8_t>(~form.mask);
        for (size_t i = 1; i <= form.followers; ++i)
        {
            const auto next = static_cast<uint8_t>(text[i]);
            if ((next & 0xC0) != 0x80)
            {
                return 0;
            }
            point = point << 6 | (next & 0x3F);
        }
        return point >= form.smallest && IsScalar(point) ? form.followers + 1 : 0;
    }
    return 0;
}

} // namespace

bool IsUtf8(std::string_view text)
{
    while (!text.empty())
    {
        const size_t length = FirstCharacter(text);
        if (length == 0)
        {
            return false;
        }
        text.remove_prefix(length);
    }
    return true;
}

} // namespace DbusHelper
