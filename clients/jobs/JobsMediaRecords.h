#pragma once

#include "dbus_helper/Codec.h"

#include <cstdint>
#include <tuple>

/// What is known of camera and reel at the moment of a capture: sent to the jobs daemon with every new media item.
namespace JobsManagerD
{

// NOLINTBEGIN(readability-identifier-naming): the records are known by these names

/// Camera orientation at capture time. Source: the video daemon.
struct cameraAngles_t
{
    bool autoRotateConnected = false; ///< an auto-rotating camera is connected: the roll angle is known
    int32_t rollAngle = 0;            ///< in the video daemon's unit; 0 unless autoRotateConnected
    bool tiltsenseConnected = false;  ///< a camera with tilt sensing is connected: the pitch angle is known
    int32_t pitchAngle = 0;           ///< in the video daemon's unit; 0 unless tiltsenseConnected
};

/// Cable paid out from the reel at capture time. Source: the hardware daemon.
struct reelDistance_t
{
    bool valid = false;         ///< a reel is connected and reports a usable distance
    int32_t absCentimetres = 0; ///< absolute distance in centimetres
    int32_t relCentimetres = 0; ///< relative distance in centimetres; 0 unless the reel counts relatively
};

// NOLINTEND(readability-identifier-naming)

/// The fields in the order in which they travel.
auto Fields(DbusHelper::ConstOrNot<cameraAngles_t> auto& angles)
{
    return std::tie(angles.autoRotateConnected, angles.rollAngle, angles.tiltsenseConnected, angles.pitchAngle);
}
auto Fields(DbusHelper::ConstOrNot<reelDistance_t> auto& distance)
{
    return std::tie(distance.valid, distance.absCentimetres, distance.relCentimetres);
}

} // namespace JobsManagerD
