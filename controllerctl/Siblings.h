#pragma once

#include "clients/hardware/HalvexEndpoints.h"
#include "clients/jobs/JobsCalls.h"
#include "clients/settings/SettingsEndpoint.h"
#include "clients/storage/StorageEndpoints.h"
#include "clients/sync/SyncEndpoint.h"
#include "clients/video/VideoDaemonControl.h"

#include <array>

namespace ControllerCtl
{

/// A daemon beside the controller, which the controller asks and listens to.
struct Sibling
{
    const char* name; ///< in what this program tells
    const char* service;
};

inline constexpr std::array siblings{
    Sibling{"video", Videod::control.service},          Sibling{"storage", Storaged::manager.service},
    Sibling{"jobs", libjobsdaemon::jobsDaemon.service}, Sibling{"hardware", Halvexd::service},
    Sibling{"settings", Settingsd::root.service},       Sibling{"sync", Syncd::syncDaemon.service},
};

/// Their places in the table.
enum SiblingIndex : size_t
{
    videoSibling,
    storageSibling,
    jobsSibling,
    hardwareSibling,
    settingsSibling,
    syncSibling,
};

/// A kind of recording, as the video daemon and this program call it.
struct KindOfRecording
{
    const char* name;
    const char* state;    ///< property of the video daemon
    const char* file;     ///< property: what is being written, empty without
    const char* previous; ///< property: what was closed last
};

inline constexpr std::array kindsOfRecording{
    KindOfRecording{"video", "RecordingState", "RecordingFilename", "PreviousRecordingFilename"},
    KindOfRecording{"photo-talk", "PhotoTalkState", "PhotoTalkFilename", "PreviousPhotoTalkFilename"},
    KindOfRecording{"auto-log", "AutoLogState", "AutoLogFilename", "PreviousAutoLogFilename"},
};

} // namespace ControllerCtl
