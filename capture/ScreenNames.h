#pragma once

/// Where screenshots come from and go to, for all who make them or look after that.
namespace ControllerDaemon
{

inline constexpr const char* videoDevice = "/dev/fb0";
inline constexpr const char* overlayDevice = "/dev/fb1";
inline constexpr const char* logsFolder = "/mnt/ccu-data/logs";

} // namespace ControllerDaemon
