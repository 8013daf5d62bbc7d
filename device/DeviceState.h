#pragma once

#include "device/DeviceManager.h"
#include "device/SoundManager.h"

/// What the parts of the device manager share.
namespace ControllerDaemon
{

struct DeviceManager::State
{
    sd_bus* bus = nullptr; ///< on which changes are emitted
    SoundManager sound;
    bool keypadBeepEnabled = false;
    uint32_t beeps = 0;
    uint32_t period = 0; ///< in the hardware daemon's unit, as is the duration
    uint32_t duration = 0;
};

/// Failures that are told to a client in the words of their line.
inline constexpr const char* setMicFailed = "SoundManager::SetMicEnabled failed";
inline constexpr const char* setSpkrFailed = "SoundManager::SetSpkrEnabled failed";
inline constexpr const char* setVolumeFailed = "SoundManager::SetSpkrVolume failed";

} // namespace ControllerDaemon
