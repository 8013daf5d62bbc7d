#include "clients/video/VideoDaemonDbusHandler.h"
#include "tests/driver/ClientOperations.h"

namespace
{

using Driver::SignalSink;
using Videod::VideoDaemonDbusHandler;

Driver::Listening Listen(sd_event* event, const SignalSink& sink)
{
    auto client = std::make_shared<VideoDaemonDbusHandler>(event);
    Driver::Forward<std::string, bool>(client->VideoGrown(), "VideoGrown", sink);
    Driver::Forward<std::string, bool>(client->PhotoTalkGrown(), "PhotoTalkGrown", sink);
    Driver::Forward<std::string, bool>(client->AutoLogGrown(), "AutoLogGrown", sink);
    Driver::Forward<int32_t>(client->RecordingStateChanged(), "RecordingStateChanged", sink);
    Driver::Forward<int32_t>(client->PhotoTalkStateChanged(), "PhotoTalkStateChanged", sink);
    Driver::Forward<int32_t>(client->AutoLogStateChanged(), "AutoLogStateChanged", sink);
    Driver::Forward<int32_t>(client->PlaybackStateChanged(), "PlaybackStateChanged", sink);
    return {client->ListenSignals({"PropertiesChanged", "VideoGrew", "PhotoTalkGrew", "AutoLogGrew"}), client};
}

} // namespace

#define ADD(operation) table.Add("video." #operation, &VideoDaemonDbusHandler::operation)

void AddVideoOperations(Driver::OperationTable& table)
{
    ADD(StartRecording);
    ADD(StopRecording);
    ADD(PauseRecording);
    ADD(ResumeRecording);
    ADD(StartPhotoTalk);
    ADD(StopPhotoTalk);
    ADD(PausePhotoTalk);
    ADD(ResumePhotoTalk);
    ADD(StartAutoLog);
    ADD(StopAutoLog);
    ADD(PauseAutoLog);
    ADD(ResumeAutoLog);
    ADD(SetMotionDetectionPeriod);
    ADD(Snapshot);
    ADD(StartPlayback);
    ADD(StopPlayback);
    ADD(PausePlayback);
    ADD(ResumePlayback);
    ADD(SeekPlayback);
    ADD(GetPlaybackProgress);
    ADD(GetTiltsenseCameraConnected);
    ADD(GetAutoRotateCameraConnected);
    table.Add<int32_t(std::string&, std::string*)>("video.GetCameraRollAngle(string)",
                                                   &VideoDaemonDbusHandler::GetCameraRollAngle);
    table.Add<int32_t(int32_t&, std::string*)>("video.GetCameraRollAngle(int32)",
                                               &VideoDaemonDbusHandler::GetCameraRollAngle);
    ADD(GetCameraPitchAngle);
    ADD(GetRotationOverrideAngle);
    ADD(SetRotationOverrideAngle);
    ADD(GetRotationEnabled);
    ADD(SetRotationEnabled);
    ADD(GetRotationSteps);
    ADD(SetRotationSteps);
    ADD(GetCaptureZoom);
    ADD(SetCaptureZoom);
    ADD(GetCaptureZoomMin);
    ADD(GetCaptureZoomMax);
    ADD(GetCapturePanX);
    ADD(SetCapturePanX);
    ADD(GetCapturePanXMin);
    ADD(GetCapturePanXMax);
    ADD(GetCapturePanY);
    ADD(SetCapturePanY);
    ADD(GetCapturePanYMin);
    ADD(GetCapturePanYMax);
    ADD(GetPlaybackRate);
    ADD(SetPlaybackRate);
    ADD(GetPlaybackDuration);
    ADD(GetPlaybackPosition);
    ADD(GetRecordingState);
    ADD(GetPlaybackState);
    ADD(GetPhotoTalkState);
    ADD(GetAutoLogState);
    ADD(GetRecordingFilename);
    ADD(GetPlaybackFilename);
    ADD(GetPhotoTalkFilename);
    ADD(GetAutoLogFilename);
    ADD(GetPreviousRecordingFilename);
    ADD(GetPreviousPhotoTalkFilename);
    ADD(GetPreviousAutoLogFilename);
    ADD(GetSystemMicMute);
    ADD(SetSystemMicMute);
    ADD(GetStreamJpegQuality);
    ADD(SetStreamJpegQuality);
    ADD(GetStreamTcpQueueSize);
    ADD(SetStreamTcpQueueSize);
    ADD(GetTcpLiveStreamEnabled);
    ADD(SetTcpLiveStreamEnabled);
    ADD(GetCaptureAutogain);
    ADD(SetCaptureAutogain);
    ADD(GetCaptureBrightness);
    ADD(SetCaptureBrightness);
    ADD(GetCaptureContrast);
    ADD(SetCaptureContrast);
    ADD(GetCaptureHue);
    ADD(SetCaptureHue);
    ADD(GetCaptureSaturation);
    ADD(SetCaptureSaturation);
    ADD(GetDisplayContent);
    ADD(GetCaptures);
    ADD(SetOverlayUserText);
    ADD(GetOverlayUserText);
    table.AddListener("video", &Listen);
}
