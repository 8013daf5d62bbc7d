#pragma once

#include "clients/jobs/JobsMediaRecords.h"

namespace ControllerDaemon
{

/// Orientation of the camera head, from the video daemon; angles are in the video daemon's unit. Never fails: what
/// cannot be read stays 0 or false. Loop thread; blocks on the video daemon.
void GetCameraAngles(JobsManagerD::cameraAngles_t& angles);

/// Cable paid out, in centimetres, from the hardware daemon. Never fails: a reel that is absent or cannot be read is
/// reported as not valid, with both distances 0. Loop thread; blocks on the hardware daemon.
void GetReelDistances(JobsManagerD::reelDistance_t& distance);

} // namespace ControllerDaemon
