#pragma once

#include "dbus_helper/Endpoint.h"

#include <algorithm>
#include <cstddef>
#include <filesystem>
#include <iterator>
#include <string>

/// The storage daemon's objects and what their mount points mean, for those who ask it.
namespace Storaged
{

inline constexpr DbusHelper::Endpoint manager{"com.tavilon.common.StorageDaemon1", "/com/tavilon/common/StorageDaemon1",
                                              "com.tavilon.common.StorageDaemon1"};
inline constexpr const char* deviceInterface = "com.tavilon.common.StorageDaemon1.Device";

/// Components, the root among them, of a mount point that holds the file; 0 when it does not.
inline size_t MatchingComponents(const std::string& mountPoint, const std::filesystem::path& file)
{
    std::filesystem::path mount(mountPoint);
    if (!mount.empty() && !mount.has_filename() && mount.has_relative_path())
    {
        mount = mount.parent_path(); // a trailing slash reads as an empty last component
    }
    const auto end = std::mismatch(mount.begin(), mount.end(), file.begin(), file.end()).first;
    return end == mount.end() ? static_cast<size_t>(std::distance(mount.begin(), mount.end())) : 0;
}

} // namespace Storaged
