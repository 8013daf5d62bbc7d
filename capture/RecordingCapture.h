#pragma once

#include "capture/Recording.h"
#include "clients/storage/StorageDaemonDbusHandler.h"
#include "clients/video/VideoDaemonDbusHandler.h"

#include <string>
#include <vector>

namespace ControllerDaemon
{

/// What the classes of the three kinds of recording are made of: they give these operations the names by which clients
/// and support people know them. All operations are static, run on the loop's thread and block on the daemons that they
/// ask; the state of the recording is the video daemon's.
///
/// A recording goes into the current job. The start is guarded (state, job, storage, power), and the file is registered
/// with the jobs manager before the video daemon writes to it. While it grows the media item's sizes are kept up to
/// date, and it is stopped and saved, or cancelled, when its storage fills up or goes away.
template <const Recording::Kind& kind>
class RecordingCapture
{
  public:
    /// The connection on which signals are emitted; null: emitting fails, which is logged.
    static void SetBus(sd_bus* bus) { state.bus = bus; }

    // NOLINTBEGIN(performance-unnecessary-value-param): slots take what their signals give
    /// A storage device changed: stops and saves when it is the recording's and ran low or became read-only, cancels
    /// when it was unmounted.
    static void StoragePropertiesChangedHandler(std::string objectPath, const sdbus_utils::PropertyMap& properties)
    {
        Recording::StoragePropertiesChanged(kind, state.bus, objectPath, properties);
    }
    /// A storage device went away: cancels when it was the recording's.
    static void StorageRemovedHandler(std::string objectPath, const std::vector<std::string>& /*interfaces*/)
    {
        Recording::StorageRemoved(kind, state.bus, objectPath);
    }
    // NOLINTEND(performance-unnecessary-value-param)

    /// Cancels a recording whose state, file or storage is not what a recording needs.
    static void StopAndCancelInvalidRecordings() { Recording::StopAndCancelInvalid(kind); }

    /// Stops and saves the recording when it lies on that storage device; true when it does.
    static bool StopAndSaveAllRecordingsOnStoragePath(const std::string& storagePath)
    {
        return Recording::StopAndSaveOnStoragePath(kind, storagePath);
    }

    /// Has the job read the media item's file sizes anew; failures are logged.
    static void UpdateMediaItem(const std::string& path) { Recording::UpdateMediaItem(kind, path); }

  protected:
    using Code = DbusHelper::CaptureErrorCode;

    /// Follows the storage client's signals from now on.
    explicit RecordingCapture(Storaged::StorageDaemonDbusHandler& storage)
    {
        storage.PropertiesChanged().connect(sigc::ptr_fun(&StoragePropertiesChangedHandler));
        storage.InterfacesRemoved().connect(sigc::ptr_fun(&StorageRemovedHandler));
    }

    /// Starts a recording, with a snapshot of width x height pixels, quality in percent. WrongState unless the video
    /// daemon is off; NoCurrentJob, PathNotCreated, StorageTooLow, PowerTooLow, MediaItemNotAdded; Unknown when the
    /// storage cannot be asked or the video daemon refuses. A refusal leaves nothing behind.
    static Code Start(uint32_t width, uint32_t height, uint32_t quality)
    {
        return Recording::Start(kind, width, height, quality);
    }
    /// Stops and saves. Unknown when the video daemon refuses, or does not tell which file it closed.
    static Code Stop() { return Recording::Stop(kind); }
    /// Stops without any work on the media item, which keeps the sizes it had. Unknown when the video daemon refuses.
    static Code Cancel() { return Recording::Cancel(kind); }
    /// Unknown when the video daemon refuses.
    static Code Pause() { return Recording::Pause(kind); }
    static Code Resume() { return Recording::Resume(kind); }

    /// The video daemon's state became `newState`: off (0) ends the recording, recording (1) updates the media item.
    static void StateChanged(int32_t newState) { Recording::StateChanged(kind, newState); }
    /// The file grew: updates the media item, or stops the recording when it nears its size limit.
    static void Grown(const std::string& path, bool approachingLimit)
    {
        Recording::Grown(kind, state.bus, path, approachingLimit);
    }

    /// Class-level state: handlers are plain functions.
    struct State
    {
        sd_bus* bus = nullptr;
    };
    static inline State state;
};

} // namespace ControllerDaemon
