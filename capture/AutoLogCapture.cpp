#include "capture/AutoLogCapture.h"

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
    .words = {.name = "autolog",
              .state = "autoLog",
              .stopped = "autoLog",
              .startOperation = "AutoLogCapture::AutoLogRecordStart",
              .thresholdFailed = "BelowMinimumThreshold() failed",
              .thresholdTrue = "StorageSpaceBelowMiniumThreshold is true - failed to start recording"},
    .signatures = Recording::signaturesOf<"AutoLogCapture", "AutoLog">,
};

AutoLogCapture::AutoLogCapture(VideoDaemonDbusHandler& video, Storaged::StorageDaemonDbusHandler& storage)
    : RecordingCapture(storage)
{
    video.AutoLogStateChanged().connect(sigc::ptr_fun(&AutoLogRecordStateChangedHandler));
    video.AutoLogGrown().connect(sigc::ptr_fun(&AutoLogGrownHandler));
}

} // namespace ControllerDaemon
