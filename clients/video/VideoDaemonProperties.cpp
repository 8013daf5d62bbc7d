#include "clients/video/VideoDaemonControl.h"
#include "clients/video/VideoDaemonDbusHandler.h"
#include "dbus_helper/Call.h"
#include "dbus_helper/Log.h"
#include "dbus_helper/Signature.h"

#include <array>

namespace Videod
{

using Handler = VideoDaemonDbusHandler;

namespace
{

using DbusHelper::Outcome;
using DbusHelper::Step;

int32_t PropertyResult(Outcome outcome, std::string* errorText)
{
    if (errorText != nullptr)
    {
        *errorText = std::move(outcome.errorText);
    }
    return outcome.result;
}

template <typename T>
int32_t Get(const char* property, T& value, std::string* errorText)
{
    return PropertyResult(DbusHelper::GetPropertyOn(nullptr, control, property, value), errorText);
}

template <typename T>
int32_t Set(const char* property, const T& value, std::string* errorText)
{
    return PropertyResult(DbusHelper::SetPropertyOn(nullptr, control, property, value), errorText);
}

} // namespace

int32_t Handler::GetTiltsenseCameraConnected(bool& connected, std::string* errorText)
{
    return Get("TiltsenseCapable", connected, errorText);
}
int32_t Handler::GetAutoRotateCameraConnected(bool& connected, std::string* errorText)
{
    return Get("AutoRotateCapable", connected, errorText);
}
int32_t Handler::GetCameraRollAngle(std::string& angle, std::string* errorText)
{
    return Get("CameraRollAngle", angle, errorText);
}
int32_t Handler::GetCameraRollAngle(int32_t& angle, std::string* errorText)
{
    return Get("CameraRollAngleRaw", angle, errorText);
}
int32_t Handler::GetCameraPitchAngle(int32_t& angle, std::string* errorText)
{
    return Get("CameraPitchAngle", angle, errorText);
}

int32_t Handler::GetRotationOverrideAngle(std::string& angle, std::string* errorText)
{
    return Get("RotationOverrideAngle", angle, errorText);
}
int32_t Handler::SetRotationOverrideAngle(const std::string& angle, std::string* errorText)
{
    return Set("RotationOverrideAngle", angle, errorText);
}
int32_t Handler::GetRotationEnabled(bool& enabled, std::string* errorText)
{
    return Get("RotationEnabled", enabled, errorText);
}
int32_t Handler::SetRotationEnabled(bool enabled, std::string* errorText)
{
    return Set("RotationEnabled", enabled, errorText);
}
int32_t Handler::GetRotationSteps(std::string& steps, std::string* errorText)
{
    return Get("RotationSteps", steps, errorText);
}
int32_t Handler::SetRotationSteps(const std::string& steps, std::string* errorText)
{
    return Set("RotationSteps", steps, errorText);
}
int32_t Handler::GetCaptureZoom(double& zoom, std::string* errorText) { return Get("CaptureZoom", zoom, errorText); }
int32_t Handler::SetCaptureZoom(double zoom, std::string* errorText) { return Set("CaptureZoom", zoom, errorText); }
int32_t Handler::GetCaptureZoomMin(double& zoom, std::string* errorText)
{
    return Get("CaptureZoomMin", zoom, errorText);
}
int32_t Handler::GetCaptureZoomMax(double& zoom, std::string* errorText)
{
    return Get("CaptureZoomMax", zoom, errorText);
}
int32_t Handler::GetCapturePanX(double& pan, std::string* errorText) { return Get("CapturePanX", pan, errorText); }
int32_t Handler::SetCapturePanX(double pan, std::string* errorText) { return Set("CapturePanX", pan, errorText); }
int32_t Handler::GetCapturePanXMin(double& pan, std::string* errorText)
{
    return Get("CapturePanXMin", pan, errorText);
}
int32_t Handler::GetCapturePanXMax(double& pan, std::string* errorText)
{
    return Get("CapturePanXMax", pan, errorText);
}
int32_t Handler::GetCapturePanY(double& pan, std::string* errorText) { return Get("CapturePanY", pan, errorText); }
int32_t Handler::SetCapturePanY(double pan, std::string* errorText) { return Set("CapturePanY", pan, errorText); }
int32_t Handler::GetCapturePanYMin(double& pan, std::string* errorText)
{
    return Get("CapturePanYMin", pan, errorText);
}
int32_t Handler::GetCapturePanYMax(double& pan, std::string* errorText)
{
    return Get("CapturePanYMax", pan, errorText);
}
int32_t Handler::GetPlaybackRate(double& rate, std::string* errorText) { return Get("PlaybackRate", rate, errorText); }
int32_t Handler::SetPlaybackRate(double rate, std::string* errorText) { return Set("PlaybackRate", rate, errorText); }
int32_t Handler::GetPlaybackDuration(int64_t& duration, std::string* errorText)
{
    return Get("PlaybackDuration", duration, errorText);
}
int32_t Handler::GetPlaybackPosition(int64_t& position, std::string* errorText)
{
    return Get("PlaybackPosition", position, errorText);
}
int32_t Handler::GetRecordingState(int32_t& state, std::string* errorText)
{
    return Get("RecordingState", state, errorText);
}
int32_t Handler::GetPlaybackState(int32_t& state, std::string* errorText)
{
    return Get("PlaybackState", state, errorText);
}
int32_t Handler::GetPhotoTalkState(int32_t& state, std::string* errorText)
{
    return Get("PhotoTalkState", state, errorText);
}
int32_t Handler::GetAutoLogState(int32_t& state, std::string* errorText)
{
    return Get("AutoLogState", state, errorText);
}
int32_t Handler::GetRecordingFilename(std::string& filename, std::string* errorText)
{
    return Get("RecordingFilename", filename, errorText);
}
int32_t Handler::GetPlaybackFilename(std::string& filename, std::string* errorText)
{
    return Get("PlaybackFilename", filename, errorText);
}
int32_t Handler::GetPhotoTalkFilename(std::string& filename, std::string* errorText)
{
    return Get("PhotoTalkFilename", filename, errorText);
}
int32_t Handler::GetAutoLogFilename(std::string& filename, std::string* errorText)
{
    return Get("AutoLogFilename", filename, errorText);
}
int32_t Handler::GetPreviousRecordingFilename(std::string& filename, std::string* errorText)
{
    return Get("PreviousRecordingFilename", filename, errorText);
}
int32_t Handler::GetPreviousPhotoTalkFilename(std::string& filename, std::string* errorText)
{
    return Get("PreviousPhotoTalkFilename", filename, errorText);
}
int32_t Handler::GetPreviousAutoLogFilename(std::string& filename, std::string* errorText)
{
    return Get("PreviousAutoLogFilename", filename, errorText);
}
int32_t Handler::GetSystemMicMute(bool& mute, std::string* errorText) { return Get("SystemMicMute", mute, errorText); }
int32_t Handler::SetSystemMicMute(bool mute, std::string* errorText) { return Set("SystemMicMute", mute, errorText); }
int32_t Handler::GetStreamJpegQuality(int32_t& quality, std::string* errorText)
{
    return Get("StreamJpegQuality", quality, errorText);
}
int32_t Handler::SetStreamJpegQuality(int32_t quality, std::string* errorText)
{
    return Set("StreamJpegQuality", quality, errorText);
}
int32_t Handler::GetStreamTcpQueueSize(int32_t& size, std::string* errorText)
{
    return Get("StreamTcpQueueSize", size, errorText);
}
int32_t Handler::SetStreamTcpQueueSize(int32_t size, std::string* errorText)
{
    return Set("StreamTcpQueueSize", size, errorText);
}
int32_t Handler::GetTcpLiveStreamEnabled(bool& enabled, std::string* errorText)
{
    return Get("TcpLiveStreamEnabled", enabled, errorText);
}
int32_t Handler::SetTcpLiveStreamEnabled(bool enabled, std::string* errorText)
{
    return Set("TcpLiveStreamEnabled", enabled, errorText);
}
int32_t Handler::GetCaptureAutogain(bool& enabled, std::string* errorText)
{
    return Get("CaptureAutogain", enabled, errorText);
}
int32_t Handler::SetCaptureAutogain(bool enabled, std::string* errorText)
{
    return Set("CaptureAutogain", enabled, errorText);
}
int32_t Handler::GetCaptureBrightness(int32_t& brightness, std::string* errorText)
{
    return Get("CaptureBrightness", brightness, errorText);
}
int32_t Handler::SetCaptureBrightness(int32_t brightness, std::string* errorText)
{
    return Set("CaptureBrightness", brightness, errorText);
}
int32_t Handler::GetCaptureContrast(int32_t& contrast, std::string* errorText)
{
    return Get("CaptureContrast", contrast, errorText);
}
int32_t Handler::SetCaptureContrast(int32_t contrast, std::string* errorText)
{
    return Set("CaptureContrast", contrast, errorText);
}
int32_t Handler::GetCaptureHue(int32_t& hue, std::string* errorText) { return Get("CaptureHue", hue, errorText); }
int32_t Handler::SetCaptureHue(int32_t hue, std::string* errorText) { return Set("CaptureHue", hue, errorText); }
int32_t Handler::GetCaptureSaturation(int32_t& saturation, std::string* errorText)
{
    return Get("CaptureSaturation", saturation, errorText);
}
int32_t Handler::SetCaptureSaturation(int32_t saturation, std::string* errorText)
{
    return Set("CaptureSaturation", saturation, errorText);
}
int32_t Handler::GetDisplayContent(std::string& content, std::string* errorText)
{
    return Get("DisplayContent", content, errorText);
}

int32_t Handler::GetCaptures(int32_t selector, std::vector<std::string>& captures, std::string* errorText)
{
    constexpr std::array lists{"InactiveCaptures", "ActiveCaptures", "PausedCaptures"};
    captures.clear();
    if (selector < 0 || selector >= static_cast<int32_t>(lists.size()))
    {
        return -1;
    }
    return Get(lists[static_cast<size_t>(selector)], captures, errorText);
}

namespace
{
/// The members in the order in which they travel.
using OverlayUserText = std::tuple<int32_t, int32_t, std::string, int32_t, std::string>;
} // namespace

int32_t Handler::SetOverlayUserText(const std::string& firstText, int32_t first, int32_t second, int32_t third,
                                    const std::string& secondText)
{
    const Outcome outcome = DbusHelper::SetPropertyOn(nullptr, control, "OverlayUserText",
                                                      OverlayUserText{first, second, firstText, third, secondText});
    if (!outcome.Ok())
    {
        Log::Error("%s: Failed to set property:%d", DbusHelper::signatureOf<&Handler::SetOverlayUserText>,
                   outcome.result);
    }
    return outcome.result;
}

int32_t Handler::GetOverlayUserText(std::string& firstText, int32_t& first, int32_t& second, int32_t& third,
                                    std::string& secondText)
{
    constexpr const char* text = DbusHelper::signatureOf<&Handler::GetOverlayUserText>;
    OverlayUserText read;
    const Outcome outcome = DbusHelper::GetPropertyOn(nullptr, control, "OverlayUserText", read);
    if (outcome.step == Step::Read)
    {
        Log::Error("%s: Message read failed(r = %d)", text, outcome.result);
    }
    else if (!outcome.Ok())
    {
        Log::Error("sd_bus_get_property %s failed %s (r = %d)", "OverlayUserText", outcome.errorText.c_str(),
                   outcome.result);
    }
    else
    {
        std::tie(first, second, firstText, third, secondText) = std::move(read);
    }
    return outcome.result;
}

} // namespace Videod
