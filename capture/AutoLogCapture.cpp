#include "capture/AutoLogCapture.h"

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

using Texts = RecordingTexts<"AutoLogCapture", "AutoLog">;

} // namespace

constexpr Recording::Kind autoLogKind{
    .type = DbusHelper::CaptureType::AutoLog,
    .peers = {.start = &VideoDaemonDbusHandler::StartAutoLog,
              .stop = &VideoDaemonDbusHandler::StopAutoLog,
              .pause = &VideoDaemonDbusHandler::PauseAutoLog,
              .resume = &VideoDaemonDbusHandler::ResumeAutoLog,
              .getState = &VideoDaemonDbusHandler::GetAutoLogState,
              .getFilename = &VideoDaemonDbusHandler::GetAutoLogFilename,
              .getPreviousFilename = &VideoDaemonDbusHandler::GetPreviousAutoLogFilename,
              .addMediaItem = &JobsManager::AddAutologMediaItem,
              .getNextPath = &StorageManager::GetNextAutoLogPath},
    .words = {.mediaType = "autolog recording",
              .startOperation = "AutoLogCapture::AutoLogRecordStart",
              .state = "autoLog",
              .progress = "autoLog",
              .pauseResume = "autolog",
              .stopped = "autoLog",
              .item = "autolog",
              .file = "autolog",
              .filepath = "autologFilepath",
              .grown = "autolog",
              .check = "autolog",
              .thresholdFailed = "BelowMinimumThreshold() failed",
              .thresholdTrue = "StorageSpaceBelowMiniumThreshold is true - failed to start recording"},
    .signatures = Texts::all,
};

AutoLogCapture::AutoLogCapture(VideoDaemonDbusHandler& video, Storaged::StorageDaemonDbusHandler& storage)
    : RecordingCapture(storage)
{
    video.AutoLogStateChanged().connect(sigc::ptr_fun(&AutoLogRecordStateChangedHandler));
    video.AutoLogGrown().connect(sigc::ptr_fun(&AutoLogGrownHandler));
}

CaptureErrorCode AutoLogCapture::AutoLogRecordStart(uint32_t width, uint32_t height, uint32_t quality)
{
    return Recording::Start(autoLogKind, width, height, quality);
}
CaptureErrorCode AutoLogCapture::AutoLogRecordStop() { return Recording::Stop(autoLogKind); }
CaptureErrorCode AutoLogCapture::AutoLogRecordCancel() { return Recording::Cancel(autoLogKind); }
CaptureErrorCode AutoLogCapture::AutoLogRecordPause() { return Recording::Pause(autoLogKind); }
CaptureErrorCode AutoLogCapture::AutoLogRecordResume() { return Recording::Resume(autoLogKind); }

int AutoLogCapture::AutoLogRecordStart(sd_bus_message* message, void* /*userData*/, sd_bus_error* /*error*/) noexcept
{
    return AnswerCapture<uint32_t, uint32_t, uint32_t>(message, Texts::handler<"RecordStart">, &AutoLogRecordStart);
}
int AutoLogCapture::AutoLogRecordStop(sd_bus_message* message, void* /*userData*/, sd_bus_error* /*error*/) noexcept
{
    return AnswerCapture<>(message, Texts::handler<"RecordStop">, &AutoLogRecordStop);
}
int AutoLogCapture::AutoLogRecordPause(sd_bus_message* message, void* /*userData*/, sd_bus_error* /*error*/) noexcept
{
    return AnswerCapture<>(message, Texts::handler<"RecordPause">, &AutoLogRecordPause);
}
int AutoLogCapture::AutoLogRecordResume(sd_bus_message* message, void* /*userData*/, sd_bus_error* /*error*/) noexcept
{
    return AnswerCapture<>(message, Texts::handler<"RecordResume">, &AutoLogRecordResume);
}

void AutoLogCapture::AutoLogRecordStateChangedHandler(int32_t newState)
{
    Recording::StateChanged(autoLogKind, newState);
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): slots take what their signals give
void AutoLogCapture::AutoLogGrownHandler(std::string path, bool approachingLimit)
{
    Recording::Grown(autoLogKind, state.bus, path, approachingLimit);
}

} // namespace ControllerDaemon
