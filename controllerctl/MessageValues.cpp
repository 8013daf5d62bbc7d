#include "controllerctl/MessageValues.h"

#include "dbus_helper/Codec.h"

#include <string>
#include <string_view>
#include <utility>

namespace ControllerCtl
{
namespace
{

Json NextValue(sd_bus_message* message);

template <typename T>
Json Basic(sd_bus_message* message)
{
    T value{};
    return DbusHelper::Codec<T>::Read(message, value) > 0 ? Json(value) : Json();
}

Json TextValue(sd_bus_message* message, char type)
{
    const char* text = nullptr;
    return sd_bus_message_read_basic(message, type, &text) > 0 ? Json(std::string(text)) : Json();
}

/// The values up to the end of what the message is in.
Json Sequence(sd_bus_message* message)
{
    Json values = Json::array();
    while (sd_bus_message_at_end(message, 0) == 0)
    {
        Json value = NextValue(message);
        if (value.is_discarded())
        {
            break;
        }
        values.push_back(std::move(value));
    }
    return values;
}

/// A container's values; a dictionary's entries come as pairs.
Json Container(sd_bus_message* message, char type, const char* contents)
{
    if (sd_bus_message_enter_container(message, type, contents) <= 0)
    {
        return Json::value_t::discarded; // there is no way on from here
    }
    const std::string_view inner = contents;
    Json values = Sequence(message);
    sd_bus_message_exit_container(message);
    if (type == 'v')
    {
        return values.empty() ? Json() : values.front();
    }
    if (type != 'a' || !inner.starts_with('{'))
    {
        return values;
    }
    Json object = Json::object();
    for (const Json& entry : values)
    {
        object[entry.at(0).is_string() ? entry.at(0).get<std::string>() : OneLine(entry.at(0))] = entry.at(1);
    }
    return object;
}

Json NextValue(sd_bus_message* message)
{
    char type = 0;
    const char* contents = nullptr;
    if (sd_bus_message_peek_type(message, &type, &contents) <= 0)
    {
        return nullptr;
    }
    switch (type)
    {
    case 'b':
        return Basic<bool>(message);
    case 'y':
        return Basic<uint8_t>(message);
    case 'n':
        return Basic<int16_t>(message);
    case 'q':
        return Basic<uint16_t>(message);
    case 'i':
        return Basic<int32_t>(message);
    case 'u':
        return Basic<uint32_t>(message);
    case 'x':
        return Basic<int64_t>(message);
    case 't':
        return Basic<uint64_t>(message);
    case 'd':
        return Basic<double>(message);
    case 's':
    case 'o':
    case 'g':
        return TextValue(message, type);
    case 'a':
    case 'v':
    case 'r':
    case 'e':
        return Container(message, type, contents);
    default:
        sd_bus_message_skip(message, nullptr);
        return nullptr;
    }
}

} // namespace

Json ValuesOf(sd_bus_message* message) { return Sequence(message); }

} // namespace ControllerCtl
