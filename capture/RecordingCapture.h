#pragma once

#include "capture/Recording.h"
#include "clients/StorageDaemonDbusHandler.h"
#include "clients/VideoDaemonDbusHandler.h"

#include <string>
#include <vector>

namespace ControllerDaemon
{

/// What the classes of the three kinds of recording have in common, made from the description of each kind. All
/// operations are static, run on the loop's thread and block on the daemons that they ask; the state of the recording
/// is the video daemon's.
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
    explicit RecordingCapture(Storaged::StorageDaemonDbusHandler& storage)
    {
        storage.PropertiesChanged().connect(sigc::ptr_fun(&StoragePropertiesChangedHandler));
        storage.InterfacesRemoved().connect(sigc::ptr_fun(&StorageRemovedHandler));
    }

    /// Class-level state: handlers are plain functions.
    struct State
    {
        sd_bus* bus = nullptr;
    };
    static inline State state;
};

} // namespace ControllerDaemon
