#include "capture/PhotoTalkCapture.h"

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

constexpr Recording::Kind photoTalkKind{
    .type = DbusHelper::CaptureType::PhotoTalk,
    .peers = {.start = &VideoDaemonDbusHandler::StartPhotoTalk,
              .stop = &VideoDaemonDbusHandler::StopPhotoTalk,
              .pause = &VideoDaemonDbusHandler::PausePhotoTalk,
              .resume = &VideoDaemonDbusHandler::ResumePhotoTalk,
              .getState = &VideoDaemonDbusHandler::GetPhotoTalkState,
              .getFilename = &VideoDaemonDbusHandler::GetPhotoTalkFilename,
              .getPreviousFilename = &VideoDaemonDbusHandler::GetPreviousPhotoTalkFilename,
              .addMediaItem = &JobsManager::AddPhotoTalkMediaItem,
              .getNextPath = &StorageManager::GetNextPhotoTalkPath},
    .words = {.name = "photoTalk",
              .state = "photoTalk",
              .stopped = "photoTalk recording",
              .startOperation = "PhotoTalkCapture::PhotoTalkRecordStart",
              .thresholdFailed = "GetStorageSpaceBelowMinimumThreshold() failed",
              .thresholdTrue = "StorageSpaceBelowMiniumThreshold is true - failed to start recording"},
    .signatures = Recording::signaturesOf<"PhotoTalkCapture", "PhotoTalk">,
};

PhotoTalkCapture::PhotoTalkCapture(VideoDaemonDbusHandler& video, Storaged::StorageDaemonDbusHandler& storage)
    : RecordingCapture(storage)
{
    video.PhotoTalkStateChanged().connect(sigc::ptr_fun(&PhotoTalkRecordStateChangedHandler));
    video.PhotoTalkGrown().connect(sigc::ptr_fun(&PhotoTalkGrownHandler));
}

} // namespace ControllerDaemon
