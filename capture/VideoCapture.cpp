#include "capture/VideoCapture.h"

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

using Texts = RecordingTexts<"VideoCapture", "Video">;

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
    .words = {.mediaType = "video recording",
              .startOperation = "VideoCapture::VideoRecordStart",
              .state = "video",
              .progress = "video",
              .pauseResume = "video",
              .stopped = "video recording",
              .item = "video",
              .file = "video",
              .filepath = "videoFilepath",
              .grown = "video",
              .check = "video",
              .thresholdFailed = "GetStorageSpaceBelowMinimumThreshold() failed",
              .thresholdTrue = "StorageSpaceBelowMiniumThreshold() is true - failed to start recording"},
    .signatures = Texts::all,
};

VideoCapture::VideoCapture(VideoDaemonDbusHandler& video, Storaged::StorageDaemonDbusHandler& storage)
    : RecordingCapture(storage)
{
    video.RecordingStateChanged().connect(sigc::ptr_fun(&VideoRecordStateChangedHandler));
    video.VideoGrown().connect(sigc::ptr_fun(&VideoGrownHandler));
}

CaptureErrorCode VideoCapture::VideoRecordStart(uint32_t width, uint32_t height, uint32_t quality)
{
    return Recording::Start(videoKind, width, height, quality);
}
CaptureErrorCode VideoCapture::VideoRecordStop() { return Recording::Stop(videoKind); }
CaptureErrorCode VideoCapture::VideoRecordCancel() { return Recording::Cancel(videoKind); }
CaptureErrorCode VideoCapture::VideoRecordPause() { return Recording::Pause(videoKind); }
CaptureErrorCode VideoCapture::VideoRecordResume() { return Recording::Resume(videoKind); }

int VideoCapture::VideoRecordStart(sd_bus_message* message, void* /*userData*/, sd_bus_error* /*error*/) noexcept
{
    return AnswerCapture<uint32_t, uint32_t, uint32_t>(message, Texts::handler<"RecordStart">, &VideoRecordStart);
}
int VideoCapture::VideoRecordStop(sd_bus_message* message, void* /*userData*/, sd_bus_error* /*error*/) noexcept
{
    return AnswerCapture<>(message, Texts::handler<"RecordStop">, &VideoRecordStop);
}
int VideoCapture::VideoRecordPause(sd_bus_message* message, void* /*userData*/, sd_bus_error* /*error*/) noexcept
{
    return AnswerCapture<>(message, Texts::handler<"RecordPause">, &VideoRecordPause);
}
int VideoCapture::VideoRecordResume(sd_bus_message* message, void* /*userData*/, sd_bus_error* /*error*/) noexcept
{
    return AnswerCapture<>(message, Texts::handler<"RecordResume">, &VideoRecordResume);
}

void VideoCapture::VideoRecordStateChangedHandler(int32_t newState) { Recording::StateChanged(videoKind, newState); }

// NOLINTNEXTLINE(performance-unnecessary-value-param): slots take what their signals give
void VideoCapture::VideoGrownHandler(std::string path, bool approachingLimit)
{
    Recording::Grown(videoKind, state.bus, path, approachingLimit);
}

} // namespace ControllerDaemon
