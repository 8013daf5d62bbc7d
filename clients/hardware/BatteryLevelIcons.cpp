#include "clients/hardware/BatteryLevelIcons.h"

#include "dbus_helper/Codec.h"
#include "dbus_helper/Log.h"

namespace Halvexd
{
namespace
{

using StringCodec = DbusHelper::Codec<std::string>;

int ReadNames(sd_bus_message* message, std::vector<std::string>& names)
{
    int result = sd_bus_message_enter_container(message, 'a', "s");
    while (result > 0)
    {
        std::string name;
        result = StringCodec::Read(message, name);
        if (result > 0)
        {
            names.push_back(std::move(name));
        }
    }
    return result;
}

int ReadSide(sd_bus_message* message, const char* side, std::vector<std::string>& names)
{
    int result = ReadNames(message, names);
    if (result < 0)
    {
        Log::Error("sd_bus_message_read(m, s, &cPtr) for %s battery returned %i\n", side, result);
        return result;
    }
    result = sd_bus_message_exit_container(message);
    if (result < 0)
    {
        Log::Error("sd_bus_message_exit_container(m) for %s battery returned %i\n", side, result);
    }
    return result;
}

} // namespace

int ReadBatteryLevelIcons(sd_bus_message* message, BatteryLevelIcons& icons)
{
    int result = sd_bus_message_enter_container(message, 'r', "sassas");
    result = result < 0 ? result : StringCodec::Read(message, icons.text);
    result = result < 0 ? result : ReadSide(message, "right", icons.right);
    result = result < 0 ? result : sd_bus_message_skip(message, "s");
    result = result < 0 ? result : ReadSide(message, "left", icons.left);
    if (result < 0)
    {
        return result;
    }
    result = sd_bus_message_exit_container(message);
    if (result < 0)
    {
        Log::Error("sd_bus_message_exit_container(m) sassas returned %i\n", result);
    }
    return result;
}

} // namespace Halvexd
