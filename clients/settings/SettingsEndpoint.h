#pragma once

#include "dbus_helper/Endpoint.h"

#include <string>

/// The settings daemon's objects, for those who ask it.
namespace Settingsd
{

inline constexpr DbusHelper::Endpoint root{"com.tavilon.common.Settings1", "/com/tavilon/common/Settings1",
                                           "com.tavilon.common.Settings1"};

/// The object of a section.
inline std::string SectionPath(const std::string& section)
{
    std::string path = root.path;
    return path.append("/").append(section);
}

} // namespace Settingsd
