#pragma once

#include "dbus_helper/Codec.h"

#include <cerrno>
#include <string>
#include <vector>

namespace DbusHelper
{

/// Names of files, as a list of texts. A name may be any bytes; one that is no UTF-8 cannot travel, and is left out.
struct FileNames
{
    const std::vector<std::string>& names;
};

template <>
struct Codec<FileNames>
{
    static constexpr auto signature = Codec<std::vector<std::string>>::signature;

    static int Append(sd_bus_message* message, const FileNames& files)
    {
        return AppendContainer(message, 'a', "s", [&] {
            int result = 0;
            for (auto name = files.names.begin(); result >= 0 && name != files.names.end(); ++name)
            {
                const int appended = Codec<std::string>::Append(message, *name);
                result = appended == -EINVAL ? result : appended; // which is what sd-bus says of such a text
            }
            return result;
        });
    }
};

} // namespace DbusHelper
