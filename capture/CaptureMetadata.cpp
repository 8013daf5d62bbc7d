#include "capture/CaptureMetadata.h"

#include "clients/hardware/HalvexDaemonDbusHandler.h"
#include "clients/video/VideoDaemonDbusHandler.h"
#include "dbus_helper/Log.h"

#include <limits>
#include <string>
#include <tuple>

namespace ControllerDaemon
{
namespace
{

using Halvexd::HalvexDaemonDbusHandler;
using JobsManagerD::cameraAngles_t;
using JobsManagerD::reelDistance_t;
using Videod::VideoDaemonDbusHandler;

constexpr const char* cameraText = "void ControllerDaemon::GetCameraAngles(JobsManagerD::cameraAngles_t&)";
constexpr const char* reelText = "void ControllerDaemon::GetReelDistances(JobsManagerD::reelDistance_t&)";

/// The hardware daemon's mark for "no distance".
constexpr int32_t noDistance = std::numeric_limits<int32_t>::max();

const char* TrueFalse(bool value) { return value ? "True" : "False"; }

/// The distances of a connected reel. False when they are not usable.
bool ReadDistances(reelDistance_t& distance)
{
    if (HalvexDaemonDbusHandler::GetReelDistanceAbsolute(distance.absCentimetres) < 0)
    {
        return false; // a distance that was not read must not be recorded as 0
    }
    if (distance.absCentimetres == noDistance)
    {
        Log::Info("%s GetReelDistanceAbsolute reported %i.  Assume no reel connected.", reelText, noDistance);
        return false;
    }
    std::string mode;
    std::ignore = HalvexDaemonDbusHandler::GetReelDistanceSoftwareMode(mode);
    if (mode == "relative")
    {
        const int32_t result = HalvexDaemonDbusHandler::GetReelDistanceRelative(distance.relCentimetres);
        Log::Info("%s Reel in relative mode. GetReelDistanceRelative: %i", reelText, distance.relCentimetres);
        return result >= 0;
    }
    if (mode != "absolute")
    {
        Log::Info("%s GetReelDistanceSoftwareMode reported %s.  Assume no reel connected.", reelText, mode.c_str());
        return false;
    }
    return true;
}

} // namespace

void GetCameraAngles(cameraAngles_t& angles)
{
    angles = {};
    std::ignore = VideoDaemonDbusHandler::GetAutoRotateCameraConnected(angles.autoRotateConnected);
    Log::Info("%s GetAutoRotateCameraConnected: %s", cameraText, TrueFalse(angles.autoRotateConnected));
    if (angles.autoRotateConnected)
    {
        std::ignore = VideoDaemonDbusHandler::GetCameraRollAngle(angles.rollAngle);
        Log::Info("%s GetCameraRollAngle: %i", cameraText, angles.rollAngle);
    }
    std::ignore = VideoDaemonDbusHandler::GetTiltsenseCameraConnected(angles.tiltsenseConnected);
    Log::Info("%s GetTiltsenseCameraConnected: %s", cameraText, TrueFalse(angles.tiltsenseConnected));
    if (angles.tiltsenseConnected)
    {
        std::ignore = VideoDaemonDbusHandler::GetCameraPitchAngle(angles.pitchAngle);
        Log::Info("%s GetCameraPitchAngle: %i", cameraText, angles.pitchAngle);
    }
}

void GetReelDistances(reelDistance_t& distance)
{
    distance = {};
    std::ignore = HalvexDaemonDbusHandler::GetReelConnected(distance.valid);
    Log::Info("%s GetReelConnected reported %s", reelText, TrueFalse(distance.valid));
    if (!distance.valid)
    {
        return;
    }
    if (!ReadDistances(distance))
    {
        distance = {};
    }
    Log::Info("%s reelDist: [valid, absCentimetres, relCentimetres] = [%s, %i, %i]", reelText,
              TrueFalse(distance.valid), distance.absCentimetres, distance.relCentimetres);
}

} // namespace ControllerDaemon
