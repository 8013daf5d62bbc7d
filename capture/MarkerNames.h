#pragma once

#include <filesystem>
#include <string>

/// The names of the companions of a recording in progress, for all who make them or look for them.
namespace ControllerDaemon
{

inline constexpr const char* recActiveSuffix = "-recActive";
inline constexpr const char* recoverySuffix = "-recovery";

/// FOLDER/.STEMsuffix of a media file FOLDER/STEM.EXT; empty for an empty path. The stem ends at the file name's last
/// dot.
inline std::string MarkerPath(const std::string& mediaPath, const char* suffix)
{
    if (mediaPath.empty())
    {
        return {};
    }
    const std::filesystem::path media(mediaPath);
    std::string name = ".";
    name += media.stem().string();
    name += suffix;
    return (media.parent_path() / name).string();
}

} // namespace ControllerDaemon
