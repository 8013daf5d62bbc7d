#pragma once

#include "dbus_helper/Codec.h"

#include <cerrno>
#include <string>
#include <vector>

namespace DbusHelper
{

/// Appends names of files as "as". A name may be any bytes; one that is no UTF-8 cannot travel, and is left out.
[[nodiscard]] inline int AppendFileNames(sd_bus_message* message, const std::vector<std::string>& names)
{
    int result = sd_bus_message_open_container(message, 'a', "s");
    for (auto name = names.begin(); result >= 0 && name != names.end(); ++name)
    {
        const int appended = Codec<std::string>::Append(message, *name);
        result = appended == -EINVAL ? result : appended; // which is what sd-bus says of such a text
    }
    return result < 0 ? result : sd_bus_message_close_container(message);
}

} // namespace DbusHelper
