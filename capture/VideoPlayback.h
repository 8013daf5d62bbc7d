#pragma once

#include "capture/CaptureReply.h"
#include "clients/storage/StorageDaemonDbusHandler.h"
#include "clients/video/VideoDaemonDbusHandler.h"

#include <systemd/sd-bus.h>

#include <cstdint>
#include <string>
#include <vector>

namespace ControllerDaemon
{

/// Playback of recorded files on the unit's display, which is the video daemon's work: this checks the file, passes
/// orders on, and cancels a playback whose file went away with its storage. All operations are static, run on the
/// loop's thread and block on the video daemon; the state of the playback is the video daemon's.
class VideoPlayback
{
  public:
    /// Follows the clients' signals from now on.
    VideoPlayback(Videod::VideoDaemonDbusHandler& video, Storaged::StorageDaemonDbusHandler& storage);

    /// The connection on which "PlaybackError" is emitted; null: emitting fails, which is logged.
    static void SetBus(sd_bus* bus);

    /// Plays a file, given by its absolute name, at a factor of its natural speed. NoFile when it is not there, empty,
    /// without a size (as a folder is) or not named absolutely; Unknown when the video daemon refuses, which alone
    /// knows whether it can play now.
    static DbusHelper::PlaybackErrorCode VideoPlaybackStart(const std::string& filename, double rate);
    /// `restartLive`: the display returns to the live picture. Unknown when the video daemon refuses, here and below.
    static DbusHelper::PlaybackErrorCode VideoPlaybackStop(bool restartLive);
    static DbusHelper::PlaybackErrorCode VideoPlaybackPause();
    static DbusHelper::PlaybackErrorCode VideoPlaybackResume();
    /// Position in the video daemon's unit.
    static DbusHelper::PlaybackErrorCode VideoPlaybackSeek(int32_t position);

    /// Property handlers of the rate, "d", a factor of the natural speed: the video daemon's value, passed through.
    /// When the video daemon does not answer, the access fails with "org.freedesktop.DBus.Error.Failed".
    static int GetVideoPlaybackRate(const DbusHelper::PropertyRead<double>& read);
    static int SetVideoPlaybackRate(const DbusHelper::PropertyWrite<double>& write);

    /// The video daemon's state became `state`. Its error state (-1) cancels a playback whose file is gone, and then
    /// emits "PlaybackError" -1.
    static void VideoPlaybackStateChangedHandler(int32_t state);
    /// A storage device changed or went away: cancels the playback when that took its file, and then emits
    /// "PlaybackError" -3.
    static void StoragePropertiesChangedHandler(std::string objectPath, const sdbus_utils::PropertyMap& properties);
    static void StorageRemovedHandler(std::string objectPath, const std::vector<std::string>& interfaces);

    /// Stops a playback whose file does not exist any more, without returning to the live picture. True when it has
    /// ordered that, whatever became of the order.
    static bool StopAndCancelInvalidPlaybacks();

  private:
    /// Storage that went away takes a playback from it with it.
    static void CheckAfterRemoval();

    /// Class-level state: handlers are plain functions.
    struct State
    {
        sd_bus* bus = nullptr;
    };
    static State state;
};

} // namespace ControllerDaemon
