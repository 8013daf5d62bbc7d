#pragma once

/// The unit's own devices, tools' controls and folders, for all who use them or look after them.
namespace ControllerDaemon
{

inline constexpr const char* chipName = "gpiochip4";
inline constexpr unsigned int micOffset = 14;
inline constexpr unsigned int spkrOffset = 13;
inline constexpr const char* soundFolder = "/usr/share/sounds/";
inline constexpr const char* soundExtension = ".wav";
inline constexpr const char* speakerControl = "HP DAC";
inline constexpr const char* dacControl = "PCM";
inline constexpr const char* amplifierControl = "PGA";

} // namespace ControllerDaemon
