#pragma once

#include "dbus_helper/DbusListener.h"
#include "dbus_helper/PropertyMap.h"

#include <sigc++/signal.h>

#include <cstdint>
#include <string>
#include <vector>

namespace Videod
{

/// Client of the video daemon, "com.tavilon.common.Video1": camera, encoders and player.
///
/// Every operation is one blocking call on a user-bus connection of its own; nothing is kept between calls. The orders
/// return the video daemon's own answer (0 done, negative refused) or the negative errno-style result of a call that
/// did not get through, which is logged. The property operations return sd-bus's result, negative on failure, with the
/// bus's words in `*errorText` where one is given; they log nothing, and leave the out-argument as it was on failure.
/// Static operations may run on any thread; signals are dispatched on the loop's.
class VideoDaemonDbusHandler
{
  public:
    using GrownSignal = sigc::signal<void, std::string, bool>; ///< file that grew, near its size limit
    using StateSignal = sigc::signal<void, int32_t>; ///< the new state: 0 off, 1 on, 2 and 3 other active states

    explicit VideoDaemonDbusHandler(sd_event* event);

    /// Subscribes to these of the signals "PropertiesChanged", "VideoGrew", "PhotoTalkGrew", "AutoLogGrew". Returns 0,
    /// negative errno-style on failure.
    [[nodiscard]] int32_t ListenSignals(const std::vector<std::string>& keys);

    GrownSignal& VideoGrown() { return videoGrown_; }
    GrownSignal& PhotoTalkGrown() { return photoTalkGrown_; }
    GrownSignal& AutoLogGrown() { return autoLogGrown_; }
    StateSignal& RecordingStateChanged() { return recordingStateChanged_; }
    StateSignal& PhotoTalkStateChanged() { return photoTalkStateChanged_; }
    StateSignal& AutoLogStateChanged() { return autoLogStateChanged_; }
    StateSignal& PlaybackStateChanged() { return playbackStateChanged_; }

    /// Starts a recording into `videoPath`. The video daemon keeps what it needs to mend a broken recording in
    /// `recoveryPath`, and takes a snapshot of width x height pixels, quality in percent, into `snapshotPath`.
    [[nodiscard]] static int32_t StartRecording(const std::string& videoPath, const std::string& recoveryPath,
                                                const std::string& snapshotPath, uint32_t width, uint32_t height,
                                                uint32_t quality);
    [[nodiscard]] static int32_t StopRecording();
    [[nodiscard]] static int32_t PauseRecording();
    [[nodiscard]] static int32_t ResumeRecording();

    /// The same for photoTalk recordings.
    [[nodiscard]] static int32_t StartPhotoTalk(const std::string& videoPath, const std::string& recoveryPath,
                                                const std::string& snapshotPath, uint32_t width, uint32_t height,
                                                uint32_t quality);
    [[nodiscard]] static int32_t StopPhotoTalk();
    [[nodiscard]] static int32_t PausePhotoTalk();
    [[nodiscard]] static int32_t ResumePhotoTalk();

    /// The same for autoLog recordings.
    [[nodiscard]] static int32_t StartAutoLog(const std::string& videoPath, const std::string& recoveryPath,
                                              const std::string& snapshotPath, uint32_t width, uint32_t height,
                                              uint32_t quality);
    [[nodiscard]] static int32_t StopAutoLog();
    [[nodiscard]] static int32_t PauseAutoLog();
    [[nodiscard]] static int32_t ResumeAutoLog();

    /// Period of the motion detection, in the video daemon's unit.
    [[nodiscard]] static int32_t SetMotionDetectionPeriod(uint32_t period);

    /// Writes a JPEG of width x height pixels, quality in percent.
    [[nodiscard]] static int32_t Snapshot(const std::string& path, uint32_t width, uint32_t height, uint32_t quality);

    [[nodiscard]] static int32_t StartPlayback(const std::string& filename, double rate);
    /// `exitFlag` is passed through: whether the display returns to the live picture.
    [[nodiscard]] static int32_t StopPlayback(bool exitFlag);
    [[nodiscard]] static int32_t PausePlayback();
    [[nodiscard]] static int32_t ResumePlayback();
    /// Position in the video daemon's unit.
    [[nodiscard]] static int32_t SeekPlayback(int32_t position);
    /// Three flags, the rate, the duration and the position, all as the video daemon gives them.
    [[nodiscard]] static int32_t GetPlaybackProgress(bool& firstFlag, bool& secondFlag, bool& thirdFlag, double& rate,
                                                     int64_t& duration, int64_t& position);

    [[nodiscard]] static int32_t GetTiltsenseCameraConnected(bool& connected, std::string* errorText = nullptr);
    [[nodiscard]] static int32_t GetAutoRotateCameraConnected(bool& connected, std::string* errorText = nullptr);
    /// The roll angle as the video daemon shows it ("CameraRollAngle").
    [[nodiscard]] static int32_t GetCameraRollAngle(std::string& angle, std::string* errorText = nullptr);
    /// The roll angle as a number ("CameraRollAngleRaw").
    [[nodiscard]] static int32_t GetCameraRollAngle(int32_t& angle, std::string* errorText = nullptr);
    [[nodiscard]] static int32_t GetCameraPitchAngle(int32_t& angle, std::string* errorText = nullptr);

    [[nodiscard]] static int32_t GetRotationOverrideAngle(std::string& angle, std::string* errorText = nullptr);
    [[nodiscard]] static int32_t SetRotationOverrideAngle(const std::string& angle, std::string* errorText = nullptr);
    [[nodiscard]] static int32_t GetRotationEnabled(bool& enabled, std::string* errorText = nullptr);
    [[nodiscard]] static int32_t SetRotationEnabled(bool enabled, std::string* errorText = nullptr);
    [[nodiscard]] static int32_t GetRotationSteps(std::string& steps, std::string* errorText = nullptr);
    [[nodiscard]] static int32_t SetRotationSteps(const std::string& steps, std::string* errorText = nullptr);

    [[nodiscard]] static int32_t GetCaptureZoom(double& zoom, std::string* errorText = nullptr);
    [[nodiscard]] static int32_t SetCaptureZoom(double zoom, std::string* errorText = nullptr);
    [[nodiscard]] static int32_t GetCaptureZoomMin(double& zoom, std::string* errorText = nullptr);
    [[nodiscard]] static int32_t GetCaptureZoomMax(double& zoom, std::string* errorText = nullptr);
    [[nodiscard]] static int32_t GetCapturePanX(double& pan, std::string* errorText = nullptr);
    [[nodiscard]] static int32_t SetCapturePanX(double pan, std::string* errorText = nullptr);
    [[nodiscard]] static int32_t GetCapturePanXMin(double& pan, std::string* errorText = nullptr);
    [[nodiscard]] static int32_t GetCapturePanXMax(double& pan, std::string* errorText = nullptr);
    [[nodiscard]] static int32_t GetCapturePanY(double& pan, std::string* errorText = nullptr);
    [[nodiscard]] static int32_t SetCapturePanY(double pan, std::string* errorText = nullptr);
    [[nodiscard]] static int32_t GetCapturePanYMin(double& pan, std::string* errorText = nullptr);
    [[nodiscard]] static int32_t GetCapturePanYMax(double& pan, std::string* errorText = nullptr);

    /// Factor of the natural speed.
    [[nodiscard]] static int32_t GetPlaybackRate(double& rate, std::string* errorText = nullptr);
    [[nodiscard]] static int32_t SetPlaybackRate(double rate, std::string* errorText = nullptr);
    [[nodiscard]] static int32_t GetPlaybackDuration(int64_t& duration, std::string* errorText = nullptr);
    [[nodiscard]] static int32_t GetPlaybackPosition(int64_t& position, std::string* errorText = nullptr);

    /// States: 0 off, 1 on, 2 and 3 other active states; playback also -1, its error state.
    [[nodiscard]] static int32_t GetRecordingState(int32_t& state, std::string* errorText = nullptr);
    [[nodiscard]] static int32_t GetPlaybackState(int32_t& state, std::string* errorText = nullptr);
    [[nodiscard]] static int32_t GetPhotoTalkState(int32_t& state, std::string* errorText = nullptr);
    [[nodiscard]] static int32_t GetAutoLogState(int32_t& state, std::string* errorText = nullptr);

    /// The file being written or played, empty without one.
    [[nodiscard]] static int32_t GetRecordingFilename(std::string& filename, std::string* errorText = nullptr);
    [[nodiscard]] static int32_t GetPlaybackFilename(std::string& filename, std::string* errorText = nullptr);
    [[nodiscard]] static int32_t GetPhotoTalkFilename(std::string& filename, std::string* errorText = nullptr);
    [[nodiscard]] static int32_t GetAutoLogFilename(std::string& filename, std::string* errorText = nullptr);
    /// The file closed last.
    [[nodiscard]] static int32_t GetPreviousRecordingFilename(std::string& filename, std::string* errorText = nullptr);
    [[nodiscard]] static int32_t GetPreviousPhotoTalkFilename(std::string& filename, std::string* errorText = nullptr);
    [[nodiscard]] static int32_t GetPreviousAutoLogFilename(std::string& filename, std::string* errorText = nullptr);

    [[nodiscard]] static int32_t GetSystemMicMute(bool& mute, std::string* errorText = nullptr);
    [[nodiscard]] static int32_t SetSystemMicMute(bool mute, std::string* errorText = nullptr);
    [[nodiscard]] static int32_t GetStreamJpegQuality(int32_t& quality, std::string* errorText = nullptr);
    [[nodiscard]] static int32_t SetStreamJpegQuality(int32_t quality, std::string* errorText = nullptr);
    [[nodiscard]] static int32_t GetStreamTcpQueueSize(int32_t& size, std::string* errorText = nullptr);
    [[nodiscard]] static int32_t SetStreamTcpQueueSize(int32_t size, std::string* errorText = nullptr);
    [[nodiscard]] static int32_t GetTcpLiveStreamEnabled(bool& enabled, std::string* errorText = nullptr);
    [[nodiscard]] static int32_t SetTcpLiveStreamEnabled(bool enabled, std::string* errorText = nullptr);

    [[nodiscard]] static int32_t GetCaptureAutogain(bool& enabled, std::string* errorText = nullptr);
    [[nodiscard]] static int32_t SetCaptureAutogain(bool enabled, std::string* errorText = nullptr);
    [[nodiscard]] static int32_t GetCaptureBrightness(int32_t& brightness, std::string* errorText = nullptr);
    [[nodiscard]] static int32_t SetCaptureBrightness(int32_t brightness, std::string* errorText = nullptr);
    [[nodiscard]] static int32_t GetCaptureContrast(int32_t& contrast, std::string* errorText = nullptr);
    [[nodiscard]] static int32_t SetCaptureContrast(int32_t contrast, std::string* errorText = nullptr);
    [[nodiscard]] static int32_t GetCaptureHue(int32_t& hue, std::string* errorText = nullptr);
    [[nodiscard]] static int32_t SetCaptureHue(int32_t hue, std::string* errorText = nullptr);
    [[nodiscard]] static int32_t GetCaptureSaturation(int32_t& saturation, std::string* errorText = nullptr);
    [[nodiscard]] static int32_t SetCaptureSaturation(int32_t saturation, std::string* errorText = nullptr);

    [[nodiscard]] static int32_t GetDisplayContent(std::string& content, std::string* errorText = nullptr);

    /// Names of the captures that are inactive (selector 0), active (1) or paused (2). Any other selector gives -1
    /// without a call. The list is cleared first.
    [[nodiscard]] static int32_t GetCaptures(int32_t selector, std::vector<std::string>& captures,
                                             std::string* errorText = nullptr);

    /// The overlay's user text: two texts and three numbers that the video daemon defines. Failures are logged.
    [[nodiscard]] static int32_t SetOverlayUserText(const std::string& firstText, int32_t first, int32_t second,
                                                    int32_t third, const std::string& secondText);
    [[nodiscard]] static int32_t GetOverlayUserText(std::string& firstText, int32_t& first, int32_t& second,
                                                    int32_t& third, std::string& secondText);

    /// Tells each changed state of the map to its subscribers; everything else in the map, and a state of another type,
    /// is passed over. Returns 0.
    int32_t EmitPropertiesChanged(const sdbus_utils::PropertyMap& properties);

  private:
    static int PropertiesChanged(sd_bus_message* message, void* userData, sd_bus_error* error);
    template <GrownSignal VideoDaemonDbusHandler::*Signal>
    static int Grew(sd_bus_message* message, void* userData, sd_bus_error* error);

    DbusHelper::DbusListener listener_;
    GrownSignal videoGrown_;
    GrownSignal photoTalkGrown_;
    GrownSignal autoLogGrown_;
    StateSignal recordingStateChanged_;
    StateSignal photoTalkStateChanged_;
    StateSignal autoLogStateChanged_;
    StateSignal playbackStateChanged_;
};

} // namespace Videod
