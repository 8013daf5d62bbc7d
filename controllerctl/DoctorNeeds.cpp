#include "controllerctl/DoctorNeeds.h"

#include <array>

namespace ControllerCtl
{
namespace
{

constexpr Need Method(SiblingIndex sibling, const DbusHelper::Endpoint& object, const char* member, const char* in,
                      const char* out)
{
    return {sibling, object.path, object.interface, member, in, out};
}

constexpr Need Property(SiblingIndex sibling, const DbusHelper::Endpoint& object, const char* member, const char* type)
{
    return {sibling, object.path, object.interface, member, nullptr, type};
}

constexpr Need Order(const char* member, const char* in)
{
    return Method(videoSibling, Videod::control, member, in, "i");
}
constexpr Need Video(const char* member, const char* type)
{
    return Property(videoSibling, Videod::control, member, type);
}
constexpr Need Job(const char* member, const char* in, const char* out)
{
    return Method(jobsSibling, libjobsdaemon::jobsDaemon, member, in, out);
}
constexpr Need Hardware(const DbusHelper::Endpoint& object, const char* member, const char* type)
{
    return Property(hardwareSibling, object, member, type);
}

constexpr DbusHelper::Endpoint storageObjects{Storaged::manager.service, Storaged::manager.path,
                                              "org.freedesktop.DBus.ObjectManager"};

// clang-format off
constexpr std::array needs{
    Order("StartRecording", "sssuuu"), Order("StopRecording", ""), Order("PauseRecording", ""),
    Order("ResumeRecording", ""), Order("StartPhotoTalk", "sssuuu"), Order("StopPhotoTalk", ""),
    Order("PausePhotoTalk", ""), Order("ResumePhotoTalk", ""), Order("StartAutoLog", "sssuuu"),
    Order("StopAutoLog", ""), Order("PauseAutoLog", ""), Order("ResumeAutoLog", ""), Order("Snapshot", "suuu"),
    Order("StartPlayback", "sd"), Order("StopPlayback", "b"), Order("PausePlayback", ""),
    Order("ResumePlayback", ""), Order("SeekPlayback", "i"),
    Video("RecordingState", "i"), Video("PhotoTalkState", "i"), Video("AutoLogState", "i"),
    Video("PlaybackState", "i"), Video("RecordingFilename", "s"), Video("PhotoTalkFilename", "s"),
    Video("AutoLogFilename", "s"), Video("PlaybackFilename", "s"), Video("PreviousRecordingFilename", "s"),
    Video("PreviousPhotoTalkFilename", "s"), Video("PreviousAutoLogFilename", "s"), Video("PlaybackRate", "d"),
    Video("AutoRotateCapable", "b"), Video("CameraRollAngleRaw", "i"), Video("TiltsenseCapable", "b"),
    Video("CameraPitchAngle", "i"), Video("ActiveCaptures", "as"), Video("SystemMicMute", "b"),
    Method(storageSibling, storageObjects, "GetManagedObjects", "", "a{oa{sa{sv}}}"),
    Job("GetNewMediaPathComponents", "", "(iss)"), Job("AddSnapshotMedia", "ssbibibii", "i"),
    Job("AddVideoMedia", "sssssbibibii", "i"), Job("AddAutologMedia", "sssssbibibii", "i"),
    Job("AddPhotoTalkMedia", "sssssbibibii", "i"), Job("UpdateMediaFileSizes", "s", "i"),
    Job("GetCurrentJobID", "", "s"), Job("GetCurrentJobDeviceID", "", "s"), Job("GetMediaID", "s", "(is)"),
    Job("DeleteMediaItem", "sss", "i"),
    Hardware(Halvexd::control, "RemoteIP", "s"), Hardware(Halvexd::control, "RemoteDBusAddress", "s"),
    Method(hardwareSibling, Halvexd::control, "SetLedState", "uu", ""),
    Method(hardwareSibling, Halvexd::control, "BeepBuzzer", "uuu", "b"),
    Method(hardwareSibling, Halvexd::power, "GetPowerSufficientForAction", "i", "i"),
    Hardware(Halvexd::camera, "Sonde", "b"), Hardware(Halvexd::reel, "Connected", "b"),
    Hardware(Halvexd::distance, "Mode", "s"), Hardware(Halvexd::distance, "Absolute", "i"),
    Hardware(Halvexd::distance, "Relative", "i"),
    Property(syncSibling, Syncd::syncDaemon, "HasActiveSyncs", "b"),
};

constexpr std::array deviceNeeds{
    Need{storageSibling, nullptr, Storaged::deviceInterface, "MountPoint", nullptr, "s"},
    Need{storageSibling, nullptr, Storaged::deviceInterface, "IsMounted", nullptr, "b"},
    Need{storageSibling, nullptr, Storaged::deviceInterface, "ReadOnly", nullptr, "b"},
    Need{storageSibling, nullptr, Storaged::deviceInterface, "StorageIsBelowMinimumLevel", nullptr, "b"},
};

constexpr std::array settingNeeds{
    SettingNeed{"time", "zone", "s"}, SettingNeed{"time", "dst", "b"}, SettingNeed{"audio", "micEnabled", "b"},
    SettingNeed{"audio", "speakerEnabled", "b"}, SettingNeed{"audio", "speakerVolume", "i"},
    SettingNeed{"sonde", "enabled", "b"}, SettingNeed{"keyBeep", "enabled", "b"},
    SettingNeed{"keyBeep", "duration", "u"}, SettingNeed{"keyBeep", "period", "u"},
    SettingNeed{"keyBeep", "beeps", "u"},
};
// clang-format on

} // namespace

std::span<const Need> Needs() { return needs; }
std::span<const Need> DeviceNeeds() { return deviceNeeds; }
std::span<const SettingNeed> SettingNeeds() { return settingNeeds; }

} // namespace ControllerCtl
