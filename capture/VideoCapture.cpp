#include "capture/VideoCapture.h"

#include "capture/RecordingTexts.h"
#include "capture/StorageManager.h"
#include "clients/jobs/JobsManager.h"

namespace ControllerDaemon
{
namespace
{

using libjobsdaemon::JobsManager;
using Videod::VideoDaemonDbusHandler;

} // namespace

constexpr Recording::Kind videoKind{
    .type = DbusHelper::CaptureType::Video,
    .peers = {.start = &VideoDaemonDbusHandler::StartRecording,
              .stop = &VideoDaemonDbusHandler::StopRecording,
              .pause = &VideoDaemonDbusHandler::PauseRecording,
              .resume = &VideoDaemonDbusHandler::ResumeRecording,
              .getState = &VideoDaemonDbusHandler::GetRecordingState,
              .getFilename = &VideoDaemonDbusHandler::GetRecordingFilename,
              .getPreviousFilename = &VideoDaemonDbusHandler::GetPreviousRecordingFilename,
              .addMediaItem = &JobsManager::AddVideoMediaItem,
              .getNextPath = &StorageManager::GetNextVideoRecordingPath},
    .words = {.name = "video",
              .state = "video",
              .stopped = "video recording",
              .startOperation = "VideoCapture::VideoRecordStart",
              .thresholdFailed = "GetStorageSpaceBelowMinimumThreshold() failed",
              .thresholdTrue = "StorageSpaceBelowMiniumThreshold() is true - failed to start recording"},
    .signatures = Recording::signaturesOf<"VideoCapture", "Video">,
};

VideoCapture::VideoCapture(VideoDaemonDbusHandler& video, Storaged::StorageDaemonDbusHandler& storage)
    : RecordingCapture(storage)
{
    video.RecordingStateChanged().connect(sigc::ptr_fun(&VideoRecordStateChangedHandler));
    video.VideoGrown().connect(sigc::ptr_fun(&VideoGrownHandler));
}

} // namespace ControllerDaemon
