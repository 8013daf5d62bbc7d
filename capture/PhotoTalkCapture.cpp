#include "capture/PhotoTalkCapture.h"

#include "capture/CaptureReply.h"
#include "capture/RecordingTexts.h"
#include "capture/StorageManager.h"
#include "clients/JobsManager.h"

namespace ControllerDaemon
{
namespace
{

using DbusHelper::CaptureErrorCode;
using libjobsdaemon::JobsManager;
using Videod::VideoDaemonDbusHandler;

using Texts = RecordingTexts<"PhotoTalkCapture", "PhotoTalk">;

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
    .words = {.mediaType = "photoTalk recording",
              .startOperation = "PhotoTalkCapture::PhotoTalkRecordStart",
              .state = "photoTalk",
              .progress = "photoTalk",
              .pauseResume = "photoTalk",
              .stopped = "photoTalk recording",
              .item = "photoTalk",
              .file = "photoTalk",
              .filepath = "photoTalkFilepath",
              .grown = "photoTalk",
              .check = "photoTalk",
              .thresholdFailed = "GetStorageSpaceBelowMinimumThreshold() failed",
              .thresholdTrue = "StorageSpaceBelowMiniumThreshold is true - failed to start recording"},
    .signatures = Texts::all,
};

PhotoTalkCapture::PhotoTalkCapture(VideoDaemonDbusHandler& video, Storaged::StorageDaemonDbusHandler& storage)
    : RecordingCapture(storage)
{
    video.PhotoTalkStateChanged().connect(sigc::ptr_fun(&PhotoTalkRecordStateChangedHandler));
    video.PhotoTalkGrown().connect(sigc::ptr_fun(&PhotoTalkGrownHandler));
}

CaptureErrorCode PhotoTalkCapture::PhotoTalkRecordStart(uint32_t width, uint32_t height, uint32_t quality)
{
    return Recording::Start(photoTalkKind, width, height, quality);
}
CaptureErrorCode PhotoTalkCapture::PhotoTalkRecordStop() { return Recording::Stop(photoTalkKind); }
CaptureErrorCode PhotoTalkCapture::PhotoTalkRecordCancel() { return Recording::Cancel(photoTalkKind); }
CaptureErrorCode PhotoTalkCapture::PhotoTalkRecordPause() { return Recording::Pause(photoTalkKind); }
CaptureErrorCode PhotoTalkCapture::PhotoTalkRecordResume() { return Recording::Resume(photoTalkKind); }

int PhotoTalkCapture::PhotoTalkRecordStart(sd_bus_message* message, void* /*userData*/,
                                           sd_bus_error* /*error*/) noexcept
{
    return AnswerCapture<uint32_t, uint32_t, uint32_t>(message, Texts::handler<"RecordStart">, &PhotoTalkRecordStart);
}
int PhotoTalkCapture::PhotoTalkRecordStop(sd_bus_message* message, void* /*userData*/, sd_bus_error* /*error*/) noexcept
{
    return AnswerCapture<>(message, Texts::handler<"RecordStop">, &PhotoTalkRecordStop);
}
int PhotoTalkCapture::PhotoTalkRecordPause(sd_bus_message* message, void* /*userData*/,
                                           sd_bus_error* /*error*/) noexcept
{
    return AnswerCapture<>(message, Texts::handler<"RecordPause">, &PhotoTalkRecordPause);
}
int PhotoTalkCapture::PhotoTalkRecordResume(sd_bus_message* message, void* /*userData*/,
                                            sd_bus_error* /*error*/) noexcept
{
    return AnswerCapture<>(message, Texts::handler<"RecordResume">, &PhotoTalkRecordResume);
}

void PhotoTalkCapture::PhotoTalkRecordStateChangedHandler(int32_t newState)
{
    Recording::StateChanged(photoTalkKind, newState);
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): slots take what their signals give
void PhotoTalkCapture::PhotoTalkGrownHandler(std::string path, bool approachingLimit)
{
    Recording::Grown(photoTalkKind, state.bus, path, approachingLimit);
}

} // namespace ControllerDaemon
